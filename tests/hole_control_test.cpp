// Hole control on small shells of cells: which gaps are closed and which stay open.

#include "Prepare.h"
#include "Progress.h"
#include "cellSets.h"
#include "zav_api.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <map>
#include <random>
#include <set>
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

/// A flat sheet in the plane of two axes with cells left out.
template <class Predicate>
std::set<RCD> getSheet(int side, const Predicate& isLeftOut, int normalAxis = 2)
{
    std::set<RCD> cells;
    for (int i = 0; i < side; ++i)
        for (int j = 0; j < side; ++j)
            if (!isLeftOut(i, j))
                cells.insert(normalAxis == 0 ? cell(0, i, j) : normalAxis == 1 ? cell(i, 0, j) : cell(i, j, 0));
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

/// The edges of a mesh by number of triangles, and the loops of its border.
struct EdgeCounts
{
    size_t numBorder = 0;
    size_t numNonManifold = 0;
    size_t numLoops = 0;
    size_t numComponents = 0;

    explicit EdgeCounts(const MeshPtr& mesh)
    {
        std::vector<Point3*> points;
        std::vector<int> indices;
        mesh->getVertexIndexData(points, indices);
        std::map<std::pair<int, int>, int> degrees;
        std::vector<std::pair<int, int>> all;
        for (size_t i = 0; i < indices.size(); ++i)
        {
            const int a = indices[i], b = indices[i % 3 == 2 ? i - 2 : i + 1];
            ++degrees[std::minmax(a, b)];
            all.emplace_back(a, b);
        }
        std::vector<std::pair<int, int>> border;
        for (const auto& [edge, degree] : degrees)
        {
            numNonManifold += degree > 2;
            if (degree == 1)
                border.push_back(edge);
        }
        numBorder = border.size();
        numLoops = countConnected(border);
        numComponents = countConnected(all);
    }

private:
    static size_t countConnected(const std::vector<std::pair<int, int>>& edges)
    {
        std::map<int, int> parent;
        const auto find = [&parent](int i)
        {
            parent.emplace(i, i);
            while (parent[i] != i)
                i = parent[i] = parent[parent[i]];
            return i;
        };
        for (const auto& [a, b] : edges)
            parent[find(a)] = find(b);
        return size_t(std::count_if(parent.begin(), parent.end(), [](const auto& p) { return p.first == p.second; }));
    }
};
} // namespace

TEST(HoleControl, ASquareHoleIsClosedExactlyUpToTwiceTheSize)
{
    for (const int normalAxis : {0, 2})
        for (const int size : {1, 2, 3, 5})
            for (const int side : {1, 2, 2 * size - 1, 2 * size, 2 * size + 1, 2 * size + 3})
            {
                const auto isHole = [side](int i, int j)
                { return i >= 12 && i < 12 + side && j >= 12 && j < 12 + side; };
                const Prepared prepared(getSheet(24 + side, isHole, normalAxis), size);
                const std::set<RCD> whole = getSheet(
                    24 + side, [](int, int) { return false; }, normalAxis);
                const bool bClosed =
                    std::includes(prepared.result.begin(), prepared.result.end(), whole.begin(), whole.end());
                EXPECT_EQ(bClosed, side <= 2 * size) << "hole of " << side << ", size " << size;
                EXPECT_TRUE(!bClosed || prepared.result == whole) << "nothing but the hole is filled";
            }
}

TEST(HoleControl, TwoHalfPlanesAreBridgedExactlyUpToTwiceTheSize)
{
    for (const int size : {1, 2, 4})
        for (const int width : {1, 2 * size, 2 * size + 1, 2 * size + 2})
        {
            const Prepared prepared(getSheet(40, [width](int i, int) { return i >= 18 && i < 18 + width; }), size, 1.0);
            if (width > 2 * size)
            {
                EXPECT_TRUE(prepared.fill.empty()) << width << ", size " << size;
                continue;
            }
            // The open ends of the bridge fray by a cell or two.
            for (int i = 18; i < 18 + width; ++i)
                for (int j = 5; j < 35; ++j)
                    EXPECT_TRUE(prepared.fill.count(cell(i, j, 0))) << width << ", size " << size;
        }
}

TEST(HoleControl, AClosedShellStaysAsItIsAndNoLimitMeansNoFill)
{
    std::set<RCD> box;
    for (int x = 0; x < 12; ++x)
        for (int y = 0; y < 12; ++y)
            for (int z = 0; z < 12; ++z)
                if (x % 11 == 0 || y % 11 == 0 || z % 11 == 0)
                    box.insert(cell(x, y, z));
    EXPECT_TRUE(Prepared(box, 10).fill.empty());
    const std::set<RCD> holed = getSheet(20, [](int i, int j) { return i == 9 && j == 9; });
    EXPECT_TRUE(Prepared(holed, 0).fill.empty());
    EXPECT_EQ(Prepared(holed, 0).result, holed);
}

TEST(HoleControl, OpeningsOfASphereAreClosedUpToTheLimit)
{
    const std::pair<double, int> closed[] = {{4.0, 2}, {8.0, 4}, {12.0, 6}, {20.0, 10}};
    for (const auto& [opening, limit] : closed)
    {
        std::vector<Point3> points = getSphere(60000, opening);
        const EdgeCounts counts(reconstruct_abs(points, 1.0, limit));
        EXPECT_EQ(counts.numBorder, 0u) << opening;
        EXPECT_EQ(counts.numComponents, 1u) << opening;
    }
    std::vector<Point3> wide = getSphere(60000, 24.0);
    const EdgeCounts counts(reconstruct_abs(wide, 1.0, 10));
    EXPECT_EQ(counts.numLoops, 1u);
    EXPECT_GT(counts.numBorder, 30u);
}

TEST(HoleControl, ACleanSphereGivesOneClosedSheet)
{
    std::vector<Point3> points = getSphere(60000, 0.0);
    const EdgeCounts counts(reconstruct_abs(points, 1.0, 10));
    EXPECT_EQ(counts.numComponents, 1u);
    EXPECT_EQ(counts.numBorder, 0u);
    EXPECT_LE(counts.numNonManifold, 40u) << "a few compound bubbles can stay";
}

/// The march in the plainest terms: maps, and a search for the nearest box in every round.
std::map<RCD, float> marchNaively(const Calc& calc, const std::map<RCD, Point3>& shell, const std::set<RCD>& newCells)
{
    struct Box
    {
        float dist = FLT_MAX;
        bool bDone = false;
        Point3 source;
    };
    std::map<RCD, Box> boxes;
    for (const RCD r : newCells)
        boxes[r];
    const auto offer = [&](const Point3& source, RCD r)
    {
        const auto box = boxes.find(r);
        if (box == boxes.end() || box->second.bDone)
            return;
        const Point3 c = calc.getCenter(r);
        const float dx = float(source.x() - float(c.x())), dy = float(source.y() - float(c.y())),
                    dz = float(source.z() - float(c.z()));
        const float d = std::sqrt(dx * dx + dy * dy + dz * dz);
        if (d < box->second.dist)
            box->second = {d, false, source};
    };
    RCD around[26];
    for (const auto& [r, point] : shell)
    {
        Calc::completeArray26_RCD(r, around);
        for (const RCD neig : around)
            offer(point, neig);
    }
    for (;;)
    {
        auto nearest = boxes.end();
        for (auto it = boxes.begin(); it != boxes.end(); ++it)
            if (!it->second.bDone && it->second.dist < FLT_MAX &&
                (nearest == boxes.end() || it->second.dist < nearest->second.dist))
                nearest = it;
        if (nearest == boxes.end())
            break;
        nearest->second.bDone = true;
        Calc::completeArray26_RCD(nearest->first, around);
        for (const RCD neig : around)
            if (nearest->second.dist < float(calc.getSideLen()) || Calc::getNumDifferent_RCD(neig, nearest->first) == 1)
                offer(nearest->second.source, neig);
    }
    std::map<RCD, float> distances;
    for (const auto& [r, box] : boxes)
        distances[r] = box.dist;
    return distances;
}

TEST(Marching, GivesTheDistancesOfAPlainMarch)
{
    std::mt19937 random(2);
    std::uniform_real_distribution<double> inCell(0.0, 1.0);
    Calc calc(0.0, 0.0, 0.0, 2048.0, 2048.0, 2048.0, 11);
    for (const int size : {1, 2, 4})
    {
        std::map<RCD, Point3> shell;
        for (int i = 0; i < 12; ++i)
        {
            const RCD r = cell(int(random() % 9), int(random() % 9), int(random() % 3));
            shell[r] =
                calc.getCenter(r) + Vector3(inCell(random), inCell(random), inCell(random)) + Vector3(-0.5, -0.5, -0.5);
        }
        std::vector<Point3> points;
        std::vector<RCD> cells, zone;
        for (const auto& [r, point] : shell)
        {
            points.push_back(point);
            cells.push_back(r);
        }
        Prepare prepare(points, size, &calc);
        prepare.vAllRCDsrt = prepare.vBorderRCDsrt = cells;
        for (size_t i = 0; i < cells.size(); ++i)
            prepare.vRCD2Vtxsrt.emplace_back(cells[i], &points[i]);
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
    std::vector<RCD> ring, strip, ringWithTail;
    for (int i = 0; i < 5; ++i)
    {
        ring.insert(ring.end(), {cell(i, 0, 0), cell(i, 4, 0)});
        strip.push_back(cell(i, 0, 0));
        if (i % 4 != 0)
            ring.insert(ring.end(), {cell(0, i, 0), cell(4, i, 0)});
    }
    std::sort(ring.begin(), ring.end());
    EXPECT_TRUE(isRing(ring, 0));
    EXPECT_FALSE(isRing(strip, 0));
    // A tail that sorts first is the only place looked at, deliberately.
    ringWithTail = ring;
    ringWithTail.insert(ringWithTail.begin(), {cell(-3, 0, 0), cell(-2, 0, 0), cell(-1, 0, 0)});
    EXPECT_FALSE(isRing(ringWithTail, 0));
    EXPECT_TRUE(isRing(ringWithTail, 4));
    std::vector<RCD> none;
    EXPECT_FALSE(isRing(none, 0));
}
