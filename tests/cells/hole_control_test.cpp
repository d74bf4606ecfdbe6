// Hole control on small shells of cells: which gaps are closed and which stay open, and its rules in a plain version.

#include "base/Progress.h"
#include "cells/Prepare.h"
#include "cells/RemoveDeciderFast.h"
#include "geometry/freeFunctions.h"
#include "helpers/capture.h"
#include "helpers/plain_cells.h"
#include "lattice/cellSets.h"
#include "refined/RMesh.h"
#include "zav/Mesh.h"
#include "zav/zav_api.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
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
using Cells = std::set<RCD>;

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

/// The passes of hole control on plain sets, looked at as a whole in every step. The march and the removal of single
/// cells are those of the library, which have plain versions of their own.
class PlainHoleControl
{
public:
    std::map<RCD, Point3> result;
    Cells all, border;
    std::multiset<RCD> fill;

    PlainHoleControl(const Prepare& shell, Calc& calcArg, int limitArg)
        : all(shell.vAllRCDsrt.begin(), shell.vAllRCDsrt.end()),
          border(shell.vBorderRCDsrt.begin(), shell.vBorderRCDsrt.end()), calc(calcArg), limit(limitArg)
    {
        for (const auto& [r, point] : shell.vRCD2Vtxsrt)
            result[r] = *point;
        const std::vector<int> sizes = Prepare::getHoleControlSizes(limit);
        for (const int size : sizes)
            if (!border.empty())
                pass(size, size == sizes.front() || size == sizes.back());
    }

private:
    using Distances = std::map<RCD, double>;

    static std::vector<Cells> getComponents(Cells cells, bool bFacesOnly)
    {
        std::vector<Cells> components;
        const PlainCells plain{cells};
        while (!cells.empty())
        {
            Cells component, open = {*cells.begin()};
            while (!open.empty())
            {
                const RCD r = *open.begin();
                open.erase(r);
                component.insert(r);
                for (const RCD neig : bFacesOnly ? plain.neigs6(r) : plain.neigs26(r))
                    if (component.count(neig) == 0)
                        open.insert(neig);
            }
            for (const RCD r : component)
                cells.erase(r);
            components.push_back(component);
        }
        return components;
    }

    Distances march(int size)
    {
        std::vector<Point3> points;
        for (const auto& [r, point] : result)
            points.push_back(point);
        Prepare prepare(points, size, &calc);
        size_t i = 0;
        for (const auto& [r, point] : result)
            prepare.vRCD2Vtxsrt.emplace_back(r, &points[i++]);
        prepare.vAllRCDsrt.assign(all.begin(), all.end());
        prepare.vBorderRCDsrt.assign(border.begin(), border.end());
        Distances distances;
        for (const auto& [distance, r] : PrepareTestAccess::getDist2RCD(prepare, size))
            distances[r] = distance;
        return distances;
    }

    /// Up to 9 free cells that hang together over faces, within two steps of the new ones, and are shut in by them.
    void addPockets(Distances& distances) const
    {
        constexpr unsigned faces[] = {4, 22, 10, 16, 12, 14};
        Cells near = keysOf(distances);
        for (int step = 0; step < 2; ++step)
            for (const RCD r : Cells(near))
                for (const unsigned face : faces)
                    near.insert(PlainCells::neig(r, face));
        std::erase_if(near, [&](RCD r) { return all.count(r) + distances.count(r) != 0; });
        Distances pockets;
        for (const Cells& component : getComponents(near, true))
            for (const RCD r : component)
            {
                double sum = 0.0, n = 0.0;
                for (const unsigned position : faces)
                    if (const auto it = distances.find(PlainCells::neig(r, position)); it != distances.end())
                        sum += it->second, n += 1.0;
                if (component.size() <= 9)
                    pockets[r] = n > 0.0 ? sum / n : 0.0;
            }
        distances.merge(pockets);
    }

    /// Kills what the mode allows; the distances keep what is left.
    static void prune(RemoveDeciderFast& decider, PruningMode mode, Distances& distances)
    {
        std::vector<std::pair<double, RCD>> list;
        for (const auto& [r, distance] : distances)
            list.emplace_back(distance, r);
        std::vector<RCD> kept, killed;
        decider.pruneByDistance(mode, list, kept, killed);
        for (const RCD r : killed)
            distances.erase(r);
    }

    static Cells keysOf(const Distances& distances)
    {
        Cells cells;
        for (const auto& [r, distance] : distances)
            cells.insert(r);
        return cells;
    }

    void findBorder(const RemoveDeciderFast& decider)
    {
        border.clear();
        for (const RCD r : all)
            if (decider.isAlive(r) && decider.isBorder(r))
                border.insert(r);
    }

    /// A piece that joins nothing, and what dangles from one that does.
    Cells getUnprotected(const RemoveDeciderFast& decider, const Cells& kept) const
    {
        Cells bridges, others;
        const PlainCells rim{border};
        for (const Cells& component : getComponents(kept, false))
        {
            Cells touched;
            for (const RCD r : component)
                for (const RCD neig : rim.neigs26(r))
                    touched.insert(neig);
            const size_t n = touched.size(), size = component.size();
            const bool bBridge = n >= 4 || (n == 3 && size <= 2) || (n == 2 && size == 1);
            (bBridge ? bridges : others).insert(component.begin(), component.end());
        }
        PlainCells alive{all};
        alive.alive.insert(kept.begin(), kept.end());
        for (const RCD r : kept)
            if (const std::vector<RCD> neigs = alive.neigs26(r);
                decider.isBorder(r) && neigs.size() == 1 && bridges.count(neigs[0]) == 1)
                others.insert(r);
        return others;
    }

    void pass(int size, bool bFirstOrLast)
    {
        Distances distances = march(size);
        addPockets(distances);
        const Cells candidates = keysOf(distances);
        Cells grown = all;
        grown.insert(candidates.begin(), candidates.end());
        std::vector<RCD> list(grown.begin(), grown.end());
        RemoveDeciderFast decider(list, &calc);
        prune(decider, PM_PRUNE_BORDERS, distances);
        prune(decider, PM_PRUNE_AREA, distances);

        Distances loose = distances;
        const Cells unprotected = getUnprotected(decider, keysOf(distances));
        std::erase_if(loose, [&](const auto& entry) { return unprotected.count(entry.first) == 0; });
        prune(decider, PM_PRUNE_BORDERS, loose);
        std::erase_if(distances, [&](const auto& entry) { return decider.isDoomed(entry.first); });

        Cells membranes = keysOf(distances);
        all.insert(membranes.begin(), membranes.end());
        findBorder(decider);
        cutFrayedRims(decider, candidates, bFirstOrLast);
        for (const RCD r : membranes)
            if (decider.isAlive(r))
            {
                fill.insert(r);
                result.emplace(r, calc.getCenter(r)); // one that was cut before keeps its point
            }
        std::erase_if(all, [&](RCD r) { return decider.isDoomed(r); });
    }

    /// Short runs of the border that don't close go, unless all of their cells are needed.
    void cutFrayedRims(RemoveDeciderFast& decider, const Cells& candidates, bool bFirstOrLast)
    {
        for (int round = 0; round < 2 * limit; ++round)
        {
            Distances frayed;
            for (const Cells& component : getComponents(border, false))
            {
                std::vector<RCD> list(component.begin(), component.end());
                if (list.size() <= (bFirstOrLast || round > 0 ? 30u : 100u) && !isRing(list, 0))
                    for (const RCD r : list)
                        if (bFirstOrLast || candidates.count(r) == 1)
                            frayed[r] = 0.0;
            }
            const size_t before = frayed.size();
            prune(decider, PM_PRUNE_BORDERS, frayed);
            if (frayed.size() == before)
                return;
            findBorder(decider);
        }
    }

    Calc& calc;
    const int limit;
};

/// Rough sheets with holes, walks one cell thin and crumbs, near each other.
Cells makeShell(std::mt19937& random)
{
    Cells cells;
    const auto below = [&random](int n) { return int(random() % unsigned(n)); };
    for (int sheet = 0; sheet < 2; ++sheet)
    {
        const int side = 6 + below(14), holes = below(5), slope = below(3), lift = 4 * sheet + below(3);
        const Cells whole = getSheet(side, [](int, int) { return false; });
        std::vector<std::array<int, 3>> openings;
        for (int i = 0; i < holes; ++i)
            openings.push_back({below(side), below(side), 1 + below(4)});
        for (const RCD r : whole)
        {
            const int x = int(rcd::getX(r)) - 1000, y = int(rcd::getY(r)) - 1000;
            const bool bOpen =
                std::any_of(openings.begin(), openings.end(),
                            [&](const auto& o) { return std::abs(x - o[0]) < o[2] && std::abs(y - o[1]) < o[2]; });
            if (!bOpen && below(30) != 0)
                cells.insert(cell(x, y, lift + slope * x / 4));
        }
    }
    for (int walk = below(4); walk > 0; --walk)
    {
        int x = below(20), y = below(20), z = below(8);
        for (int i = 10 + below(120); i > 0; --i)
        {
            (i % 3 == 0 ? x : i % 3 == 1 ? y : z) += below(i % 3 == 2 ? 3 : 4) - 1;
            cells.insert(cell(x, y, z));
        }
    }
    for (int i = below(20); i > 0; --i)
        cells.insert(cell(below(20), below(20), below(8)));
    return cells;
}

TEST(HoleControl, EveryPassFollowsThePlainRules)
{
    std::mt19937 random(9);
    std::uniform_real_distribution<double> inCell(-0.45, 0.45);
    Calc calc(0.0, 0.0, 0.0, 2048.0, 2048.0, 2048.0, 11);
    for (int round = 0; round < 45; ++round)
    {
        std::vector<Point3> points;
        for (const RCD r : makeShell(random))
            points.push_back(calc.getCenter(r) + Vector3(inCell(random), inCell(random), inCell(random)));
        const int limit = 1 + round % 6;
        Prepare shell(points, limit, &calc);
        shell.createRCDs();
        const PlainHoleControl plain(shell, calc, limit);

        getThreadProgress()->startRun("Test");
        Prepare prepare(points, limit, &calc);
        std::vector<std::pair<CCD, Point3>> cellPoints;
        std::vector<CCD> fillCells;
        prepare.run(cellPoints, fillCells);
        getThreadProgress()->reset();

        std::map<RCD, Point3> result;
        for (const auto& [r, point] : prepare.vRCD2Vtxsrt)
            result[r] = *point;
        EXPECT_EQ(result, plain.result) << round;
        EXPECT_EQ(std::multiset<RCD>(prepare.vFillRCD.begin(), prepare.vFillRCD.end()), plain.fill) << round;
        EXPECT_EQ(Cells(prepare.vAllRCDsrt.begin(), prepare.vAllRCDsrt.end()), plain.all) << round;
        EXPECT_EQ(Cells(prepare.vBorderRCDsrt.begin(), prepare.vBorderRCDsrt.end()), plain.border) << round;
    }
}

TEST(HoleControl, WhatCannotEndWellIsRefusedAtOnce)
{
    std::vector<Point3> points;
    for (int i = 0; i < 40; ++i)
        points.emplace_back(i % 8, i / 8, 0.0);
    Calc calc(-100.0, -100.0, -100.0, 2097152.0, 2097152.0, 2097152.0, 21);
    Prepare prepare(points, 1, &calc);
    prepare.createRCDs();
    for (const auto& [size, sentence] :
         {std::pair(1150, "GB are free. A spacing of about "), {5000, "takes more than 2147483647 cells"}})
        EXPECT_NE(test::bugReportOf([&, s = size] { PrepareTestAccess::getDist2RCD(prepare, s); }).find(sentence),
                  std::string::npos)
            << size;
    for (const double scale : {1e-28, 1e19}) // squares of distances would vanish, or be infinite
    {
        std::vector<Point3> scaled = points;
        for (Point3& p : scaled)
            p.set(scale * p.x(), scale * p.y(), 0.0);
        EXPECT_NE(test::bugReportOf([&] { reconstruct_abs(scaled, scale, 2); }).find("Scale the points"),
                  std::string::npos);
        EXPECT_TRUE(reconstruct_abs(scaled, scale, 0));
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
    // Only one place is looked at: a tail that sorts first hides the ring behind it.
    std::vector<RCD> ringWithTail = {cell(-3, 0, 0), cell(-2, 0, 0), cell(-1, 0, 0)};
    ringWithTail.insert(ringWithTail.end(), ring.begin(), ring.end());
    EXPECT_TRUE(isRing(ring, 0) && isRing(ringWithTail, 4));
    EXPECT_FALSE(isRing(strip, 0) || isRing(ringWithTail, 0) || isRing(none, 0));
}
