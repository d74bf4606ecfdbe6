// The tree of weighted stages behind the one fraction that an application hears of, and the clock of the stages.
//
//     root "Reconstruct"            fraction: mean of the stages by weight
//      |-- "CL_creb"         3      6 of 6 steps done
//      |-- "PREP_fillHoles"  100    12 of 40 steps done
//      `-- "VO_ftx"          3      not begun, counts as 0
//
// A stage may have stages of its own; then its fraction is their mean.
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

/// Notes when stages begin and end. Stages are listed in the order in which they first began; a stage that is entered
/// several times has one entry with the sum.
class StageClock
{
public:
    void restart();
    void begin(const std::string& label);
    void end(const std::string& label);
    /// Ends whatever is still under way, the whole run included.
    void endAll();
    const std::vector<StageTiming>& getTimings() const { return vTimings; }

private:
    using Clock = std::chrono::steady_clock;
    struct OpenStage
    {
        size_t timing; // index into vTimings
        Clock::time_point start;
    };

    void close(const OpenStage& stage);

    std::vector<StageTiming> vTimings;
    std::vector<OpenStage> vOpen; // nested: the innermost stage last
};

/// One node of the tree. The root belongs to a thread, its children are the stages of a run. Only that thread may use
/// the tree, as incProgressBy counts without a lock. Where mutexes are taken, the parent's comes before the child's.
class Progress
{
public:
    explicit Progress(const std::string& name, Progress* parent = nullptr, double weight = 1.0);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Adds a stage; one that exists stays as it is.
    /// \param numVisits  how often the run will enter it: each visit gets an equal part of it
    /// \throws ZavBugException when this node is named "empty": no run has been started on it
    void createChild(const std::string& name, double weight, int numVisits = 1);

    /// The stage of this name, or null.
    Progress* findChild(const std::string& childName);

    /// Enters a stage and sets the number of steps of this visit. One that wasn't registered is made with weight 10. One
    /// that was entered before goes on from the fraction it has reached: what the user sees must not fall.
    Progress* getChildProgressSetTodo(const std::string& name, std::uint64_t todo);

    /// One step done. Cheap enough for inner loops: most calls only count; about 200 in a run reach the subscriber.
    void incProgressByOne() { incProgressBy(1); }
    /// Several steps done at once.
    void incProgressBy(std::uint64_t numSteps)
    {
        sinceBroadcast += numSteps;
        const std::uint64_t newDone = done + numSteps;
        if (newDone > todo)
            done = todo; // a stage that takes more steps than expected stays at its end
        else
        {
            done = newDone;
            if (sinceBroadcast < step && newDone != todo)
                return;
        }
        announce();
    }

    /// The same for steps that come together, or turn out to be needless: the subscriber hears as often as if they had
    /// come one by one, so that a bar doesn't jump.
    void incProgressEvenly(std::uint64_t numSteps);

    /// The node and all below it count as finished, and its timing ends.
    /// \param broadcastNow  whether the subscriber hears of it at once
    void setDone(bool broadcastNow);

    /// Counts what is left of the present visit, and ends its timing.
    void endVisit();

    /// Ends the timing of a stage without setDone: its fraction stays as it is, and the subscriber hears nothing.
    void stopClock();

    /// The part done, 0 to 1; with children their mean by weight. A stage of no steps counts as done.
    double getFrac();

    /// Makes the root tell its subscriber the fraction of the whole run, if that has changed. The argument isn't used.
    void broadcast(const std::string&);

    /// Removes all stages and names the node "empty". The subscriber and the weight stay.
    void reset();

    /// Starts a run on a root; whatever stands there goes.
    void startRun(const std::string& runName);
    /// Ends a run on a root: the subscriber hears 1, and the tree is empty again.
    void finishRun();
    /// Ends a run that failed: the tree is empty again, and the subscriber hears nothing.
    void abandonRun();

    /// Null is ignored: a subscriber can be replaced, not removed.
    void setSubscriber(ProgressBase* pProgress);
    std::string getName();
    /// The stages of this root's last run, or so far of the one under way.
    const std::vector<StageTiming>& getTimings() const { return clock.getTimings(); }

private:
    void announce();
    void tellSubscriber();
    void setTodo(std::uint64_t todoArg);
    void beginVisit(std::uint64_t todoArg);
    void computeStep();
    Progress* getRoot();

public:
    // Guarded by the mutex, except where incProgressBy only counts.
    std::map<std::string, Progress*> mNameKids; // owned; in the order of names, so that sums always round the same
    std::string name;
    const double weight;
    ProgressBase* subscriber = nullptr; // not owned; only the root's is used
    Progress* const parent;
    std::recursive_mutex mutex;
    std::uint64_t todo = 1;
    std::uint64_t done = 0;
    std::uint64_t step = 1; // so many steps lie between two broadcasts
    std::uint64_t sinceBroadcast = 0;
    int visitsLeft = 1;         // that are still to come
    std::uint64_t visitEnd = 1; // done at the end of the present visit
    double lastFraction = -1.0; // what the subscriber heard last; only the root's is used
    StageClock clock;           // only the root's is used
};

/// Some steps of a stage, spread evenly over the items of a loop. Most items cost one comparison.
class ProgressPart
{
public:
    /// \param stage  null: nobody counts
    ProgressPart(Progress* stage, std::uint64_t numSteps, std::uint64_t numItems);

    /// One more item is done.
    void count() { reach(numItemsDone + 1); }
    /// So many items are done by now. Fewer than before, or more than there are, are harmless.
    void reach(std::uint64_t numItemsDoneArg)
    {
        numItemsDone = numItemsDoneArg;
        if (numItemsDone >= nextItem)
            update();
    }
    /// Counts the steps that are left.
    void finish();

private:
    void update();

    Progress* stage;
    std::uint64_t numSteps;
    std::uint64_t numItems;
    std::uint64_t numItemsDone = 0;
    std::uint64_t numStepsDone = 0;
    std::uint64_t itemsPerUpdate;
    std::uint64_t nextItem; // when it is done, there is something to count
};

/// One object per thread, made on first use and destroyed with its thread or, for threads that are still running then,
/// at the end of the process.
template <class T>
class ThreadSingleton
{
public:
    static T* getInstance()
    {
        static Cleanup cleanup;
        thread_local EndOfThread endOfThread; // thread ids come round again: a new thread must not find an old object
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

    /// Never destroyed: a thread may end after the static objects have gone.
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

/// The calling thread's root.
inline Progress* getThreadProgress()
{
    return ThreadSingleton<Progress>::getInstance();
}

// One for each kind of run: each starts it on the calling thread's root and registers its stages.
void progressForReco();
void progressForEstimation();
void progressForCloud();
void progressForMelt();
void progressForFlips();
/// \param temperatures  of the rounds between the plain flips; each round has a stage of its own
void progressForAnnealing(const std::vector<double>& temperatures);
/// \param numRounds  one stage for each; none below 1
void progressForSmoothing(int numRounds);
void progressForReduction();

} // namespace MIRT_ZAV
