// The tree of weighted stages behind the one fraction that an application hears of, and the clock that times the stages.
#pragma once

#include "zav/Progress.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace MIRT_ZAV
{

/// Notes when stages begin and end. Stages are listed in the order in which they first began.
class StageClock
{
public:
    void restart();
    void begin(const std::string& label);
    void end(const std::string& label);
    /// Ends what is still under way, the whole run included.
    void endAll();
    const std::vector<StageTiming>& getTimings() const { return vTimings; }

private:
    using Clock = std::chrono::steady_clock;
    struct OpenStage
    {
        size_t timing; // index in vTimings
        Clock::time_point start;
    };

    void close(const OpenStage& stage);

    std::vector<StageTiming> vTimings;
    std::vector<OpenStage> vOpen;
};

/// One node of the tree. The root belongs to a thread; its children are the stages of a run. Only that thread may use
/// the tree: the counters of the fast path have no lock. The mutexes guard the rest, locked parent before child.
class Progress
{
public:
    explicit Progress(const std::string& name, Progress* parent = nullptr, double weight = 1.0);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Adds a stage; one that exists stays as it is. A node named "empty" can't have any.
    void createChild(const std::string& name, double weight);

    /// The stage of this name, or null.
    Progress* findChild(const std::string& childName);

    /// The stage, made with weight 10 if nobody registered it, with its number of steps set. A stage that is entered
    /// again keeps the fraction it has reached.
    Progress* getChildProgressSetTodo(const std::string& name, std::uint64_t todo);

    /// One step done. The subscriber hears of it about 200 times in a run. Takes no lock on the usual path.
    void incProgressByOne() { incProgressBy(1); }
    /// A group of steps done at once.
    void incProgressBy(std::uint64_t numSteps)
    {
        sinceBroadcast += numSteps;
        const std::uint64_t newDone = done + numSteps;
        if (newDone > todo)
            done = todo; // never past the end
        else
        {
            done = newDone;
            if (sinceBroadcast < step && newDone != todo)
                return;
        }
        announce();
    }

    /// The node and all below it count as finished.
    void setDone(bool broadcastNow);

    /// Ends the timing of a stage that stays open in the tree.
    void stopClock();

    /// The part done, 0 to 1; over children the mean by weight.
    double getFrac();

    /// Climbs to the root, which tells its subscriber if the fraction has changed. The text is ignored.
    void broadcast(const std::string&);

    /// Back to the "empty" state without children. The subscriber and the weight stay.
    void reset();

    /// Starts a run on a root: forgets the last one and gives the tree its name.
    void startRun(const std::string& runName);
    /// Ends a run on a root after a normal end: everything counts as done, the tree is empty again.
    void finishRun();

    void setSubscriber(ProgressBase* pProgress);
    std::string getName();
    /// The stages of the root's last run.
    const std::vector<StageTiming>& getTimings() const { return clock.getTimings(); }

private:
    void announce();
    void tellSubscriber();
    void setTodo(std::uint64_t todoArg);
    void computeStep();
    Progress* getRoot();

public:
    // Guarded by the mutex but for the usual path of incProgressBy.
    std::map<std::string, Progress*> mNameKids; // the stages below this node; iterated in the order of their names
    std::string name;
    const double weight;
    ProgressBase* subscriber = nullptr; // not owned; only the root's is used
    Progress* const parent;
    std::recursive_mutex mutex;
    std::uint64_t todo = 1;
    std::uint64_t done = 0;
    std::uint64_t step = 1; // broadcast every this many steps
    std::uint64_t sinceBroadcast = 0;
    double lastFraction = -1.0;
    StageClock clock; // only the root's is used
};

/// One object per thread, made on first use. It goes with its thread, or with the process.
template <class T>
class ThreadSingleton
{
public:
    static T* getInstance()
    {
        static Cleanup cleanup;
        thread_local EndOfThread endOfThread; // ids of threads are used again: a new thread must not find an old object
        Registry& registry = getRegistry();
        std::lock_guard<std::mutex> lock(registry.mtx);
        T*& instance = registry.mInstances[std::this_thread::get_id()];
        if (instance == nullptr)
            instance = new T("empty");
        return instance;
    }

private:
    struct Registry
    {
        std::mutex mtx;
        std::map<std::thread::id, T*> mInstances;
    };

    /// Never destroyed, as threads may outlive the static objects.
    static Registry& getRegistry()
    {
        static Registry& registry = *new Registry;
        return registry;
    }

    struct EndOfThread
    {
        ~EndOfThread()
        {
            Registry& registry = getRegistry();
            std::lock_guard<std::mutex> lock(registry.mtx);
            const auto it = registry.mInstances.find(std::this_thread::get_id());
            if (it == registry.mInstances.end())
                return;
            delete it->second;
            registry.mInstances.erase(it);
        }
    };

    struct Cleanup
    {
        ~Cleanup()
        {
            Registry& registry = getRegistry();
            std::lock_guard<std::mutex> lock(registry.mtx);
            for (auto& [id, instance] : registry.mInstances)
                delete instance;
            registry.mInstances.clear();
        }
    };
};

/// The root of the calling thread.
inline Progress* getThreadProgress()
{
    return ThreadSingleton<Progress>::getInstance();
}

// Each sets up the calling thread's root for one kind of run.
void progressForReco();
void progressForEstimation();
void progressForCloud();
void progressForMelt();
void progressForFlips();
/// \param temperatures  of the rounds between the plain flips
void progressForAnnealing(const std::vector<double>& temperatures);
/// \param numRounds  below 1: none
void progressForSmoothing(int numRounds);
void progressForReduction();

} // namespace MIRT_ZAV
