// Which cells may go: classes of cells against the rules spelled out on coordinates, and the removal loops against
// plain versions of themselves on sets and multimaps.
#include "cells/RemoveDecider.h"
#include "cells/RemoveDeciderFast.h"

#include "base/vectorHelpers.h"
#include "helpers/capture.h"
#include "helpers/plain_cells.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <random>
#include <set>

using namespace MIRT_ZAV;

namespace
{
using Weighted = std::pair<double, RCD>;
using RCDPoints = RemoveDeciderFast::RCDPoints;

/// A rough shell of a sphere around a corner of blocks. Points stand on a coarse raster, so that weights are often
/// equal.
RCDPoints noisyShell(unsigned seed, double noise, int numPoints)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    std::map<RCD, Point3> points;
    const auto onRaster = [](double x) { return 5120.0 + std::round(8.0 * x) / 8.0; };
    for (int i = 0; i < numPoints; ++i)
    {
        const Vector3 direction(normal(random), normal(random), normal(random));
        const Vector3 v = direction * ((7.0 + noise * normal(random)) / direction.length());
        const Point3 p(onRaster(v.x()), onRaster(v.y()), onRaster(v.z()));
        points.emplace(unitCalc().getRCD(&p), p);
    }
    return {points.begin(), points.end()};
}

std::vector<RCD> cellsOf(const RCDPoints& points)
{
    std::vector<RCD> cells;
    for (const auto& [r, point] : points)
        cells.push_back(r);
    return cells;
}

unsigned indexOf(const PlainCells& cells, RCD r)
{
    return static_cast<unsigned>(getAlternativeBitmap(cells.configuration(r)));
}

/// prunePrioq step by step; the removed cells in the order of their removal.
std::vector<RCD> plainPrunePrioq(PlainCells& cells, const RCDPoints& points, const std::vector<RCD>& vRCD,
                                 bool killBorders)
{
    std::vector<RCD> removed;
    const std::map<RCD, Point3> pointOf(points.begin(), points.end());
    const std::set<RCD> known(vRCD.begin(), vRCD.end());
    const auto weigh = [&](RCD r)
    {
        const double distance = (pointOf.at(r) - unitCalc().getCenter(r)).length();
        return Weighted(static_cast<double>(cells.neigs6(r).size()) + 1.0 - distance, r);
    };
    std::set<RCD> candidates = known;
    while (!candidates.empty())
    {
        std::set<Weighted> sorted;
        for (const RCD r : candidates)
            sorted.insert(weigh(r));
        std::multimap<double, RCD> queue(sorted.begin(), sorted.end());
        candidates.clear();
        while (!queue.empty())
        {
            const RCD r = queue.begin()->second;
            queue.erase(queue.begin());
            const unsigned index = indexOf(cells, r);
            if (cells.alive.count(r) == 0 || (!killBorders && borderBit(index)) || gapBit(index))
                continue;
            cells.alive.erase(r);
            removed.push_back(r);
            for (const RCD neig : cells.neigs6(r))
                if (vRCD.size() >= points.size() || known.count(neig) != 0)
                    queue.insert(weigh(neig));
            for (const RCD neig : cells.neigs26(r))
                if (known.count(neig) != 0)
                    candidates.insert(neig);
        }
        std::erase_if(candidates, [&](RCD r) { return cells.alive.count(r) == 0; });
    }
    return removed;
}

/// pruneByDistance step by step, with the heap of the standard library.
std::vector<RCD> plainPruneByDistance(PlainCells& cells, PruningMode mode, std::vector<Weighted> list)
{
    std::sort(list.begin(), list.end(),
              [](auto& a, auto& b) { return a.first != b.first ? a.first > b.first : a.second < b.second; });
    const auto isNearer = [](const Weighted& a, const Weighted& b) { return a.first < b.first; };
    std::vector<Weighted> heap;
    const auto push = [&](const Weighted& entry)
    {
        heap.push_back(entry);
        std::push_heap(heap.begin(), heap.end(), isNearer);
    };
    std::for_each(list.begin(), list.end(), push);
    std::vector<RCD> killed;
    std::map<RCD, double> aside;
    while (!heap.empty())
    {
        std::pop_heap(heap.begin(), heap.end(), isNearer);
        const auto [distance, r] = heap.back();
        heap.pop_back();
        if (cells.alive.count(r) == 0)
            continue;
        const unsigned index = indexOf(cells, r);
        const bool bInside = cells.neigs6(r).size() == 6;
        if (mode == PM_PRUNE_BORDERS && !bInside && !borderBit(index))
            continue; // a gap cell with an empty face is given up
        if (bInside || (mode == PM_PRUNE_AREA && borderBit(index)) || gapBit(index))
        {
            aside.emplace(r, distance);
            continue;
        }
        cells.alive.erase(r);
        killed.push_back(r);
        for (const RCD neig : cells.neigs26(r))
            if (aside.count(neig) != 0)
                push({aside[neig], neig});
    }
    return killed;
}

template <class T>
T sortedCopy(T v)
{
    std::sort(v.begin(), v.end());
    return v;
}
} // namespace

TEST(Tables, HaveTheKnownSums)
{
    unsigned numGap = 0, numBorder = 0;
    std::uint64_t hash = 0; // of both tables, bit by bit
    for (unsigned index = 0; index < 1u << 26; ++index)
    {
        const bool bGap = gapBit(index), bBorder = borderBit(index);
        numGap += bGap;
        numBorder += bBorder;
        hash = (hash ^ unsigned(2 * bGap + bBorder)) * 0x100000001b3;
    }
    EXPECT_EQ(numGap, 36724736u);
    EXPECT_EQ(numBorder, 15510774u);
    EXPECT_EQ(hash, 16168850286844077946u); // of tables that agreed with floods over every pattern
}

TEST(PrunePrioq, MatchesThePlainLoop)
{
    for (const unsigned seed : {1u, 2u, 3u})
        for (const bool bKillBorders : {false, true})
            for (const bool bAll : {false, true})
            {
                const RCDPoints points = noisyShell(seed, 0.8, 3000);
                std::vector<RCD> cells = cellsOf(points), some = cells;
                if (!bAll) // the others stay, and are no reason to weigh anything again
                    std::erase_if(some, [](RCD r) { return rcd::getZ(r) % 5 == 0; });
                PlainCells plain{{cells.begin(), cells.end()}};
                const std::vector<RCD> expected = sortedCopy(plainPrunePrioq(plain, points, some, bKillBorders));
                for (const int numCPU : {1, 2, 3, 7})
                {
                    const test::CpuCount cpus(numCPU);
                    RemoveDeciderFast decider(cells, &unitCalc());
                    std::vector<RCD> kept, removed, alive;
                    EXPECT_EQ(decider.prunePrioq(points, some, kept, removed, bKillBorders, false), expected.size());
                    EXPECT_EQ(removed, expected) << numCPU;
                    decider.getAliveRCD(alive);
                    EXPECT_EQ(alive, std::vector<RCD>(plain.alive.begin(), plain.alive.end()));
                    kept.insert(kept.end(), removed.begin(), removed.end());
                    EXPECT_EQ(sortedCopy(kept), some);
                }
            }
}

TEST(PruneByDistance, MatchesThePlainLoop)
{
    for (const unsigned seed : {6u, 7u})
    {
        std::vector<RCD> cells = cellsOf(noisyShell(seed, 1.2, 6000));
        std::vector<Weighted> list;
        std::mt19937 random(seed);
        for (const RCD r : cells)
            if (random() % 5 != 0) // the rest is protected
                list.emplace_back(static_cast<double>(random() % 6), r);
        list.insert(list.end(), list.begin(), list.begin() + 50); // queued twice
        std::shuffle(list.begin(), list.end(), random);

        PlainCells plain{{cells.begin(), cells.end()}};
        std::vector<std::vector<RCD>> expected;
        for (const PruningMode mode : {PM_PRUNE_BORDERS, PM_PRUNE_AREA})
            expected.push_back(plainPruneByDistance(plain, mode, list));
        ASSERT_FALSE(expected[0].empty() || expected[1].empty());

        for (const int numCPU : {1, 2, 3, 7})
        {
            const test::CpuCount cpus(numCPU);
            RemoveDeciderFast decider(cells, &unitCalc());
            std::vector<RCD> kept = {1}, killed = {1};
            std::vector<Weighted> dist = list;
            EXPECT_EQ(decider.pruneByDistance(PM_PRUNE_BORDERS, dist, kept, killed), expected[0].size()) << numCPU;
            EXPECT_EQ(killed, sortedCopy(expected[0]));
            EXPECT_TRUE(std::is_sorted(dist.begin(), dist.end(), [](auto& a, auto& b) { return a.first > b.first; }));

            // The second call names the cells that the first one killed, and doesn't count them.
            EXPECT_EQ(decider.pruneByDistance(PM_PRUNE_AREA, dist, kept, killed), expected[1].size());
            EXPECT_EQ(killed.size(), expected[0].size() + expected[1].size());
            EXPECT_EQ(kept.size() + killed.size(), list.size() - 50);
        }
    }
}

TEST(SmallBorderPieces, GoUpToALimitAndUnlessTheBorderSpreads)
{
    // Strips one cell wide are border all along; without the rim of the sheet, its next ring would be rim.
    const std::vector<RCD> strip = box(at(100, 100, 100), at(100, 100, 139));
    std::vector<RCD> cells = strip, kept, removed;
    for (const auto& more : {box(at(10, 100, 100), at(10, 100, 140)), box(at(262, 62, 62), at(266, 66, 62))})
        cells.insert(cells.end(), more.begin(), more.end());
    EXPECT_EQ(RemoveDeciderFast(cells, &unitCalc()).prePruneSmallBorderCCs(removed), strip.size());
    EXPECT_EQ(sortedCopy(removed), strip);
}

TEST(ListDecider, LooksAtTheBlockAroundACell)
{
    const CCD centre = unitCalc().rcd2ccd(at(100, 200, 300));
    const auto getBlock = [&](const std::set<int>& missing)
    {
        std::array<CCD, 27> block;
        unitCalc().completeArray27(centre, block.data());
        std::vector<CCD> cells;
        for (int p = 26; p >= 0; --p)
            if (missing.count(p) == 0)
                cells.push_back(block[static_cast<size_t>(p)]);
        return cells;
    };
    const std::pair<std::set<int>, bool> cases[] = {
        {{22, 14}, false}, // too few visible
        {{22, 14, 23, 16, 17, 25}, true},
        {{22, 14, 16, 17, 25}, false}, // 23 hangs between two empty faces
        // Two opposite faces: 5 makes the third visible one. The last case has one of the other four empty, too.
        {{12, 14, 5}, false},
        {{10, 16, 5}, false},
        {{12, 14, 10, 9, 11}, true}};
    for (const auto& [missing, bRemovable] : cases)
    {
        std::vector<CCD> cells = getBlock(missing);
        EXPECT_EQ(RemoveDecider(cells, &unitCalc()).isRemovable(centre), bRemovable) << *missing.begin();
    }
}
