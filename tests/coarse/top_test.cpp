// The repair of the coarse mesh: patches against a naive flood, and what needs repair as small meshes made by hand.
// Sheets are fans over a rim:
//
//               apex
//              /    \            two sheets on one rim, seen from the side; flanges make
//    flange --rim  rim-- flange  the edges of the rim non-manifold, where patches end
//              \    /
//               apex

#include "base/Progress.h"
#include "coarse/Top.h"
#include "helpers/capture.h"
#include "helpers/coarse_cells.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <utility>

using namespace MIRT_ZAV;
using test::CpuCount;
using test::outputOf;

namespace
{
using Corners = std::array<VCD, 3>;
using Triangles = std::vector<CTriangle*>;

size_t numAlive(const Triangles& triangles)
{
    return static_cast<size_t>(
        std::count_if(triangles.begin(), triangles.end(), [](const CTriangle* t) { return t->isAlive(); }));
}

/// Whether neighbours within a patch are wound alike.
bool isConsistent(const CMesh& mesh)
{
    return std::none_of(mesh.vCE.begin(), mesh.vCE.end(),
                        [](const CEdge* e) {
                            return e->getDegree() == 2 && e->vT[0]->getPatch() == e->vT[1]->getPatch() &&
                                   e->vT[0]->needFlip(e->vT[1]);
                        });
}

/// A mesh on unit cells. The points of vertices lie where a test wants them.
class TopTest : public ::testing::Test, protected test::CoarseCells
{
protected:
    Top top{&mesh, &calc};
    u64 numFree = 0;
    std::map<CCD, CPatch*> corners; // as createPatches fills it

    TopTest() : CoarseCells(6) { progressForReco(); }

    /// A vertex in any cell that is free.
    CCD anyVertex(const Point3& p)
    {
        const u64 n = numFree++;
        return vertexAt(cell(1 + n % 60, 1 + n / 60 % 60, 30 + n / 3600), p);
    }

    Triangles create(const std::vector<Corners>& list)
    {
        Triangles out;
        for (const auto& [a, b, c] : list)
            out.push_back(mesh.createT(a, b, c, 0, 0));
        return out;
    }
    size_t numAliveInMesh() { return numAlive(mesh.vT); }

    std::vector<VCD> squareRim()
    {
        return {anyVertex({0, 0, 0}), anyVertex({4, 0, 0}), anyVertex({4, 4, 0}), anyVertex({0, 4, 0})};
    }
    /// A fan over a rim, refined to the number of triangles by points in the middle of the oldest ones.
    std::vector<Corners> sheet(const std::vector<VCD>& rim, const Point3& apexPoint, size_t numTriangles,
                               bool bPinch = false)
    {
        std::deque<Corners> list;
        const VCD apex = anyVertex(apexPoint);
        for (size_t i = 0; i < rim.size(); ++i)
            list.push_back({rim[i], rim[(i + 1) % rim.size()], apex});
        while (list.size() < numTriangles)
        {
            const auto [a, b, c] = list.front();
            list.pop_front();
            const Point3 pa = mesh.getAvgPoint(a);
            const VCD m = anyVertex(pa + ((mesh.getAvgPoint(b) - pa) + (mesh.getAvgPoint(c) - pa)) * (1.0 / 3.0) +
                                    Vector3(0, 0, .003 * double(1 + numFree % 7)));
            list.insert(list.end(), {Corners{a, b, m}, Corners{b, c, m}, Corners{c, a, m}});
        }
        if (bPinch)
            pinch(list);
        return {list.begin(), list.end()};
    }
    /// Makes edges of the rim non-manifold by a triangle each that points away from it. Patches end at such edges.
    void addFlanges(const std::vector<VCD>& rim, size_t numEdges, double reach)
    {
        for (size_t i = 0; i < numEdges; ++i)
            create({{rim[i], rim[(i + 1) % rim.size()], anyVertex({-reach, -reach - double(i), 0.0})}});
    }
    /// Ties a sheet to the rest of the mesh: a triangle of it gives way to a piece that touches itself in an edge x-y,
    /// where a triangle from elsewhere ends, too.
    void pinch(std::deque<Corners>& list)
    {
        const auto [y, p1, p2] = list[4];
        list.erase(list.begin() + 4);
        const Point3 base = mesh.getAvgPoint(y);
        const VCD x = anyVertex(base + Vector3(.31, .2, .9)), p3 = anyVertex(base + Vector3(.83, .47, .6)),
                  p4 = anyVertex(base + Vector3(.4, .97, .7));
        for (const VCD page : {p1, p2, p3, p4})
            list.push_back({x, y, page});
        list.insert(list.end(), {Corners{x, p1, p3}, Corners{x, p2, p4}, Corners{p1, p2, p4}, Corners{p1, p4, p3},
                                 Corners{y, p3, p4}});
        create({{x, y, anyVertex(base + Vector3(5, 5, 5))}});
    }
    /// A closed tetrahedron that makes an edge non-manifold without adding a border.
    Triangles glue(VCD a, VCD b)
    {
        const VCD c = anyVertex({1, 2, 3}), d = anyVertex({3, 2, 1});
        return create({{a, b, c}, {b, a, d}, {c, d, a}, {d, c, b}});
    }
    std::vector<CPatch*> createPatches()
    {
        std::vector<CPatch*> patches;
        std::vector<CEdge*> nonManifold;
        corners.clear();
        mesh.createPatches(nullptr, patches, corners, nonManifold);
        return patches;
    }
};
} // namespace

TEST_F(TopTest, PatchesAgreeWithANaiveFlood)
{
    std::mt19937 random(3);
    for (int i = 0; i < 900; ++i)
    {
        const VCD a = random() % 70, b = (a + 1 + random() % 5) % 70, c = (b + 1 + random() % 5) % 70;
        if (CTriangle* const t = mesh.createT(a, b, c, 0, 0); i % 7 == 0)
            t->kill(&mesh);
    }
    // Each triangle takes over the oldest one that a neighbour knows, until nothing changes.
    std::map<CTriangle*, CTriangle*> oldest;
    for (CTriangle* const t : mesh.vT)
        oldest[t] = t;
    for (bool bChanged = true; std::exchange(bChanged, false);)
        for (const CEdge* const e : mesh.vCE)
            if (e->getDegree() == 2 && oldest[e->vT[0]] != oldest[e->vT[1]])
            {
                oldest[e->vT[0]] = oldest[e->vT[1]] = std::min(oldest[e->vT[0]], oldest[e->vT[1]]);
                bChanged = true;
            }
    for (const int numCPU : {1, 2, 3, 7})
    {
        CpuCount cpus(numCPU);
        size_t numMembers = 0;
        std::map<CCD, CPatch*> expectedCorners;
        for (CPatch* const patch : createPatches())
        {
            numMembers += patch->getSize();
            for (CTriangle* const t : patch->vT)
            {
                EXPECT_TRUE(oldest[t] == patch->vT.back() && t->getPatch() == patch) << "the seed is the last member";
                for (int k = 0; k < 3; ++k)
                    if (t->getCEdge(k)->getDegree() > 2)
                        expectedCorners.emplace(t->getCorner(k), patch);
            }
        }
        EXPECT_EQ(numMembers, numAliveInMesh());
        EXPECT_EQ(corners, expectedCorners);
    }
}

TEST_F(TopTest, OfTwoSheetsOnOneRimTheSmallerDiesIfBothAreNoise)
{
    // Two sizes; how far the flanges reach, which makes the rest of the mesh large; what is left of both sheets.
    const std::tuple<size_t, size_t, double, size_t, size_t> cases[] = {
        // Small sheets die whatever their area; of equal ones the second.
        {20, 20, 1.0, 20, 0},
        {18, 20, 1.0, 0, 20},
        // A sheet that is a large part of the mesh is no noise; both have to be small.
        {22, 22, 1.0, 22, 22},
        {22, 500, 1.0, 22, 500},
        {22, 500, 36.0, 22, 500}, // 11 % of the mesh
        {22, 500, 42.0, 0, 500},  // 9 %
        {500, 20, 1.0, 500, 20},
    };
    for (const auto& [sizeA, sizeB, reach, leftA, leftB] : cases)
    {
        mesh.reset();
        const std::vector<VCD> rim = squareRim();
        const Triangles a = create(sheet(rim, {2, 2, 1}, sizeA)), b = create(sheet(rim, {2, 2, -1}, sizeB));
        addFlanges(rim, 4, reach);
        EXPECT_EQ(top.patchPairSolving(true), leftA * leftB == 0);
        EXPECT_TRUE(numAlive(a) == leftA && numAlive(b) == leftB) << sizeA << ' ' << sizeB << ' ' << reach;
        EXPECT_EQ(numAliveInMesh(), leftA + leftB + 4) << "flanges stay";
    }
}

TEST_F(TopTest, ThreeSheetsOnOneRimMakeTwoPairs)
{
    const std::vector<VCD> rim = squareRim();
    for (const double z : {1.0, 2.0, 3.0})
        create(sheet(rim, {2, 2, z}, 4));
    std::vector<CPatch*> patches = createPatches(), closed, rest;
    const std::vector<CPatch*> p = patches;
    std::reverse(patches.begin(), patches.end());
    std::vector<std::pair<CPatch*, CPatch*>> pairs;
    top.getPatchPairs(patches, pairs, closed, rest);
    EXPECT_EQ(pairs, (std::vector<std::pair<CPatch*, CPatch*>>{{p[0], p[1]}, {p[1], p[2]}}));
    EXPECT_EQ(rest, std::vector<CPatch*>{p[2]});
    EXPECT_TRUE(top.patchPairSolving(true));
    EXPECT_EQ(numAliveInMesh(), 8u) << "the dead one of the second pair is the smaller";

    mesh.reset();
    glue(anyVertex({5, 5, 5}), anyVertex({6, 5, 5}));
    EXPECT_FALSE(top.patchPairSolving(true));
    EXPECT_EQ(numAliveInMesh(), 0u) << "tiny closed bodies die without counting";
}

TEST_F(TopTest, PatchesPutTogetherByHandFindTheirRims)
{
    const std::vector<VCD> rim = squareRim();
    CPatch up(&mesh, &calc), low(&mesh, &calc);
    for (CTriangle* const t : create(sheet(rim, {2, 2, 1}, 4)))
        up.add(t);
    for (CTriangle* const t : create(sheet(rim, {2, 2, -1}, 4)))
        low.add(t);
    std::vector<CPatch*> patches = {&up, &low}, closed, rest;
    std::vector<std::pair<CPatch*, CPatch*>> pairs;
    top.getPatchPairs(patches, pairs, closed, rest);
    EXPECT_TRUE(pairs.size() == 1 && closed.empty() && rest == std::vector<CPatch*>{patches[1]});
}

TEST_F(TopTest, ADoubleSheetLosesTheSideThatIsNotTied)
{
    // Two sizes, which sides are tied to the rest of the mesh, whether to be strict, and which sides stay.
    const std::tuple<size_t, size_t, bool, bool, bool, bool, bool> cases[] = {
        // Of equal sides the second dies, of others the smaller, but a side that is tied stays.
        {4, 4, false, false, true, true, false}, {4, 6, false, false, true, false, true},
        {6, 6, false, true, true, false, true},  {6, 24, true, false, true, true, false},
        {6, 6, true, true, true, true, true},    {6, 6, true, true, false, true, false},
    };
    for (const auto& [sizeUp, sizeLow, bPinchUp, bPinchLow, bStrict, bUpStays, bLowStays] : cases)
    {
        mesh.reset();
        const std::vector<VCD> rim = squareRim();
        const Triangles up = create(sheet(rim, {1.7, 2.2, .3}, sizeUp, bPinchUp));
        const Triangles low = create(sheet(rim, {2.3, 1.9, -.2}, sizeLow, bPinchLow));
        addFlanges(rim, 1, 1.0); // the only edge that shows the rim; over the others the sheets are one patch
        createPatches();
        CPatch* const patch = up[0]->getPatch();
        EXPECT_TRUE(patch->isClosed() && patch->getSize() == up.size() + low.size());
        EXPECT_EQ(patch->splitClosedPatchKill(bStrict), !bUpStays || !bLowStays);
        EXPECT_TRUE(numAlive(up) == bUpStays * up.size() && numAlive(low) == bLowStays * low.size());
        EXPECT_TRUE((bUpStays && bLowStays) || isConsistent(mesh)) << "what stays runs alike";
    }
}

TEST_F(TopTest, ThickBodiesAreNotSplitUnlessTheyAreSmall)
{
    // Double pyramids of height h are 2 h / 3 thick in the mean. Up to 19 triangles are split always.
    const std::tuple<int, double, bool> cases[] = {
        {49, .75, true}, {50, .75, false}, {50, .55, true}, {10, 8.0, false}, {9, 8.0, true}};
    for (const auto& [numPerSide, height, bSplits] : cases)
    {
        mesh.reset();
        const VCD up = vertexAt(cell(32, 32, 40), {32, 32, 32 + height}),
                  low = vertexAt(cell(32, 32, 20), {32, 32, 32 - height});
        std::vector<VCD> rim;
        for (int i = 0; i < numPerSide; ++i)
        {
            const double angle = 6.283185307 * i / numPerSide;
            const Point3 p(32 + 25 * std::cos(angle), 32 + 25 * std::sin(angle), 32);
            rim.push_back(vertexAt(calc.getCCD(&p), p));
        }
        for (size_t i = 0; i < rim.size(); ++i)
            create({{rim[i], rim[(i + 1) % rim.size()], up}, {rim[(i + 1) % rim.size()], rim[i], low}});
        addFlanges(rim, 1, 1.0);
        EXPECT_EQ(createPatches()[0]->splitClosedPatchKill(true), bSplits) << numPerSide << ' ' << height;
    }
}

TEST_F(TopTest, TinyRegionsAtLongBordersDie)
{
    const std::tuple<size_t, size_t, size_t, bool> cases[] = {
        // open edges divided by triangles is an integer: which regions die depends on its rounding down
        {6, 1, 40, true}, {7, 1, 40, false},   {7, 2, 40, true},   {24, 2, 40, true}, {25, 2, 40, false},
        {8, 8, 8, true},  {25, 24, 40, false}, {25, 25, 40, true}, {9, 9, 8, false}};
    for (const auto& [numTriangles, numOpen, maxSize, bDies] : cases)
    {
        mesh.reset();
        std::vector<VCD> rim;
        for (size_t i = 0; i < numTriangles; ++i)
            rim.push_back(anyVertex({double(i), double(i * i), 0}));
        const Triangles fan = create(sheet(rim, {0, 9, 0}, numTriangles));
        for (size_t i = numOpen; i < numTriangles; ++i)
            glue(rim[i], rim[(i + 1) % numTriangles]);
        top.killTinyBorderPatches(maxSize);
        EXPECT_EQ(numAlive(fan), bDies ? 0 : numTriangles) << numOpen;
        EXPECT_EQ(numAliveInMesh() - numAlive(fan), 4 * (numTriangles - numOpen));
    }
}

TEST_F(TopTest, OneDiagonalOfASquareStays)
{
    // d --- b
    // |  x  |    a-b and c-d are the diagonals
    // a --- c
    const VCD a = vertex(4, 4, 4), b = vertex(5, 5, 4), c = vertex(5, 4, 4), d = vertex(4, 5, 4), up = vertex(4, 4, 6);
    const auto unify = [&](const std::vector<Corners>& list)
    {
        mesh.reset();
        for (CTriangle* const t : create(list))
            t->vcd = 77;
        top.unifyDiagonals();
        return std::pair<size_t, size_t>(numAliveInMesh(), mesh.vT.size() - list.size());
    };
    using AliveAndNew = std::pair<size_t, size_t>;
    EXPECT_EQ(unify({{a, c, b}, {a, b, d}}), AliveAndNew(2, 0)) << "nothing crosses";
    EXPECT_EQ(unify({{a, c, b}, {a, b, d}, {c, d, a}, {c, b, d}}), AliveAndNew(2, 0));
    EXPECT_EQ(mesh.getEdge(a, b)->getDegree(), 0) << "the first in key order loses";
    EXPECT_EQ(unify({{a, c, b}, {a, b, d}, {c, b, d}}), AliveAndNew(2, 1));
    EXPECT_EQ(unify({{a, c, b}, {a, b, d}, {c, d, up}}), AliveAndNew(3, 2));
    EXPECT_TRUE(mesh.vT[4]->vcd == 77 && mesh.vT[4]->getICI(c, d) == 2);
    const VCD c1 = vertex(5, 4, 5), d1 = vertex(4, 5, 5);
    EXPECT_EQ(unify({{a, c1, b}, {a, b, d1}, {c1, d1, up}}), AliveAndNew(3, 0)) << "diagonals in parallel planes";
}

TEST_F(TopTest, SquaresWhoseCornersLieOnOneLineAreSplitWithoutABug)
{
    // Splitting one flat triangle can take the other one with it.
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i)
    {
        const Vector3 direction(double(1 + random() % 9), double(1 + random() % 9), double(1 + random() % 9));
        mesh.reset();
        const CCD a = vertex(4, 4, 4), b = vertex(5, 5, 4), c = vertex(5, 4, 4), d = vertex(4, 5, 4),
                  up = vertexAt(cell(4, 4, 6), {1.0, 30.0, 2.0});
        for (const CCD corner : {a, b, c, d})
            *mesh.getVtx(corner) = Point3(0.0, 0.0, 0.0) + direction * double(1 + random() % 40);
        create({{a, c, b}, {a, b, d}, {c, d, up}});
        outputOf([this] { EXPECT_NO_THROW(top.unifyDiagonals()); });
    }
}

TEST_F(TopTest, EqualPointsAreMovedApart)
{
    for (const VCD v : {1, 2, 3, 4, 9})
        vertexAt(v, v == 9 ? Point3(1, 2, 3) : Point3(5, 6, 7));
    for (Point3& p : ownedPoints)
        p.setColor(1, 2, 3, 4);
    std::srand(1);
    top.oneCoordTriplePerCCD();
    EXPECT_TRUE(mesh.getAvgPoint(9) == Point3(1, 2, 3) && mesh.getAvgPoint(1) == Point3(5, 6, 7));
    std::set<Point3> points;
    for (const VCD v : {1, 2, 3, 4})
    {
        const Point3 p = mesh.getAvgPoint(v);
        EXPECT_TRUE(points.insert(p).second && (p - Point3(5, 6, 7)).getMaxAbsComponent() < 0.01);
        EXPECT_TRUE(v == 1 ? p.hasColor() : p.r + p.a + p.hasColor() == 0);
    }
}
