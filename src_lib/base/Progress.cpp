#include "base/Progress.h"

#include "base/tools.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <sys/resource.h>

namespace MIRT_ZAV
{
namespace
{
/// How often a subscriber should hear of a whole run: enough for a smooth bar, too seldom to cost time.
constexpr double broadcastsPerRun = 200.0;

long getPeakMemoryKB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}
} // namespace

ProgressBase::~ProgressBase() = default;

void StageClock::restart()
{
    vTimings.clear();
    vOpen.clear();
}

void StageClock::begin(const std::string& label)
{
    const auto hasLabel = [&label](const StageTiming& timing) { return timing.label == label; };
    const auto known = std::find_if(vTimings.begin(), vTimings.end(), hasLabel);
    const size_t timing = static_cast<size_t>(known - vTimings.begin());
    for (const OpenStage& stage : vOpen)
        if (stage.timing == timing)
            return;
    if (known == vTimings.end())
        vTimings.push_back({label, static_cast<int>(vOpen.size()), 0.0, 0});
    vOpen.push_back({timing, Clock::now()});
}

void StageClock::end(const std::string& label)
{
    for (size_t i = vOpen.size(); i-- > 0;)
    {
        if (vTimings[vOpen[i].timing].label != label)
            continue;
        // Stages inside it that were never ended end with it.
        while (vOpen.size() > i)
        {
            close(vOpen.back());
            vOpen.pop_back();
        }
        return;
    }
}

void StageClock::endAll()
{
    for (; !vOpen.empty(); vOpen.pop_back())
        close(vOpen.back());
}

void StageClock::close(const OpenStage& stage)
{
    StageTiming& timing = vTimings[stage.timing];
    timing.seconds += std::chrono::duration<double>(Clock::now() - stage.start).count();
    timing.peakMemoryKB = getPeakMemoryKB();
}

Progress::Progress(const std::string& nameArg, Progress* parentArg, double weightArg)
    : name(nameArg), weight(weightArg), parent(parentArg)
{
}

Progress::~Progress()
{
    reset();
}

void Progress::createChild(const std::string& childName, double childWeight, int numVisits)
{
    std::lock_guard<std::recursive_mutex> lock(mutex);
    ZAV_ASSERT(name != "empty", "this->name!=\"empty\"");
    if (mNameKids.find(childName) != mNameKids.end())
        return;
    auto child = std::make_unique<Progress>(childName, this, childWeight);
    child->visitsLeft = numVisits;
    mNameKids[childName] = child.get();
    child.release();
}

Progress* Progress::findChild(const std::string& childName)
{
    std::lock_guard<std::recursive_mutex> lock(mutex);
    const auto it = mNameKids.find(childName);
    return it == mNameKids.end() ? nullptr : it->second;
}

Progress* Progress::getChildProgressSetTodo(const std::string& childName, std::uint64_t todoArg)
{
    if (todo == 0)
        todo = 1; // this one had nothing to do by itself; from now on its fraction is that of the stages below it
    getRoot()->clock.begin(childName);
    std::lock_guard<std::recursive_mutex> lock(mutex);
    auto q_it = mNameKids.find(childName);
    if (q_it == mNameKids.end())
    {
        createChild(childName, 10.0);
        q_it = mNameKids.find(childName);
    }
    ZAV_ASSERT(q_it != mNameKids.end(), "q_it!=mNameKids.end()");
    q_it->second->beginVisit(todoArg);
    return q_it->second;
}

/// What is left of the stage is divided equally among this visit and those that are still to come.
void Progress::beginVisit(std::uint64_t todoArg)
{
    const auto numVisits = static_cast<std::uint64_t>(std::max(1, visitsLeft));
    const double reached = done == 0 ? 0.0 : getFrac();
    if (visitsLeft > 0 && reached > 0.0 && reached < 1.0)
    {
        todo = static_cast<std::uint64_t>(static_cast<double>(numVisits * todoArg) / (1.0 - reached));
        done = static_cast<std::uint64_t>(static_cast<double>(todo) * reached);
        computeStep();
    }
    else
        setTodo(numVisits * todoArg);
    visitsLeft = std::max(0, visitsLeft - 1);
    visitEnd = visitsLeft == 0 ? todo : std::min(todo, done + todoArg);
}

void Progress::setTodo(std::uint64_t todoArg)
{
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (done == 0)
        todo = todoArg;
    else
    {
        // Entered again: the new steps come on top, and done is scaled so that the fraction doesn't jump back. Where it
        // scales down to nothing, the step is computed anew, too.
        const double reached = getFrac();
        const std::uint64_t newTodo = todoArg + done;
        done = static_cast<std::uint64_t>(static_cast<double>(newTodo) * reached);
        todo = newTodo;
    }
    if (done == 0)
        computeStep();
}

void Progress::computeStep()
{
    if (parent == nullptr || !(weight > 0.0))
        step = todo / 200;
    else
    {
        double sumWeights = 0.0;
        for (const auto& [siblingName, sibling] : parent->mNameKids)
            sumWeights += sibling->weight;
        if (sumWeights > 0.0)
        {
            const double share = static_cast<double>(todo) / broadcastsPerRun;
            step = static_cast<std::uint64_t>(std::ceil((sumWeights / weight) * share));
            if (todo < step) // a short stage of small weight: one update on the way, not only at its end
                step = static_cast<std::uint64_t>(std::ceil(static_cast<double>(todo) * 0.75));
        }
    }
    step = std::max<std::uint64_t>(step, 1);
}

void Progress::incProgressEvenly(std::uint64_t numSteps)
{
    while (numSteps > 0 && done < todo)
    {
        const std::uint64_t together = std::min(numSteps, step);
        incProgressBy(together);
        numSteps -= together;
    }
}

void Progress::endVisit()
{
    if (done < visitEnd)
        incProgressEvenly(visitEnd - done);
    stopClock();
}

void Progress::announce()
{
    {
        std::lock_guard<std::recursive_mutex> lock(mutex);
        sinceBroadcast = 0;
    }
    broadcast("");
}

void Progress::setDone(bool broadcastNow)
{
    getRoot()->clock.end(name);
    if (mNameKids.empty())
        done = todo;
    else
        for (const auto& [kidName, kid] : mNameKids)
            kid->setDone(false);
    if (broadcastNow)
        broadcast("");
}

void Progress::stopClock()
{
    getRoot()->clock.end(name);
}

double Progress::getFrac()
{
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (todo == 0)
        return 1.0;
    if (mNameKids.empty())
        return std::min(1.0, static_cast<double>(done) / static_cast<double>(todo));
    double sum = 0.0;
    double sumWeights = 0.0;
    for (const auto& [kidName, kid] : mNameKids)
    {
        sum += kid->weight * kid->getFrac();
        sumWeights += kid->weight;
    }
    return sum / sumWeights;
}

void Progress::broadcast(const std::string&)
{
    // No mutex is held here, and the root takes its own before those of its stages. A caller that still held a stage's
    // would take the root's after it, against the order of all other places.
    getRoot()->tellSubscriber();
}

void Progress::tellSubscriber()
{
    std::lock_guard<std::recursive_mutex> lock(mutex);
    const double fraction = getFrac();
    if (fraction == lastFraction)
        return;
    lastFraction = fraction;
    if (subscriber != nullptr)
        subscriber->update(name, fraction);
}

void Progress::reset()
{
    std::lock_guard<std::recursive_mutex> lock(mutex);
    for (const auto& [kidName, kid] : mNameKids)
    {
        kid->name = "invalid";
        delete kid;
    }
    mNameKids.clear();
    name = "empty";
    lastFraction = -1.0;
    todo = 1;
    done = 0;
    step = 1;
    sinceBroadcast = 0;
    visitsLeft = 1;
    visitEnd = 1;
}

void Progress::startRun(const std::string& runName)
{
    reset();
    std::lock_guard<std::recursive_mutex> lock(mutex);
    name = runName;
    clock.restart();
    clock.begin(runName);
}

void Progress::finishRun()
{
    setDone(true);
    reset();
    clock.endAll();
}

void Progress::abandonRun()
{
    reset();
    clock.endAll();
}

void Progress::setSubscriber(ProgressBase* pProgress)
{
    std::lock_guard<std::recursive_mutex> lock(mutex);
    if (pProgress != nullptr)
        subscriber = pProgress;
}

std::string Progress::getName()
{
    std::lock_guard<std::recursive_mutex> lock(mutex);
    return name;
}

Progress* Progress::getRoot()
{
    Progress* node = this;
    while (node->parent != nullptr)
        node = node->parent;
    return node;
}

ProgressPart::ProgressPart(Progress* stageArg, std::uint64_t numStepsArg, std::uint64_t numItemsArg)
    : stage(stageArg), numSteps(numStepsArg), numItems(numItemsArg)
{
    constexpr std::uint64_t maxUpdates = 1000;
    const bool bCounts = stage != nullptr && numSteps > 0 && numItems > 0;
    itemsPerUpdate = bCounts ? (numItems - 1) / std::min(numSteps, maxUpdates) + 1 : ~std::uint64_t(0);
    nextItem = itemsPerUpdate;
}

void ProgressPart::update()
{
    const std::uint64_t numReached = std::min(numItemsDone, numItems);
    const auto part = static_cast<double>(numReached) / static_cast<double>(numItems);
    const std::uint64_t before = numStepsDone;
    numStepsDone = numReached == numItems ? numSteps : static_cast<std::uint64_t>(part * static_cast<double>(numSteps));
    nextItem = numReached == numItems ? ~std::uint64_t(0) : std::min(numItems, numReached + itemsPerUpdate);
    stage->incProgressBy(numStepsDone - before);
}

void ProgressPart::finish()
{
    if (stage == nullptr)
        return;
    const std::uint64_t numLeft = numSteps - numStepsDone;
    numStepsDone = numSteps;
    nextItem = ~std::uint64_t(0);
    stage->incProgressEvenly(numLeft);
}

namespace
{
struct Stage
{
    const char* label;
    double weight;
    int numVisits = 1;
};

template <size_t N>
void setUpRun(const char* name, const Stage (&stages)[N])
{
    Progress* const root = getThreadProgress();
    root->startRun(name);
    for (const Stage& stage : stages)
        root->createChild(stage.label, stage.weight, stage.numVisits);
}
} // namespace

void progressForReco()
{
    // Nothing enters "SM_run". Its weight is part of the sum all the same and keeps the fraction below 1 until the
    // setDone at the end of the run: the values that subscribers hear depend on it.
    static constexpr Stage stages[] = {{"CL_eres", 3.0},        {"SM_run", 3.0},           {"CL_creb", 3.0},
                                       {"HL_st", 3.0},          {"VO_ftx", 3.0},           {"VO_amb", 3.0},
                                       {"TP_unif", 10.0},       {"TP_pps", 100.0},         {"TP_cbcpl", 100.0},
                                       {"TP_itr", 50.0},        {"TP_fin", 30.0},          {"RM_cpo", 10.0},
                                       {"RM_kdeg", 10.0, 3},    {"RM_gEfCandMT", 10.0, 2}, {"efLoop", 10.0, 2},
                                       {"PREP_createRCD", 2.0}, {"PREP_fillHoles", 100.0}, {"PREP_integFill", 2.0}};
    setUpRun("Reconstruct", stages);
}

void progressForEstimation()
{
    // Nothing enters "SM_run", and an estimation ends without finishRun: the last value that subscribers hear, and rely
    // on, is about 2/3.
    static constexpr Stage stages[] = {{"CL_eres", 3.0}, {"SM_run", 3.0}, {"CL_creb", 3.0}};
    setUpRun("Density Estimation", stages);
}

void progressForCloud()
{
    static constexpr Stage stages[] = {{"CL_eres", 3.0}, {"dih2e", 3.0},     {"reo", 3.0},       {"rFins", 3.0},
                                       {"feate", 10.0},  {"nfeate", 50.0},   {"hal-part", 10.0}, {"ar4", 100.0},
                                       {"oifc", 10.0},   {"mandiffe", 10.0}, {"mandiffa", 100.0}};
    setUpRun("ToCloud", stages);
}

void progressForMelt()
{
    // Not all of these are entered. Those that aren't keep the fraction below 1 by their weight until the setDone at
    // the end of the run: the values that subscribers hear depend on it.
    static constexpr Stage stages[] = {
        {"dih2e", 0.061},        {"reo", 0.013},         {"rFins", 0.002},          {"feate", 0.019},
        {"nfeate", 0.084},       {"ar4", 0.092},         {"oifc", 0.025},           {"mandiffe", 0.042},
        {"mandiffa", 0.943},     {"VO_ftx", 3.0},        {"VO_amb", 3.0},           {"TP_cbcpl", 6.0, 2},
        {"TP_pps", 5.0},         {"RM_cpo", 1.09},       {"RM_kdeg", 4.0},          {"hal-part", 10.0},
        {"CL_eres", 3.0},        {"SM_run", 3.0},        {"CL_creb", 3.0},          {"HL_st", 3.0},
        {"TP_unif", 0.6},        {"TP_itr", 1.0},        {"TP_fin", 1.7},           {"efLoop", 5.0},
        {"RM_redborder", 0.263}, {"RM_redprioq", 0.824}, {"RM_redprocprioq", 15.0}, {"RM_gEfCandMT", 2.0}};
    setUpRun("Melt", stages);
}

void progressForFlips()
{
    static constexpr Stage stages[] = {{"RM_kdeg", 10.0}, {"RM_gEfCandMT", 10.0}, {"efLoop", 10.0}};
    setUpRun("EdgeFlips", stages);
}

void progressForAnnealing(const std::vector<double>& temperatures)
{
    static constexpr Stage stages[] = {{"RM_kdeg", 10.0, 2}, {"RM_gEfCandMT", 10.0, 2}, {"efLoop", 3.0, 2}};
    setUpRun("EdgeFlipsS", stages);
    for (const double temperature : temperatures)
        getThreadProgress()->createChild("RM_gEfCandMT_" + toString(temperature), 10.0);
}

void progressForSmoothing(int numRounds)
{
    static constexpr Stage stages[] = {{"border", 1.0}, {"list", 2.0}, {"RM_kdeg", 10.0}};
    setUpRun("Smoothing", stages);
    for (int i = 0; i < numRounds; ++i)
        getThreadProgress()->createChild("it%" + toString(i), 10.0);
}

void progressForReduction()
{
    static constexpr Stage stages[] = {
        {"RM_kdeg", 3.0}, {"RM_redborder", 1.0}, {"RM_redprioq", 3.0}, {"RM_redprocprioq", 93.0}};
    setUpRun("Reduce", stages);
}

} // namespace MIRT_ZAV
