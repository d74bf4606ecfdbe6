// Hole control on small shells of cells: which gaps are closed and which stay open.

#include "base/Progress.h"
#include "cells/Prepare.h"
#include "geometry/freeFunctions.h"
#include "lattice/cellSets.h"
#include "refined/RMesh.h"
#include "zav/Mesh.h"
#include "zav/zav_api.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <utility>
#include <vector>

using namespace MIRT_ZAV;

namespace MIRT_ZAV
{
struct PrepareTestAccess
{
    static std::vector<std::pair<double, RCD>> getDist2RCD(Prepare& prepare, int size)
    {
        std::vector<std::pair<double, RCD>> distances;
        Prepare::MarchZone zone = prepare.rcdmch_createZone(size);
        prepare.rcdmch_getDist2RCD(zone, distances);
        return distances;
    }
};
} // namespace MIRT_ZAV

namespace
{
/// Unit cells with a point in or near the middle of each, prepared with hole control up to a size.
class Prepared
{
public:
    std::set<RCD> input;
    std::set<RCD> result; // the input's cells that are left, and the fill cells
    std::set<RCD> fill;

    Prepared(const std::set<RCD>& cells, int holeControlLimit, double jitter = 0.0) : input(cells)
    {
        Calc calc(0.0, 0.0, 0.0, 2048.0, 2048.0, 2048.0, 11);
        std::vector<Point3> points;
        std::mt19937 random(1);
        std::uniform_real_distribution<double> offset(-0.4, 0.4);
        for (const RCD r : cells)
            points.push_back(calc.getCenter(r) + Vector3(offset(random), offset(random), offset(random)) * jitter);
        getThreadProgress()->startRun("Test");
        Prepare prepare(points, holeControlLimit, &calc);
        std::vector<std::pair<CCD, Point3>> cellPoints;
        std::vector<CCD> fillCells;
        prepare.run(cellPoints, fillCells);
        getThreadProgress()->reset();
        for (const CCD c : fillCells)
            fill.insert(calc.ccd2rcd(c));
        for (const auto& [c, point] : cellPoints)
        {
            const RCD r = calc.ccd2rcd(c);
            result.insert(r);
            EXPECT_TRUE(fill.count(r) == 0 || point == calc.getCenter(r));
        }
        EXPECT_EQ(result.size(), cellPoints.size()) << "one record per cell";
        for (const RCD r : fill)
            EXPECT_TRUE(result.count(r) == 1 && input.count(r) == 0);
    }
};

RCD cell(int x, int y, int z)
{
    return rcd::fromXYZ(u64(1000 + x), u64(1000 + y), u64(1000 + z));
}

/// A flat sheet across the x or the z axis with cells left out.
template <class Predicate>
std::set<RCD> getSheet(int side, const Predicate& isLeftOut, int normalAxis = 2)
{
    std::set<RCD> cells;
    for (int i = 0; i < side; ++i)
        for (int j = 0; j < side; ++j)
            if (!isLeftOut(i, j))
                cells.insert(normalAxis == 0 ? cell(0, i, j) : cell(i, j, 0));
    return cells;
}

/// Points on a sphere of 18 units around the origin, with an opening at the top.
std::vector<Point3> getSphere(size_t n, double opening)
{
    constexpr double radius = 18.0;
    const double golden = M_PI * (3.0 - std::sqrt(5.0));
    std::vector<Point3> points;
    for (size_t i = 0; i < n; ++i)
    {
        const double z = 1.0 - 2.0 * (double(i) + 0.5) / double(n), r = std::sqrt(1.0 - z * z),
                     phi = golden * double(i);
        if (z <= 0.0 || radius * r > 0.5 * opening)
            points.emplace_back(radius * r * std::cos(phi), radius * r * std::sin(phi), radius * z);
    }
    return points;
}

size_t countEdges(const MeshPtr& mesh, int degree)
{
    std::vector<REdge*> edges;
    mesh->getRMesh()->getDegN(degree, edges);
    return edges.size();
}

} // namespace

TEST(HoleControl, HolesAndStraightGapsAreClosedExactlyUpToTwiceTheSize)
{
    for (const bool bGap : {false, true})
        for (const int size : {1, 2, 3, 5})
            for (const int side : {1, 2, 2 * size - 1, 2 * size, 2 * size + 1, 2 * size + 3})
            {
                const auto isOpen = [&](int i, int j)
                { return i >= 12 && i < 12 + side && (bGap || (j >= 12 && j < 12 + side)); };
                const int normalAxis = bGap ? 0 : 2;
                const Prepared prepared(getSheet(24 + side, isOpen, normalAxis), size, bGap ? 1.0 : 0.0);
                std::set<RCD> whole = getSheet(
                    24 + side, [](int, int) { return false; }, normalAxis);
                EXPECT_TRUE(std::includes(whole.begin(), whole.end(), prepared.fill.begin(), prepared.fill.end()));
                if (bGap) // its open ends fray by a cell or two
                    std::erase_if(whole, [](RCD r) { return rcd::getZ(r) < 1005 || rcd::getZ(r) > 1018; });
                const bool bClosed =
                    std::includes(prepared.result.begin(), prepared.result.end(), whole.begin(), whole.end());
                EXPECT_TRUE(bClosed || !bGap || prepared.fill.empty());
                EXPECT_EQ(bClosed, side <= 2 * size) << "open by " << side << ", size " << size;
            }
}

TEST(HoleControl, AClosedShellStaysAsItIsAndNoLimitMeansNoFill)
{
    std::set<RCD> box;
    for (int i = 0; i < 12 * 12 * 12; ++i)
        if (const int x = i / 144, y = i / 12 % 12, z = i % 12; x % 11 == 0 || y % 11 == 0 || z % 11 == 0)
            box.insert(cell(x, y, z));
    EXPECT_TRUE(Prepared(box, 10).fill.empty());
    const std::set<RCD> holed = getSheet(20, [](int i, int j) { return i == 9 && j == 9; });
    EXPECT_EQ(Prepared(holed, 0).result, holed);
}

TEST(HoleControl, OpeningsOfASphereAreClosedUpToTheLimit)
{
    for (const auto& [opening, limit] : {std::pair(0.0, 10), {4.0, 2}, {8.0, 4}, {12.0, 6}, {20.0, 10}})
    {
        std::vector<Point3> points = getSphere(60000, opening);
        const MeshPtr mesh = reconstruct_abs(points, 1.0, limit);
        EXPECT_EQ(countEdges(mesh, 1), 0u) << opening;
        EXPECT_LE(countEdges(mesh, -1), 40u) << "a few compound bubbles can stay";
        std::vector<Point3*> corners;
        mesh->getTriangles(corners);
        EXPECT_NEAR(computeVolume(corners), 24000.0, 1000.0) << "outwards";
    }
    std::vector<Point3> wide = getSphere(60000, 24.0);
    EXPECT_NEAR(double(countEdges(reconstruct_abs(wide, 1.0, 10), 1)), 100.0, 30.0);
}

/// The march in the plainest terms: maps, and a search for the nearest open cell in every round.
std::map<RCD, float> marchNaively(const Calc& calc, const std::map<RCD, Point3>& shell, std::set<RCD> open)
{
    std::map<RCD, float> distances;
    std::map<RCD, Point3> sources;
    for (const RCD r : open)
        distances[r] = FLT_MAX;
    const auto offer = [&](const Point3& source, RCD r)
    {
        const Point3 c = calc.getCenter(r);
        const float dx = float(source.x() - float(c.x())), dy = float(source.y() - float(c.y())),
                    dz = float(source.z() - float(c.z()));
        const float d = std::sqrt(dx * dx + dy * dy + dz * dz);
        if (open.count(r) == 0 || d >= distances[r])
            return;
        distances[r] = d;
        sources[r] = source;
    };
    RCD around[26];
    for (const auto& [r, point] : shell)
    {
        Calc::completeArray26_RCD(r, around);
        for (const RCD neig : around)
            offer(point, neig);
    }
    const auto isNearer = [&](RCD a, RCD b) { return distances[a] < distances[b]; };
    while (!open.empty())
    {
        const RCD r = *std::min_element(open.begin(), open.end(), isNearer);
        open.erase(r);
        Calc::completeArray26_RCD(r, around);
        for (const RCD neig : around)
            if (distances[r] < float(calc.getSideLen()) || Calc::getNumDifferent_RCD(neig, r) == 1)
                offer(sources.at(r), neig);
    }
    return distances;
}

TEST(Marching, GivesTheDistancesOfAPlainMarch)
{
    std::mt19937 random(2);
    std::uniform_real_distribution<double> inCell(-0.5, 0.5);
    Calc calc(0.0, 0.0, 0.0, 2048.0, 2048.0, 2048.0, 11);
    for (const int size : {1, 2, 4})
    {
        std::map<RCD, Point3> shell;
        for (int i = 0; i < 12; ++i)
        {
            const RCD r = cell(int(random() % 9), int(random() % 9), int(random() % 3));
            shell[r] = calc.getCenter(r) + Vector3(inCell(random), inCell(random), inCell(random));
        }
        std::vector<Point3> points(shell.size());
        std::vector<RCD> cells, zone;
        Prepare prepare(points, size, &calc);
        for (auto& [r, point] : shell)
        {
            cells.push_back(r);
            prepare.vRCD2Vtxsrt.emplace_back(r, &point);
        }
        prepare.vAllRCDsrt = prepare.vBorderRCDsrt = cells;
        inflateRCD(cells, size, false, zone);
        const std::map<RCD, float> expected = marchNaively(calc, shell, {zone.begin(), zone.end()});
        const auto distances = PrepareTestAccess::getDist2RCD(prepare, size);
        ASSERT_EQ(distances.size(), expected.size());
        for (const auto& [distance, r] : distances)
            EXPECT_EQ(distance, double(expected.at(r)));
    }
}

TEST(Rings, OnlyAClosedWayBackCounts)
{
    std::vector<RCD> ring, strip, none;
    for (int i = 0; i < 5; ++i)
    {
        strip.push_back(cell(i, 0, 0));
        for (int j = 0; j < 5; ++j)
            if (i % 4 == 0 || j % 4 == 0)
                ring.push_back(cell(i, j, 0));
    }
    // A tail that sorts first is the only place looked at, deliberately.
    std::vector<RCD> ringWithTail = {cell(-3, 0, 0), cell(-2, 0, 0), cell(-1, 0, 0)};
    ringWithTail.insert(ringWithTail.end(), ring.begin(), ring.end());
    EXPECT_TRUE(isRing(ring, 0) && isRing(ringWithTail, 4));
    EXPECT_FALSE(isRing(strip, 0) || isRing(ringWithTail, 0) || isRing(none, 0));
}
