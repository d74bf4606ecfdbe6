#include "base/Progress.h"
#include "helpers/capture.h"

#include <algorithm>
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

TEST(Step, AimsAtTwoHundredBroadcastsPerRun)
{
    // The weights of the stages from "a" on; the steps of "a", the first of them that is heard, and how many are heard.
    const struct
    {
        std::vector<double> weights;
        int todo, first;
        size_t number;
    } cases[] = {
        {{1.0, 3.0}, 1000, 20, 50}, // 4 / 1 * 1000 / 200
        {{3.0, 1.0}, 1000, 7, 143}, // ceil(4 / 3 * 1000 / 200): after every 7th step and at the end
        {{1.0, 999.0}, 100, 75, 2}, // 500 would be too late
        {{999.0, 1.0}, 10, 1, 10},  // rounded up to 1
        {{0.0, 1.0}, 1000, 5, 1},   // a two hundredth; without weight the fraction stays, and the same isn't said twice
        {{0.0, 1.0}, 100, 1, 1},    // raised to 1
        {{0.0}, 2, 1, 2},           // 0 / 0 isn't a number, which differs even from itself: always news
    };
    for (const auto& [weights, todo, first, number] : cases)
    {
        Tree tree(weights);
        const std::vector<int> heard = tree.heardSteps(tree.root.getChildProgressSetTodo("a", todo), todo);
        ASSERT_EQ(heard.size(), number) << todo;
        EXPECT_EQ(heard.front(), first);
        EXPECT_TRUE(number == 1 || heard.back() == todo);
        EXPECT_EQ(tree.recorder.lastName, "Test");

        // Groups count like single steps.
        Tree grouped(weights);
        Progress* const stage = grouped.root.getChildProgressSetTodo("a", todo);
        stage->incProgressBy(first - 1);
        EXPECT_TRUE(grouped.recorder.fractions.empty());
        stage->incProgressBy(1);
        EXPECT_EQ(grouped.recorder.fractions.size(), 1u);
        stage->incProgressBy(1000000); // never counts past the end
        EXPECT_EQ(std::isnan(grouped.root.getFrac()), weights.size() == 1);
        EXPECT_EQ(stage->getFrac(), 1.0);
    }
}

TEST(Reentry, KeepsTheFractionAndTheStepUnlessNothingIsDone)
{
    Tree tree({1.0, 3.0});
    Progress* a = tree.root.getChildProgressSetTodo("a", 1000); // step 20
    tree.heardSteps(a, 500);
    a = tree.root.getChildProgressSetTodo("a", 1000); // 750 of 1500
    EXPECT_EQ(a->getFrac(), 0.5);
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

TEST(Root, IsEmptyAfterARunThatFailed)
{
    Tree tree({1.0});
    tree.root.getChildProgressSetTodo("a", 2)->incProgressByOne();
    tree.root.abandonRun();
    EXPECT_EQ(tree.root.getName(), "empty");
    EXPECT_EQ(tree.recorder.fractions, std::vector<double>{0.5}); // no 1
    EXPECT_EQ(tree.root.getTimings().size(), 2u);
}

TEST(Visits, ShareAStageEqually)
{
    Tree tree({});
    tree.root.createChild("a", 1.0, 3);
    const auto visit = [&tree](int todo, int numSteps)
    {
        Progress* const stage = tree.root.getChildProgressSetTodo("a", std::uint64_t(todo));
        for (int i = 0; i < numSteps; ++i)
            stage->incProgressByOne();
        stage->endVisit();
        return stage->getFrac();
    };
    EXPECT_DOUBLE_EQ(visit(1000, 1000), 1.0 / 3.0);
    EXPECT_NEAR(visit(10, 3), 2.0 / 3.0, 0.05); // steps that didn't come count at the end
    EXPECT_EQ(visit(5000, 0), 1.0);
    EXPECT_EQ(visit(70, 70), 1.0); // one more than expected has nothing left to fill
    EXPECT_TRUE(std::is_sorted(tree.recorder.fractions.begin(), tree.recorder.fractions.end()));
}

TEST(Evenly, ManyStepsAtOnceAreHeardInSmallOnes)
{
    Tree tree({1.0, 3.0});
    Progress* const stage = tree.root.getChildProgressSetTodo("a", 1000);
    stage->incProgressEvenly(700);
    EXPECT_EQ(tree.recorder.fractions.size(), 35u); // as one by one
    stage->incProgressEvenly(1000000);
    EXPECT_EQ(tree.recorder.fractions.size(), 50u);
    EXPECT_EQ(stage->getFrac(), 1.0);
}

TEST(Part, SpreadsItsStepsOverItems)
{
    for (const std::uint64_t numItems : {1, 3, 100, 12345})
        for (const std::uint64_t numSteps : {0, 1, 80, 500})
        {
            Tree tree({1.0});
            Progress* const stage = tree.root.getChildProgressSetTodo("a", 1000);
            ProgressPart part(stage, numSteps, numItems);
            for (std::uint64_t i = 1; i <= numItems; ++i)
            {
                part.count();
                const double expected = double(numSteps) * double(i) / double(numItems);
                ASSERT_NEAR(double(stage->done), expected, 1.0 + double(numSteps) / 100.0) << numItems << ' ' << i;
                ASSERT_LE(double(stage->done), expected + 1e-9);
            }
            EXPECT_EQ(stage->done, numSteps);
            part.reach(5);
            part.reach(10 * numItems);
            part.finish();
            EXPECT_EQ(stage->done, numSteps);

            ProgressPart rest(stage, 100, numItems);
            rest.finish();
            EXPECT_EQ(stage->done, numSteps + 100);
        }
    ProgressPart nobody(nullptr, 10, 10);
    for (int i = 0; i < 20; ++i)
        nobody.count();
    nobody.finish();
}
