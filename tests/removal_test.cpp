// Classes of cells against the rules spelled out on coordinates.
#include "RemoveDecider.h"
#include "RemoveDeciderFast.h"

#include "capture.h"
#include "plain_cells.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

using namespace MIRT_ZAV;
using test::hasBug;

TEST(Tables, HaveTheKnownSums)
{
    unsigned numGap = 0, numBorder = 0, numNeither = 0, lowestGap = ~0u;
    std::uint64_t hash = 0; // of both tables, bit by bit
    for (unsigned index = 0; index < 1u << 26; ++index)
    {
        const bool bGap = gapBit(index), bBorder = borderBit(index);
        numGap += bGap;
        numBorder += bBorder;
        numNeither += !bGap && !bBorder;
        if (bGap)
            lowestGap = std::min(lowestGap, index);
        hash = (hash ^ unsigned(2 * bGap + bBorder)) * 0x100000001b3;
    }
    EXPECT_EQ(numGap, 36724736u);
    EXPECT_EQ(numBorder, 15510774u);
    EXPECT_EQ(numNeither, 14873354u); // so that none is both
    EXPECT_EQ(lowestGap, 0xaau);
    EXPECT_EQ(hash, 16168850286844077946u); // of tables that agreed with floods over every pattern
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
    EXPECT_TRUE(decider.isDoomed(r) && decider.isBorder(r));
    EXPECT_EQ(decider.getBitmap_altVersion(r), 0u);
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
    EXPECT_TRUE(hasBug("vNeigs.empty()", [&] { decider.getNeigs(r, neigs); }));

    decider.unkill(r);
    EXPECT_EQ(decider.getNumKilled(), 1);
    EXPECT_TRUE(decider.isAlive(r) && decider.isSet(r));
    test::outputOf([&] { EXPECT_FALSE(decider.isSet(at(1000, 0, 0))); });
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
    { EXPECT_TRUE(hasBug(condition, [&] { decider.getWeight(points, r); })); };
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
