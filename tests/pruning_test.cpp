// The removal loops against plain versions of themselves on sets and multimaps.
#include "RemoveDeciderFast.h"

#include "capture.h"
#include "plain_cells.h"
#include "vectorHelpers.h"

#include <gtest/gtest.h>

#include <algorithm>
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
RCDPoints noisyShell(unsigned seed, double radius, double noise, int numPoints)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    RCDPoints points;
    for (int i = 0; i < numPoints; ++i)
    {
        const Vector3 direction(normal(random), normal(random), normal(random));
        const Vector3 v = direction * ((radius + noise * normal(random)) / direction.length());
        const auto raster = [](double x) { return 5120.0 + std::round(8.0 * x) / 8.0; };
        const Point3 p(raster(v.x()), raster(v.y()), raster(v.z()));
        points.emplace_back(unitCalc().getRCD(&p), p);
    }
    std::sort(points.begin(), points.end());
    points.erase(std::unique(points.begin(), points.end(), [](auto& a, auto& b) { return a.first == b.first; }),
                 points.end());
    return points;
}

std::vector<RCD> cellsOf(const RCDPoints& points)
{
    std::vector<RCD> cells;
    for (const auto& entry : points)
        cells.push_back(entry.first);
    return cells;
}

unsigned indexOf(const PlainCells& cells, RCD r)
{
    return static_cast<unsigned>(getAlternativeBitmap(cells.configuration(r)));
}

double weightOf(const PlainCells& cells, const std::map<RCD, Point3>& points, RCD r)
{
    const double distance = (points.at(r) - unitCalc().getCenter(r)).length();
    return static_cast<double>(cells.neigs6(r).size()) + 1.0 - distance;
}

/// prunePrioq step by step; the removed cells in the order of their removal.
std::vector<RCD> plainPrunePrioq(PlainCells& cells, const RCDPoints& points, const std::vector<RCD>& vRCD,
                                 bool killBorders)
{
    std::vector<RCD> removed;
    const std::map<RCD, Point3> pointOf(points.begin(), points.end());
    const std::set<RCD> known(vRCD.begin(), vRCD.end());
    std::set<RCD> candidates = known;
    while (!candidates.empty())
    {
        std::set<Weighted> sorted;
        for (const RCD r : candidates)
            sorted.emplace(weightOf(cells, pointOf, r), r);
        std::multimap<double, RCD> queue(sorted.begin(), sorted.end());
        const size_t numBefore = removed.size();
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
                    queue.emplace(weightOf(cells, pointOf, neig), neig);
            for (const RCD neig : cells.neigs26(r))
                if (known.count(neig) != 0)
                    candidates.insert(neig);
        }
        for (size_t i = numBefore; i < removed.size(); ++i)
            candidates.erase(removed[i]);
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
            continue;
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

std::vector<RCD> sortedCopy(std::vector<RCD> v)
{
    std::sort(v.begin(), v.end());
    return v;
}

void expectLikePlain(const RCDPoints& points, std::vector<RCD> vRCD, bool killBorders)
{
    std::vector<RCD> cells = cellsOf(points);
    PlainCells plain{{cells.begin(), cells.end()}};
    const std::vector<RCD> expected = sortedCopy(plainPrunePrioq(plain, points, vRCD, killBorders));
    for (const int numCPU : {1, 2, 3, 7})
    {
        const test::CpuCount cpus(numCPU);
        RemoveDeciderFast decider(cells, &unitCalc());
        std::vector<RCD> kept, removed, alive;
        EXPECT_EQ(decider.prunePrioq(points, vRCD, kept, removed, killBorders, false), expected.size()) << numCPU;
        EXPECT_EQ(removed, expected);
        removeVec(removed, kept);
        EXPECT_EQ(removed, expected);
        EXPECT_EQ(kept.size(), vRCD.size() - expected.size());
        decider.getAliveRCD(alive);
        EXPECT_EQ(alive, std::vector<RCD>(plain.alive.begin(), plain.alive.end()));
    }
}
} // namespace

TEST(PrunePrioq, MatchesThePlainLoop)
{
    for (const unsigned seed : {1u, 2u, 3u})
    {
        const RCDPoints points = noisyShell(seed, 7.0, 0.8, 3000);
        expectLikePlain(points, cellsOf(points), false);
        expectLikePlain(points, cellsOf(points), true);
        // A part of the cells only: the others stay, and are no reason to weigh anything again.
        std::vector<RCD> some = cellsOf(points);
        some.erase(std::remove_if(some.begin(), some.end(), [](RCD r) { return rcd::getZ(r) % 5 == 0; }), some.end());
        expectLikePlain(points, some, false);
    }
}

TEST(PruneByDistance, MatchesThePlainLoop)
{
    for (const unsigned seed : {6u, 7u})
    {
        std::vector<RCD> cells = cellsOf(noisyShell(seed, 7.0, 1.2, 6000));
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
            EXPECT_EQ(dist.size(), list.size());

            // The second call names the cells that the first one killed, and doesn't count them.
            EXPECT_EQ(decider.pruneByDistance(PM_PRUNE_AREA, dist, kept, killed), expected[1].size());
            EXPECT_EQ(killed.size(), expected[0].size() + expected[1].size());
            EXPECT_EQ(kept.size() + killed.size(), list.size() - 50);
        }
    }
}

TEST(PruneByDistance, GivesUpAGapCellBesideAnEmptyFace)
{
    // The middle of a sheet stays, though its neighbours go and it becomes a rim.
    std::vector<RCD> sheet = box(at(62, 62, 62), at(64, 64, 62)), kept, killed;
    std::vector<Weighted> list;
    for (const RCD r : sheet)
        list.emplace_back(r == at(63, 63, 62) ? 2.0 : 1.0, r);
    RemoveDeciderFast decider(sheet, &unitCalc());
    EXPECT_EQ(decider.pruneByDistance(PM_PRUNE_BORDERS, list, kept, killed), 8u);
    EXPECT_EQ(kept, std::vector<RCD>{at(63, 63, 62)});
    EXPECT_TRUE(decider.isBorder(kept[0]));
}

TEST(SmallBorderPieces, GoUpToALimitAndUnlessTheBorderSpreads)
{
    // Strips one cell wide are border all along; without the rim of the sheet, its next ring would be rim.
    const std::vector<RCD> strip = box(at(100, 100, 100), at(100, 100, 139));
    std::vector<RCD> cells = strip, kept, removed;
    for (const auto& more : {box(at(10, 100, 100), at(10, 100, 140)), box(at(262, 62, 62), at(266, 66, 62))})
        cells.insert(cells.end(), more.begin(), more.end());
    RemoveDeciderFast decider(cells, &unitCalc());
    EXPECT_EQ(decider.prePruneSmallBorderCCs(removed), strip.size());
    EXPECT_EQ(sortedCopy(removed), strip);

    // In prunePrioq they count as removed.
    RCDPoints points;
    for (const RCD r : strip)
        points.emplace_back(r, unitCalc().getCenter(r));
    cells = strip;
    RemoveDeciderFast other(cells, &unitCalc());
    removed.clear();
    EXPECT_EQ(other.prunePrioq(points, cells, kept, removed, false, true), 40u);
    EXPECT_EQ(removed, cells);
    EXPECT_TRUE(kept.empty());
}
