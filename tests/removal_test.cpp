// Classes of cells against the rules spelled out on coordinates.
#include "RemoveDecider.h"
#include "RemoveDeciderFast.h"

#include "plain_cells.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

using namespace MIRT_ZAV;

namespace
{
/// The rules as written: floods over positions of an explicit 3 x 3 x 3 block.
struct Textbook
{
    std::array<bool, 27> present{};

    explicit Textbook(unsigned index)
    {
        for (unsigned p = 0; p < 27; ++p)
            present[p] = p == 13 || (index >> (p < 13 ? p : p - 1) & 1) != 0;
    }

    bool isGap() const
    {
        constexpr std::array<int, 6> order = {12, 14, 4, 22, 10, 16};
        constexpr int edgeBetween[6][6] = {{-1, -1, 3, 21, 9, 15},   {-1, -1, 5, 23, 11, 17}, {3, 5, -1, -1, 1, 7},
                                           {21, 23, -1, -1, 19, 25}, {9, 11, 1, 19, -1, -1},  {15, 17, 7, 25, -1, -1}};
        std::vector<size_t> listed;
        for (size_t f = 0; f < 6; ++f)
            if (isEmpty(order[f]))
                listed.push_back(f);
        if (listed.empty())
            return true;
        std::vector<size_t> reached = {listed[0]};
        for (size_t i = 0; i < reached.size(); ++i)
            for (const size_t f : listed)
            {
                const int edge = edgeBetween[reached[i]][f];
                if (edge >= 0 && isEmpty(edge) && std::find(reached.begin(), reached.end(), f) == reached.end())
                    reached.push_back(f);
            }
        return reached.size() != listed.size();
    }

    bool isBorder() const
    {
        if (isGap())
            return false;
        std::array<bool, 27> reached{};
        std::vector<int> todo;
        for (int p = 0; p < 27; ++p)
            if (numAxes(p) == 1 && isEmpty(p))
                todo.push_back(p);
        while (!todo.empty())
        {
            const int p = todo.back();
            todo.pop_back();
            if (reached[static_cast<size_t>(p)])
                continue;
            reached[static_cast<size_t>(p)] = true;
            for (int q = 0; q < 27; ++q)
                if (isEmpty(q) && distance(p, q) == 1)
                    todo.push_back(q);
        }
        for (int p = 0; p < 27; ++p)
            if (numAxes(p) == 2 && isEmpty(p) && !reached[static_cast<size_t>(p)])
                return false;
        return true;
    }

    bool isEmpty(int p) const { return !present[static_cast<size_t>(p)]; }
    static int distance(int p, int q)
    {
        return std::abs(p % 3 - q % 3) + std::abs(p / 3 % 3 - q / 3 % 3) + std::abs(p / 9 - q / 9);
    }
    static int numAxes(int p) { return distance(p, 13); }
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool bSlow = true;
#else
constexpr bool bSlow = false;
#endif
} // namespace

TEST(Tables, MatchTheRules)
{
    // All patterns of faces and edges, each with corners drawn at random, all present and all empty.
    constexpr unsigned corners = 1u << 0 | 1u << 2 | 1u << 6 | 1u << 8 | 1u << 17 | 1u << 19 | 1u << 23 | 1u << 25;
    constexpr unsigned facesAndEdges = 0x3ffffff & ~corners;
    std::mt19937 random(3);
    const unsigned stride = bSlow ? 37 : 1;
    unsigned numTested = 0;
    unsigned index = 0;
    do
    {
        const unsigned drawn = static_cast<unsigned>(random()) & corners;
        for (const unsigned full : {index, index | corners, index | drawn})
        {
            const Textbook textbook(full);
            ASSERT_EQ(gapBit(full), textbook.isGap()) << std::hex << full;
            ASSERT_EQ(borderBit(full), textbook.isBorder()) << std::hex << full;
        }
        for (unsigned i = 0; i < stride; ++i, ++numTested)
            index = (index - facesAndEdges) & facesAndEdges; // the next subset
    } while (numTested < 1u << 18);
}

TEST(Tables, HaveTheKnownSums)
{
    unsigned numGap = 0, numBorder = 0, numNeither = 0, lowestGap = ~0u;
    for (unsigned index = 0; index < 1u << 26; ++index)
    {
        const bool bGap = gapBit(index), bBorder = borderBit(index);
        numGap += bGap;
        numBorder += bBorder;
        numNeither += !bGap && !bBorder;
        if (bGap)
            lowestGap = std::min(lowestGap, index);
    }
    EXPECT_EQ(numGap, 36724736u);
    EXPECT_EQ(numBorder, 15510774u);
    EXPECT_EQ(numNeither, 14873354u); // so that none is both
    EXPECT_EQ(lowestGap, 0xaau);
}

TEST(Decider, ClassesOfPlainShapes)
{
    // A sheet of one layer and a solid block, across block sides, and a lone cell.
    std::vector<RCD> cells = box(at(60, 60, 10), at(68, 68, 10));
    const std::vector<RCD> solid = box(at(60, 60, 100), at(66, 66, 106));
    cells.insert(cells.end(), solid.begin(), solid.end());
    cells.push_back(at(200, 200, 200));
    std::sort(cells.begin(), cells.end());
    RemoveDeciderFast decider(cells, &unitCalc());
    const auto kindOf = [&](RCD r) { return decider.isBorder(r) ? 'b' : decider.removingCreatesGap(r) ? 'g' : '-'; };

    EXPECT_EQ(kindOf(at(200, 200, 200)), 'b');
    EXPECT_EQ(kindOf(at(64, 64, 10)), 'g');  // sheet
    EXPECT_EQ(kindOf(at(60, 64, 10)), 'b');  // its rim
    EXPECT_EQ(kindOf(at(63, 63, 103)), 'g'); // core
    EXPECT_EQ(kindOf(at(63, 63, 106)), 'b'); // top
    decider.kill(at(63, 64, 10));
    EXPECT_EQ(kindOf(at(64, 64, 10)), 'b');
    EXPECT_EQ(kindOf(at(63, 64, 10)), 'b'); // dead
    EXPECT_EQ(decider.getBitmap_altVersion(at(63, 64, 10)), 0u);
}

TEST(Decider, KillsAndLists)
{
    std::vector<RCD> cells = box(at(63, 63, 63), at(66, 64, 64));
    RemoveDeciderFast decider(cells, &unitCalc());
    std::vector<RCD> area, border, alive, neigs;
    decider.detectAreaAndBorder(area, border);
    EXPECT_EQ(border, cells); // in order while nothing is killed
    EXPECT_TRUE(area.empty());

    const RCD r = at(64, 64, 64);
    decider.kill(r);
    decider.kill(r);
    EXPECT_EQ(decider.getNumKilled(), 2);
    EXPECT_TRUE(decider.isDoomed(r));
    decider.getAliveRCD(alive);
    std::vector<RCD> expected = cells;
    expected.erase(std::find(expected.begin(), expected.end(), r));
    EXPECT_EQ(alive, expected);
    area.clear();
    border.clear();
    decider.detectAreaAndBorder(area, border);
    EXPECT_EQ(border.size() + area.size(), expected.size());
    EXPECT_NE(border, expected); // by blocks now

    decider.getNeigs(r, neigs);
    EXPECT_EQ(neigs.size(), 11u);
    testing::internal::CaptureStdout();
    EXPECT_THROW(decider.getNeigs(r, neigs), ZavBugException);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("[ vNeigs.empty() failed ]"), std::string::npos);

    decider.unkill(r);
    EXPECT_EQ(decider.getNumKilled(), 1);
    EXPECT_TRUE(decider.isAlive(r) && decider.isSet(r));
    testing::internal::CaptureStdout();
    EXPECT_FALSE(decider.isSet(at(1000, 0, 0)));
    EXPECT_NE(testing::internal::GetCapturedStdout().find("No matrix"), std::string::npos);
}

TEST(Decider, Weights)
{
    Calc calc(-8.0, 0.0, 0.0, 1048576.0, 1048576.0, 1048576.0, 21); // cells of side 0.5
    std::vector<RCD> cells = {at(10, 10, 10), at(10, 10, 11), at(20, 20, 20)};
    RemoveDeciderFast decider(cells, &calc);
    const RemoveDeciderFast::RCDPoints points = {
        {cells[0], {-2.75, 5.25, 5.25}}, {cells[1], {-2.75, 5.25 + 0.125, 5.75}}, {cells[2], {2.25, 10.25, 10.0}}};
    EXPECT_EQ(decider.getWeight(points, cells[0]), 1.5);
    EXPECT_EQ(decider.getWeight(points, cells[1]), 1.25); // the greater distance goes first
    EXPECT_EQ(decider.getWeight(points, cells[2]), 0.0);

    const auto expectBug = [&](RCD r, const std::string& condition)
    {
        testing::internal::CaptureStdout();
        EXPECT_THROW(decider.getWeight(points, r), ZavBugException);
        EXPECT_NE(testing::internal::GetCapturedStdout().find("[ " + condition + " failed ]"), std::string::npos);
    };
    expectBug(at(20, 20, 21), "q_it!=vRCDPoint.end() && q_it->first==rcd");
    std::vector<std::pair<RCD, int>> cards = {{cells[0], 7}, {cells[2], -3}};
    decider.set(&cards);
    EXPECT_EQ(decider.getWeight(points, cells[2]), -3.0);
    expectBug(cells[1], "q_it->first==rcd");
    expectBug(at(30, 0, 0), "q_it!=pvCard2RCD_srt->end()");
}

namespace
{
/// A list-based decider on the 3 x 3 x 3 block around one cell, some positions left out.
struct ListCase
{
    CCD centre = unitCalc().rcd2ccd(at(100, 200, 300));
    std::vector<CCD> cells;

    explicit ListCase(std::initializer_list<int> missing)
    {
        std::array<CCD, 27> block;
        unitCalc().completeArray27(centre, block.data());
        for (int p = 26; p >= 0; --p)
            if (std::find(missing.begin(), missing.end(), p) == missing.end())
                cells.push_back(block[static_cast<size_t>(p)]);
    }
    bool isRemovable() { return RemoveDecider(cells, &unitCalc()).isRemovable(centre); }
};
} // namespace

TEST(ListDecider, CountsAndDooms)
{
    ListCase block({22, 5});
    RemoveDecider decider(block.cells, &unitCalc());
    EXPECT_TRUE(std::is_sorted(block.cells.begin(), block.cells.end()));
    EXPECT_EQ(decider.setNewCCD(block.centre), 25u);
    EXPECT_EQ(decider.getNumDirectVisible(), 2); // the edge at position 5 counts
    decider.registerDoomed(block.centre);
    EXPECT_TRUE(decider.isDoomed(block.centre));
    EXPECT_EQ(decider.setNewCCD(block.centre), 24u);

    ListCase lower({4, 12});
    RemoveDecider lowerDecider(lower.cells, &unitCalc());
    lowerDecider.setNewCCD(lower.centre);
    EXPECT_EQ(lowerDecider.getNumDirectVisible(), 1); // the face at position 4 doesn't

    std::vector<CCD> empty;
    EXPECT_EQ(RemoveDecider(empty, &unitCalc()).setNewCCD(block.centre), 1u); // the cell itself
}

TEST(ListDecider, IsRemovable)
{
    EXPECT_FALSE(ListCase({}).isRemovable());
    EXPECT_FALSE(ListCase({22, 14}).isRemovable()); // too few visible
    EXPECT_TRUE(ListCase({22, 14, 23, 16, 17, 25}).isRemovable());
    EXPECT_FALSE(ListCase({22, 14, 16, 17, 25}).isRemovable()); // 23 hangs between two empty faces
    // Two opposite faces: 5 makes the third visible one. The last case has one of the other four empty, too.
    EXPECT_FALSE(ListCase({12, 14, 5}).isRemovable());
    EXPECT_FALSE(ListCase({10, 16, 5}).isRemovable());
    EXPECT_TRUE(ListCase({12, 14, 10, 9, 11}).isRemovable());
}
