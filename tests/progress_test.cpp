#include "Progress.h"
#include "capture.h"

#include <cmath>
#include <memory>

using namespace MIRT_ZAV;

namespace
{
/// Writes down what it hears.
class Recorder : public ProgressBase
{
public:
    void update(const std::string& name, double fraction) override
    {
        lastName = name;
        fractions.push_back(fraction);
    }

    std::string lastName;
    std::vector<double> fractions;
};

/// A root with a subscriber and stages of the given weights, named "a", "b", ...
struct Tree
{
    explicit Tree(const std::vector<double>& weights)
    {
        root.setSubscriber(&recorder);
        root.startRun("Test");
        for (size_t i = 0; i < weights.size(); ++i)
            root.createChild(label(i), weights[i]);
    }
    static std::string label(size_t i) { return std::string(1, char('a' + i)); }

    /// The numbers of the steps after which the subscriber heard something.
    std::vector<int> heardSteps(Progress* stage, int numSteps)
    {
        std::vector<int> steps;
        for (int i = 1; i <= numSteps; ++i)
        {
            const size_t before = recorder.fractions.size();
            stage->incProgressByOne();
            if (recorder.fractions.size() > before)
                steps.push_back(i);
        }
        return steps;
    }

    Recorder recorder;
    Progress root{"empty"};
};
} // namespace

TEST(Fraction, IsTheMeanByWeight)
{
    Tree tree({1.0, 3.0});
    EXPECT_EQ(tree.root.getFrac(), 0.0);
    tree.root.getChildProgressSetTodo("a", 2)->incProgressByOne();
    EXPECT_EQ(tree.root.getFrac(), 0.5 * 1.0 / 4.0);
    tree.root.getChildProgressSetTodo("b", 0); // nothing to do counts as done
    EXPECT_EQ(tree.root.getFrac(), (0.5 + 3.0) / 4.0);
    tree.root.createChild("b", 100.0); // the weight of a stage that exists stays
    EXPECT_EQ(tree.root.getFrac(), (0.5 + 3.0) / 4.0);
    tree.root.getChildProgressSetTodo("new", 4); // weight 10
    EXPECT_EQ(tree.root.getFrac(), (0.5 + 3.0) / 14.0);
}

TEST(Fraction, WeightsOfZeroGiveNotANumberAndAreHeard)
{
    Tree tree({0.0});
    Progress* const stage = tree.root.getChildProgressSetTodo("a", 2);
    EXPECT_EQ(tree.heardSteps(stage, 2), (std::vector<int>{1, 2})); // differs from every earlier value, itself included
    EXPECT_TRUE(std::isnan(tree.recorder.fractions.back()));
}

TEST(Fraction, NeverCountsPastTheEnd)
{
    Tree tree({1.0, 1.0});
    Progress* const stage = tree.root.getChildProgressSetTodo("a", 3);
    for (int i = 0; i < 10; ++i)
        stage->incProgressByOne();
    EXPECT_EQ(tree.root.getFrac(), 0.5);
    stage->incProgressBy(1000);
    EXPECT_EQ(stage->getFrac(), 1.0);
}

TEST(Step, AimsAtTwoHundredBroadcastsPerRun)
{
    Tree tree({1.0, 3.0});
    // 4 / 1 * 1000 / 200 = 20
    Progress* const a = tree.root.getChildProgressSetTodo("a", 1000);
    const std::vector<int> heard = tree.heardSteps(a, 1000);
    EXPECT_EQ(heard.size(), 50u);
    EXPECT_EQ(heard.front(), 20);
    // ceil(4 / 3 * 1000 / 200) = 7: after every 7th step and at the end
    const std::vector<int> heardB = tree.heardSteps(tree.root.getChildProgressSetTodo("b", 1000), 1000);
    EXPECT_EQ(heardB.size(), 143u);
    EXPECT_EQ(heardB.front(), 7);
    EXPECT_EQ(heardB.back(), 1000);
    EXPECT_EQ(tree.recorder.lastName, "Test");
    EXPECT_EQ(tree.recorder.fractions.back(), 1.0);
}

TEST(Step, ShortStagesOfSmallWeightSpeakBeforeTheirEnd)
{
    Tree tree({1.0, 999.0});
    Progress* const stage = tree.root.getChildProgressSetTodo("a", 100); // ceil(1000 * 0.5) = 500 > 100
    EXPECT_EQ(tree.heardSteps(stage, 100), (std::vector<int>{75, 100}));
    Progress* const single = tree.root.getChildProgressSetTodo("b", 10); // 1000 / 999 * 10 / 200 rounds up to 1
    EXPECT_EQ(tree.heardSteps(single, 10).size(), 10u);
}

TEST(Step, WithoutWeightIsATwoHundredthRaisedToOne)
{
    Tree tree({0.0, 1.0}); // without weight the fraction doesn't move: nothing new to hear but the first value
    Progress* const stage = tree.root.getChildProgressSetTodo("a", 1000);
    EXPECT_EQ(tree.heardSteps(stage, 1000), std::vector<int>{5});
    Tree small({0.0, 1.0});
    EXPECT_EQ(small.heardSteps(small.root.getChildProgressSetTodo("a", 100), 100), std::vector<int>{1});
}

TEST(Step, GroupsCountLikeSingleSteps)
{
    Tree tree({1.0, 3.0});
    Progress* const a = tree.root.getChildProgressSetTodo("a", 1000); // step 20
    a->incProgressBy(19);
    EXPECT_TRUE(tree.recorder.fractions.empty());
    a->incProgressBy(1);
    EXPECT_EQ(tree.recorder.fractions, std::vector<double>{0.02 * 1.0 / 4.0});
    a->incProgressBy(980);
    EXPECT_EQ(tree.recorder.fractions.back(), 0.25);
}

TEST(Reentry, KeepsTheFraction)
{
    Tree tree({1.0});
    Progress* stage = tree.root.getChildProgressSetTodo("a", 100);
    for (int i = 0; i < 50; ++i)
        stage->incProgressByOne();
    stage = tree.root.getChildProgressSetTodo("a", 100); // 75 of 150
    EXPECT_EQ(stage->getFrac(), 0.5);
    stage->incProgressByOne();
    EXPECT_EQ(stage->getFrac(), 76.0 / 150.0);
}

TEST(Reentry, KeepsTheStepUnlessNothingIsDone)
{
    Tree tree({1.0, 3.0});
    Progress* a = tree.root.getChildProgressSetTodo("a", 1000); // step 20
    tree.heardSteps(a, 20);
    a = tree.root.getChildProgressSetTodo("a", 100000);
    EXPECT_EQ(tree.heardSteps(a, 40), (std::vector<int>{20, 40}));

    // 1 of 1000 done, 10 more: 11 * 0.001 truncates to nothing done, and the step is new: ceil(4 / 3 * 11 / 200) = 1
    Progress* b = tree.root.getChildProgressSetTodo("b", 1000); // step 7
    b->incProgressByOne();
    b = tree.root.getChildProgressSetTodo("b", 10);
    EXPECT_EQ(b->getFrac(), 0.0);
    EXPECT_EQ(tree.heardSteps(b, 3), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(b->getFrac(), 3.0 / 11.0);
}

TEST(Reentry, TodoOfZeroBecomesOneUnderNewStages)
{
    Tree tree({1.0});
    Progress* const outer = tree.root.getChildProgressSetTodo("a", 0);
    EXPECT_EQ(outer->getFrac(), 1.0);
    outer->getChildProgressSetTodo("inner", 2)->incProgressByOne();
    EXPECT_EQ(tree.root.getFrac(), 0.5); // stages nest
}

TEST(SetDone, FinishesAllBelow)
{
    Tree tree({1.0, 1.0});
    Progress* const outer = tree.root.getChildProgressSetTodo("a", 5);
    outer->getChildProgressSetTodo("inner", 3);
    outer->setDone(false);
    EXPECT_TRUE(tree.recorder.fractions.empty());
    EXPECT_EQ(outer->getFrac(), 1.0);
    tree.root.setDone(true);
    EXPECT_EQ(tree.recorder.fractions, std::vector<double>{1.0});
    tree.root.setDone(true); // the same value again
    EXPECT_EQ(tree.recorder.fractions.size(), 1u);
}

TEST(Root, ResetKeepsTheSubscriber)
{
    Tree tree({1.0});
    tree.root.getChildProgressSetTodo("a", 1)->incProgressByOne();
    tree.root.finishRun();
    EXPECT_EQ(tree.root.getName(), "empty");
    EXPECT_EQ(tree.root.getFrac(), 0.0);
    tree.root.setSubscriber(nullptr); // ignored
    tree.root.startRun("Second");
    tree.root.createChild("x", 1.0);
    tree.root.getChildProgressSetTodo("x", 1)->incProgressByOne();
    EXPECT_EQ(tree.recorder.lastName, "Second");
    EXPECT_EQ(tree.recorder.fractions, (std::vector<double>{1.0, 1.0}));
}

TEST(Root, WithoutARunHasNoStages)
{
    Progress root("empty");
    root.incProgressByOne(); // harmless
    EXPECT_TRUE(test::hasBug("this->name!=\"empty\"", [&] { root.createChild("a", 1.0); }));
    EXPECT_TRUE(test::hasBug("this->name!=\"empty\"", [&] { root.getChildProgressSetTodo("a", 1); }));
}

TEST(Root, BelongsToTheThread)
{
    Progress* const mine = getThreadProgress();
    EXPECT_EQ(getThreadProgress(), mine);
    Recorder recorder;
    mine->setSubscriber(&recorder);
    progressForEstimation();
    Progress* theirs = nullptr;
    std::thread other(
        [&theirs]
        {
            theirs = getThreadProgress();
            progressForReco();
            theirs->setDone(true);
        });
    other.join();
    EXPECT_NE(theirs, mine);
    EXPECT_TRUE(recorder.fractions.empty());
    EXPECT_EQ(mine->getName(), "Density Estimation");
    mine->reset();
    static Recorder silent; // the recorder of this test ends here
    mine->setSubscriber(&silent);
}

TEST(Runs, StagesHaveTheirShares)
{
    Progress* const root = getThreadProgress();
    progressForEstimation();
    for (const char* stage : {"CL_eres", "CL_creb"})
        root->getChildProgressSetTodo(stage, 6)->setDone(false);
    EXPECT_EQ(root->getFrac(), 6.0 / 9.0); // all that this run ever reaches

    progressForReco();
    EXPECT_EQ(root->getName(), "Reconstruct");
    const std::vector<std::pair<const char*, double>> shares = {
        {"CL_eres", 3},          {"CL_creb", 3},       {"HL_st", 3},         {"VO_ftx", 3},  {"VO_amb", 3},
        {"TP_unif", 10},         {"TP_pps", 100},      {"TP_cbcpl", 100},    {"TP_itr", 50}, {"TP_fin", 30},
        {"RM_cpo", 10},          {"RM_kdeg", 10},      {"RM_gEfCandMT", 10}, {"efLoop", 10}, {"PREP_createRCD", 2},
        {"PREP_fillHoles", 100}, {"PREP_integFill", 2}};
    double sum = 0.0;
    for (const auto& [label, weight] : shares)
    {
        root->getChildProgressSetTodo(label, 1)->incProgressByOne();
        sum += weight;
        EXPECT_EQ(root->getFrac(), sum / 452.0) << label;
    }
    root->finishRun();
    EXPECT_EQ(root->getName(), "empty");
}

TEST(Timings, ListStagesAsTheyBegan)
{
    Tree tree({1.0, 1.0});
    Progress* const a = tree.root.getChildProgressSetTodo("a", 1);
    a->getChildProgressSetTodo("inner", 1)->setDone(false);
    a->setDone(false);
    tree.root.getChildProgressSetTodo("a", 1)->setDone(false); // the same stage again
    tree.root.getChildProgressSetTodo("b", 1);
    tree.root.finishRun();
    std::vector<std::pair<std::string, int>> seen;
    for (const StageTiming& timing : tree.root.getTimings())
    {
        seen.emplace_back(timing.label, timing.depth);
        EXPECT_GE(timing.seconds, 0.0);
        EXPECT_GT(timing.peakMemoryKB, 0);
    }
    EXPECT_EQ(seen, (std::vector<std::pair<std::string, int>>{{"Test", 0}, {"a", 1}, {"inner", 2}, {"b", 1}}));
    EXPECT_LE(tree.root.getTimings()[1].seconds, tree.root.getTimings()[0].seconds);
}
