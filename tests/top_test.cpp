// The repair of the coarse mesh: patches against naive counts, pairs and double sheets, diagonals, flaps and borders on
// small meshes made by hand, and whole repairs of a noisy shell.

#include "ConEdge.h"
#include "Progress.h"
#include "Top.h"
#include "capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <random>
#include <set>

using namespace MIRT_ZAV;
using test::CpuCount;
using test::hasBug;
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

/// Whether neighbours over edges of degree 2 run alike.
bool isConsistent(const CMesh& mesh)
{
    std::vector<CEdge*> regular;
    mesh.getDegN(2, regular);
    return std::none_of(regular.begin(), regular.end(), [](const CEdge* e) { return e->vT[0]->needFlip(e->vT[1]); });
}

/// A mesh on unit cells. The points of vertices lie where a test wants them.
class TopTest : public ::testing::Test
{
protected:
    Calc calc{0.0, 0.0, 0.0, 64.0, 64.0, 64.0, 6};
    std::map<CCD, Bundle*> bundles;
    std::deque<Bundle> ownedBundles;
    std::deque<Point3> ownedPoints;
    CMesh mesh{nullptr, &calc, &bundles, {}};
    Top top{&mesh, &calc};
    u64 numFree = 0;

    TopTest() { progressForReco(); }

    CCD cell(u64 i, u64 j, u64 k) { return calc.rcd2ccd(rcd::fromXYZ(i, j, k)); }
    CCD vertexAt(CCD c, const Point3& p)
    {
        ownedPoints.push_back(p);
        ownedBundles.push_back({&ownedPoints.back(), c, nullptr, p});
        bundles[c] = &ownedBundles.back();
        return c;
    }
    CCD vertex(u64 i, u64 j, u64 k) { return vertexAt(cell(i, j, k), calc.getMidPoint(cell(i, j, k))); }
    /// A vertex in any cell that is free.
    CCD anyVertex(const Point3& p)
    {
        const u64 n = numFree++;
        return vertexAt(cell(1 + n % 60, 1 + n / 60 % 60, 30 + n / 3600), p);
    }

    CTriangle* create(VCD a, VCD b, VCD c) { return mesh.createT(a, b, c, 0, 0); }
    Triangles create(const std::vector<Corners>& list)
    {
        Triangles out;
        for (const Corners& c : list)
            out.push_back(create(c[0], c[1], c[2]));
        return out;
    }
    size_t numAliveInMesh() { return numAlive(mesh.vT); }

    std::vector<VCD> squareRim()
    {
        return {anyVertex({0, 0, 0}), anyVertex({4, 0, 0}), anyVertex({4, 4, 0}), anyVertex({0, 4, 0})};
    }
    /// A fan over a rim, refined to the number of triangles by points in the middle of the oldest ones.
    std::vector<Corners> sheet(const std::vector<VCD>& rim, const Point3& apexPoint, size_t numTriangles)
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
        return {list.begin(), list.end()};
    }
    /// Makes edges of the rim non-manifold by one triangle each that points away from it.
    void addFlanges(const std::vector<VCD>& rim, size_t numEdges, double reach)
    {
        for (size_t i = 0; i < numEdges; ++i)
            create(rim[i], rim[(i + 1) % rim.size()], anyVertex({-reach, -reach - double(i), 0.0}));
    }
    /// Replaces a triangle of a sheet by a piece that touches itself in an edge, to which a foreign triangle is tied.
    void pinch(std::vector<Corners>& list, size_t index)
    {
        const auto [y, p1, p2] = list[index];
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
        const Point3 base = mesh.getAvgPoint(y);
        const VCD x = anyVertex(base + Vector3(.31, .2, .9)), p3 = anyVertex(base + Vector3(.83, .47, .6)),
                  p4 = anyVertex(base + Vector3(.4, .97, .7));
        for (const VCD page : {p1, p2, p3, p4})
            list.push_back({x, y, page});
        list.insert(list.end(), {Corners{x, p1, p3}, Corners{x, p2, p4}, Corners{p1, p2, p4}, Corners{p1, p4, p3},
                                 Corners{y, p3, p4}});
        create(x, y, anyVertex(base + Vector3(5, 5, 5)));
    }
    /// A closed tetrahedron that makes an edge non-manifold without adding a border.
    Triangles glue(VCD a, VCD b)
    {
        const VCD c = anyVertex({1, 2, 3}), d = anyVertex({3, 2, 1});
        return create({{a, b, c}, {b, a, d}, {c, d, a}, {d, c, b}});
    }
    /// A strip of n triangles of which only numOpen edges, one after the other, are border edges.
    Triangles strip(size_t n, size_t numOpen)
    {
        std::vector<VCD> v;
        for (size_t i = 0; i < n + 2; ++i)
            v.push_back(anyVertex({double(i), double(i % 2), 0.0}));
        std::vector<Corners> list;
        std::vector<std::pair<VCD, VCD>> outline = {{v[0], v[1]}};
        for (size_t i = 0; i < n; i += 2)
            outline.emplace_back(v[i], v[i + 2]);
        outline.emplace_back(v[n], v[n + 1]);
        for (size_t i = 1; i < n; i += 2)
            outline.emplace_back(v[i], v[i + 2]);
        for (size_t i = 0; i < n; ++i)
            list.push_back({v[i], v[i + 1], v[i + 2]});
        const Triangles made = create(list);
        for (size_t i = numOpen; i < outline.size(); ++i)
            glue(outline[i].first, outline[i].second);
        return made;
    }
    /// All members in one patch, which belongs to nobody else.
    std::unique_ptr<CPatch> patchOf(const Triangles& members)
    {
        auto patch = std::make_unique<CPatch>(&mesh, &calc);
        for (CTriangle* const t : members)
            patch->add(t);
        return patch;
    }
    std::vector<CPatch*> createPatches()
    {
        std::vector<CPatch*> patches;
        std::map<CCD, CPatch*> corners;
        std::vector<CEdge*> nonManifold;
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
        CTriangle* const t = create(a, b, c);
        if (i % 7 == 0)
            t->kill(&mesh);
    }
    // The oldest of connected triangles spreads until nothing changes.
    std::map<CTriangle*, CTriangle*> oldest;
    for (CTriangle* const t : mesh.vT)
        oldest[t] = t;
    for (bool bChanged = true; bChanged;)
    {
        bChanged = false;
        for (const CEdge* const e : mesh.vCE)
            if (e->getDegree() == 2 && oldest[e->vT[0]] != oldest[e->vT[1]])
            {
                oldest[e->vT[0]] = oldest[e->vT[1]] = std::min(oldest[e->vT[0]], oldest[e->vT[1]]);
                bChanged = true;
            }
    }
    for (const int numCPU : {1, 2, 3, 7})
    {
        CpuCount cpus(numCPU);
        std::vector<CPatch*> patches;
        std::map<CCD, CPatch*> corners, expectedCorners;
        std::vector<CEdge*> nonManifold;
        mesh.createPatches(nullptr, patches, corners, nonManifold);
        size_t numMembers = 0;
        for (CPatch* const patch : patches)
        {
            numMembers += patch->getSize();
            std::map<CEdge*, int> count;
            for (CTriangle* const t : patch->vT)
            {
                EXPECT_TRUE(oldest[t] == patch->vT.back() && t->getPatch() == patch) << "the seed is the last member";
                for (int k = 0; k < 3; ++k)
                    if (const CEdge* const e = t->getCEdge(k); ++count[t->getCEdge(k)] > 0 && e->getDegree() > 2)
                        expectedCorners.emplace(t->getCorner(k), patch);
            }
            std::erase_if(count, [](const auto& entry) { return entry.second != 1; });
            patch->setOuterBoundary();
            EXPECT_EQ(patch->vOuterBoundary.size(), count.size());
            for (CEdge* const e : patch->vOuterBoundary)
                EXPECT_EQ(count.count(e), 1u);
        }
        EXPECT_EQ(numMembers, numAliveInMesh());
        EXPECT_EQ(corners, expectedCorners);
        std::vector<CEdge*> expectedNonManifold;
        mesh.getDegN(-1, expectedNonManifold);
        std::sort(expectedNonManifold.begin(), expectedNonManifold.end());
        EXPECT_EQ(nonManifold, expectedNonManifold);
    }
}

TEST_F(TopTest, OfTwoSheetsOnOneRimTheSmallerDiesIfBothAreNoise)
{
    const auto solve = [this](size_t sizeA, size_t sizeB, double reach)
    {
        mesh.reset();
        const std::vector<VCD> rim = squareRim();
        const Triangles a = create(sheet(rim, {2, 2, 1}, sizeA)), b = create(sheet(rim, {2, 2, -1}, sizeB));
        addFlanges(rim, 4, reach);
        const bool bSolved = top.patchPairSolving(true);
        EXPECT_EQ(numAliveInMesh(), numAlive(a) + numAlive(b) + 4) << "flanges stay";
        EXPECT_TRUE(bSolved == (numAlive(a) == 0 || numAlive(b) == 0));
        return std::pair<size_t, size_t>(numAlive(a), numAlive(b));
    };
    using Sizes = std::pair<size_t, size_t>;
    EXPECT_EQ(solve(20, 20, 1.0), Sizes(20, 0)) << "small sheets die whatever their area; of equal ones the second";
    EXPECT_EQ(solve(18, 20, 1.0), Sizes(0, 20));
    EXPECT_EQ(solve(22, 500, 1.0), Sizes(22, 500)) << "a large part of the mesh";
    EXPECT_EQ(solve(22, 500, 1000.0), Sizes(0, 500));
    EXPECT_EQ(solve(500, 20, 1.0), Sizes(500, 20)) << "both have to be small";

    mesh.reset();
    EXPECT_FALSE(top.patchPairSolving(false));
}

TEST_F(TopTest, ThreeSheetsOnOneRimMakeTwoPairs)
{
    const std::vector<VCD> rim = squareRim();
    for (const double z : {1.0, 2.0, 3.0})
        create(sheet(rim, {2, 2, z}, 4));
    std::vector<CPatch*> patches = createPatches(), closed, rest;
    const std::vector<CPatch*> inOrder = patches;
    std::reverse(patches.begin(), patches.end());
    std::vector<std::pair<CPatch*, CPatch*>> pairs;
    top.getPatchPairs(patches, pairs, closed, rest);
    const std::vector<std::pair<CPatch*, CPatch*>> expected = {{inOrder[0], inOrder[1]}, {inOrder[1], inOrder[2]}};
    EXPECT_EQ(pairs, expected);
    EXPECT_EQ(rest, std::vector<CPatch*>{inOrder[2]});
    EXPECT_TRUE(top.patchPairSolving(true));
    EXPECT_EQ(numAliveInMesh(), 8u) << "the dead one of the second pair is the smaller";
}

TEST_F(TopTest, TinyClosedBodiesDieWithoutCounting)
{
    const Triangles t = glue(anyVertex({5, 5, 5}), anyVertex({6, 5, 5}));
    EXPECT_FALSE(patchOf(create({{1, 2, 3}, {1, 2, 3}, {1, 2, 3}}))->isClosed());
    for (size_t i = 4; i < 7; ++i)
        mesh.vT[i]->kill(&mesh);
    const auto patch = patchOf(t);
    EXPECT_TRUE(patch->isClosed());
    EXPECT_FALSE(top.patchPairSolving(true));
    EXPECT_EQ(numAliveInMesh(), 0u);
    patch->killPatchAndMembers();
    EXPECT_TRUE(hasBug("isAlive()", [&] { patch->setOuterBoundary(); }));
}

TEST_F(TopTest, ADoubleSheetLosesTheSideThatIsNotTied)
{
    const auto split = [this](size_t sizeTop, size_t sizeBottom, bool bPinchTop, bool bPinchBottom, bool bStrict)
    {
        mesh.reset();
        const std::vector<VCD> rim = squareRim();
        std::vector<Corners> upper = sheet(rim, {1.7, 2.2, .3}, sizeTop),
                             lower = sheet(rim, {2.3, 1.9, -.2}, sizeBottom);
        if (bPinchTop)
            pinch(upper, 4);
        if (bPinchBottom)
            pinch(lower, 4);
        const Triangles up = create(upper), low = create(lower);
        addFlanges(rim, 1, 1.0); // the only edge that shows the rim; over the others the sheets are one patch
        createPatches();
        CPatch* const patch = up[0]->getPatch();
        EXPECT_TRUE(patch->isClosed() && patch->getSize() == up.size() + low.size());
        const bool bSplit = patch->splitClosedPatchKill(bStrict);
        for (const Triangles& side : {up, low})
            EXPECT_TRUE(numAlive(side) == 0 || numAlive(side) == side.size());
        EXPECT_EQ(bSplit, numAlive(patch->vT) < patch->getSize());
        for (const CEdge* const e : mesh.vCE)
        {
            const bool bInside = e->getDegree() == 2 && patch->isMember(e->vT[0]) && patch->isMember(e->vT[1]);
            EXPECT_FALSE(bSplit && bInside && e->vT[0]->needFlip(e->vT[1])) << "what stays runs alike";
        }
        return std::pair<bool, bool>(numAlive(up) > 0, numAlive(low) > 0);
    };
    using Left = std::pair<bool, bool>;
    EXPECT_EQ(split(4, 4, false, false, true), Left(true, false)) << "of equal sides the second";
    EXPECT_EQ(split(4, 6, false, false, true), Left(false, true));
    EXPECT_EQ(split(6, 6, false, true, true), Left(false, true));
    EXPECT_EQ(split(6, 24, true, false, true), Left(true, false)) << "tied, although smaller";
    EXPECT_EQ(split(6, 6, true, true, true), Left(true, true));
    EXPECT_EQ(split(6, 6, true, true, false), Left(true, false));
}

TEST_F(TopTest, StepsAreRankedByTheFoldAndCrossNonManifoldEdges)
{
    const VCD a = anyVertex({0, 0, 0}), b = anyVertex({1, 0, 0}), p = anyVertex({0, 1, 0}), q = anyVertex({0, -1, 1});
    const Triangles pages = create({{a, b, p}, {b, a, q}});
    const auto patch = patchOf(pages);
    CEdge* const e = mesh.getEdge(a, b);
    for (int i = 0; i < 2; ++i)
    {
        EXPECT_NEAR(ConEdge(&mesh, e, *patch).angle, 45.0, 1e-6) << "whatever the winding";
        pages[1]->flipNNV();
    }
    EXPECT_TRUE(ConEdge(&mesh, e, *patch).bSameSide);
    CTriangle* const third = create(a, b, anyVertex({0, 0, 1}));
    const ConEdge across(&mesh, e, *patch);
    EXPECT_NEAR(across.angle, 135.0, 1e-6);
    EXPECT_FALSE(across.bSameSide);
    patch->add(third);
    EXPECT_EQ(ConEdge(&mesh, e, *patch).angle, 181.0);
    EXPECT_TRUE(hasBug("deg>1", [&] { ConEdge(&mesh, mesh.getEdge(a, p), *patch); }));
}

TEST_F(TopTest, GrowthDropsStepsOfEqualAngles)
{
    // Both sides are plane, so that all of their steps have the angle 0: the second side never gets beyond its first
    // triangle, and the first side takes the rest of it across the rim.
    const std::vector<VCD> rim = squareRim();
    create(sheet(rim, {2, 2, 0}, 4));
    create(sheet(rim, {2, 2, 0}, 4));
    addFlanges(rim, 1, 1.0);
    CPatch* const patch = createPatches()[0];
    EXPECT_TRUE(patch->splitClosedPatchKill(true));
    EXPECT_EQ(numAlive(patch->vT), 7u);
}

TEST_F(TopTest, ThickBodiesAreNotSplitUnlessTheyAreSmall)
{
    // A double pyramid of height h is 2 h / 3 thick in the mean.
    const auto splits = [this](int numPerSide, double height)
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
        return createPatches()[0]->splitClosedPatchKill(true);
    };
    EXPECT_TRUE(splits(49, .75));
    EXPECT_FALSE(splits(50, .75));
    EXPECT_TRUE(splits(50, .55));
    EXPECT_FALSE(splits(10, 8.0));
    EXPECT_TRUE(splits(9, 8.0)) << "up to 19 triangles always";
}

TEST_F(TopTest, ClosedPatchesAreTurnedOutwardsByTheirCells)
{
    const VCD n = vertex(9, 9, 12), s = vertex(9, 9, 6);
    const VCD w[4] = {vertex(12, 9, 9), vertex(9, 12, 9), vertex(6, 9, 9), vertex(9, 6, 9)};
    std::vector<Corners> list;
    for (int i = 0; i < 4; ++i)
        list.insert(list.end(), {Corners{w[i], w[(i + 1) % 4], n}, Corners{w[(i + 1) % 4], w[i], s}});
    const auto patch = patchOf(create(list));
    EXPECT_NEAR(patch->computeOrientedVolume(), 36.0, 1e-9); // two pyramids over a square of area 18
    for (const unsigned flips : {0xffu, 0x5au})
    {
        for (size_t i = 0; i < 8; ++i)
            if ((flips >> i & 1) != 0)
                patch->vT[i]->flipNNV();
        patch->intraOrientation();
        EXPECT_NEAR(patch->computeOrientedVolume(), 36.0, 1e-9);
    }
    for (Point3& p : ownedPoints)
        p.set(-p.x(), p.y(), p.z());
    patch->intraOrientation();
    EXPECT_NEAR(patch->computeOrientedVolume(), -36.0, 1e-9) << "cells decide, not points";

    CTriangle* const flat = create(vertex(3, 3, 0), vertex(3, 4, 0), vertex(4, 3, 0));
    const VCD second = flat->c1;
    const auto lowest = patchOf({flat});
    EXPECT_NE(outputOf([&] { lowest->orientPatch(); }).find("reorientation failed"), std::string::npos);
    EXPECT_EQ(flat->c1, second);
}

TEST_F(TopTest, OrientationSpreadsOverEverything)
{
    const u64 n = 12; // a torus of squares, with one triangle missing and a flap
    std::vector<VCD> v;
    for (u64 i = 0; i < n * n; ++i)
        v.push_back(anyVertex({double(i / n), double(i % n), 0.0}));
    for (u64 i = 0; i < n * n; ++i)
    {
        const u64 down = (i + n) % (n * n), right = i / n * n + (i + 1) % n, both = (right + n) % (n * n);
        create({{v[i], v[down], v[both]}, {v[i], v[both], v[right]}});
    }
    create(v[70], v[71], anyVertex({0, 0, 5}));
    mesh.vT[40]->kill(&mesh);
    std::mt19937 random(11);
    for (CTriangle* const t : mesh.vT)
        if (t->isAlive() && random() % 2 == 0)
            t->flipNNV();
    const VCD second = mesh.vT[0]->c1;
    std::vector<CPatch*> patches;
    top.createPatchesOrient(mesh.vT, patches);
    EXPECT_TRUE(isConsistent(mesh));
    EXPECT_EQ(mesh.vT[0]->c1, second) << "the first triangle decides";
    ASSERT_EQ(patches.size(), 2u);
    EXPECT_EQ(patches[0]->getSize() + patches[1]->getSize(), numAliveInMesh());
    EXPECT_TRUE(std::is_partitioned(patches[0]->vT.begin(), patches[0]->vT.end(),
                                    [](const CTriangle* t) { return t->hasOnlyHalfEdges(); }));
    EXPECT_TRUE(hasBug("vPatches.empty()", [&] { top.createPatchesOrient(mesh.vT, patches); }));
    for (CPatch* const patch : patches)
        delete patch;
}

TEST_F(TopTest, TinyRegionsAtLongBordersDie)
{
    const auto dies = [this](size_t numTriangles, size_t numOpen, size_t maxSize)
    {
        mesh.reset();
        const Triangles t = strip(numTriangles, numOpen);
        const size_t numOthers = numAliveInMesh() - t.size();
        top.killTinyBorderPatches(maxSize);
        EXPECT_EQ(numAliveInMesh() - numAlive(t), numOthers);
        return numAlive(t) == 0;
    };
    EXPECT_TRUE(dies(6, 1, 40));
    EXPECT_FALSE(dies(7, 1, 40));
    EXPECT_TRUE(dies(7, 2, 40));
    EXPECT_TRUE(dies(24, 2, 40));
    EXPECT_FALSE(dies(25, 2, 40));
    EXPECT_FALSE(dies(25, 24, 40)) << "24 / 25 counts as 0";
    EXPECT_TRUE(dies(25, 25, 40));
    EXPECT_TRUE(dies(8, 10, 8));
    EXPECT_FALSE(dies(9, 11, 8));
}

TEST_F(TopTest, OneDiagonalOfASquareStays)
{
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

TEST_F(TopTest, FlapsAtEdgesOfDegree3Die)
{
    const VCD a = vertex(5, 5, 5), b = vertex(6, 5, 5), x = vertex(9, 9, 9), y = vertex(9, 8, 4), z = vertex(4, 8, 9);
    const Triangles body = glue(a, b);
    const Triangles large = create({{a, b, x}});
    top.repairDeg3();
    EXPECT_TRUE(numAlive(large) == 0 && numAlive(body) == 4) << "the free side decides, not the area";

    // The flap continues into two ears: it goes with the last one.
    const Triangles flap = create({{a, b, x}, {b, y, x}, {a, x, z}});
    top.repairDeg3();
    EXPECT_TRUE(!flap[0]->isAlive() && flap[1]->isAlive() && !flap[2]->isAlive() && numAlive(body) == 4);

    mesh.reset();
    const VCD k = vertex(2, 2, 9);
    glue(a, b);
    const Triangles oneEar = create({{a, b, x}, {b, y, x}, {a, x, z}, {x, z, k}});
    top.repairDeg3();
    EXPECT_TRUE(!oneEar[0]->isAlive() && !oneEar[1]->isAlive() && oneEar[2]->isAlive() && oneEar[3]->isAlive());

    mesh.reset();
    create({{a, b, x}, {a, b, y}, {a, b, z}}); // three border edges at both ends: not evil
    top.repairDeg3();
    EXPECT_EQ(numAliveInMesh(), 3u);
}

TEST_F(TopTest, EarsAndLooseTrianglesAtBorders)
{
    const VCD a = anyVertex({5, 5, 5}), b = anyVertex({9, 5, 5}), p = anyVertex({7, 9, 5}), q = anyVertex({7, 1, 5}),
              apex = anyVertex({7, 5, 5.5}), far = anyVertex({7, 12, 5.5});
    create({{a, b, p}, {b, a, q}});
    top.integrateCCD(mesh.getEdge(a, p));
    EXPECT_EQ(numAliveInMesh(), 2u) << "properly attached";
    create(a, b, apex);
    top.integrateCCD(mesh.getEdge(a, apex));
    EXPECT_EQ(numAliveInMesh(), 4u) << "the apex went into both neighbours";
    EXPECT_EQ(mesh.getEdge(apex, p)->getDegree(), 2);

    mesh.reset();
    create({{a, b, p}, {b, a, q}, {a, b, far}});
    top.integrateCCD(mesh.getEdge(a, far));
    EXPECT_EQ(numAliveInMesh(), 2u) << "no room for the apex";

    mesh.reset();
    create(a, b, p);
    std::vector<CEdge*> borders;
    top.getBordersKillDeg1nn(borders);
    ASSERT_EQ(borders.size(), 3u);
    for (CEdge* const e : borders) // out of date after the first
        top.integrateCCD(e);
    EXPECT_EQ(numAliveInMesh(), 0u);
    create(a, b, p);
    glue(a, b);
    glue(a, p);
    borders.clear();
    top.getBordersKillDeg1nn(borders);
    EXPECT_TRUE(borders.empty() && numAliveInMesh() == 8) << "between non-manifold edges";
}

TEST_F(TopTest, DegenerateTrianglesGoOrTheirApexMoves)
{
    const VCD a = anyVertex({2, 2, 2}), b = anyVertex({4, 2, 2}), v = anyVertex({3, 2, 2}), w = anyVertex({3.5, 2, 2}),
              q = anyVertex({3, 4, 2});
    create({{a, v, b}, {v, a, q}}); // the long edge is a border
    top.killDegenerate();
    EXPECT_TRUE(!mesh.vT[0]->isAlive() && mesh.vT[1]->isAlive());

    mesh.reset();
    create({{a, v, b}, {a, b, w}});
    EXPECT_NE(outputOf([&] { top.killDegenerate(); }).find("No success of trySplitNeigsKillT()"), std::string::npos);
    EXPECT_EQ(numAliveInMesh(), 2u);

    const Triangles side = create({{v, a, q}, {b, v, q}});
    outputOf([&] { top.killDegenerate(); });
    EXPECT_GT(mesh.getAvgPoint(v).y(), 2.0) << "the corner off the longest edge is tried first";
    EXPECT_TRUE(mesh.getAvgPoint(a) == Point3(2, 2, 2) && mesh.getAvgPoint(b) == Point3(4, 2, 2));
}

TEST_F(TopTest, EqualPointsAreMovedApart)
{
    vertexAt(9, {1, 2, 3});
    for (const VCD v : {1, 2, 3, 4})
        vertexAt(v, {5, 6, 7});
    for (Point3& p : ownedPoints)
        p.setColor(1, 2, 3, 4);
    std::srand(1);
    top.oneCoordTriplePerCCD();
    EXPECT_TRUE(mesh.getAvgPoint(9) == Point3(1, 2, 3) && mesh.getAvgPoint(1) == Point3(5, 6, 7));
    std::set<Point3> points;
    for (const VCD v : {1, 2, 3, 4})
    {
        const Point3 p = mesh.getAvgPoint(v);
        points.insert(p);
        EXPECT_LT((p - Point3(5, 6, 7)).getMaxAbsComponent(), 0.01);
        EXPECT_TRUE(v == 1 ? p.hasColor() : p.r + p.a + p.hasColor() == 0);
    }
    EXPECT_EQ(points.size(), 4u);
}

namespace
{
/// The cells about a sphere with noise and an opening, extracted and repaired by f(voro, top): triangles as wound, in
/// order of the mesh.
template <class F>
std::vector<Corners> repairShell(double noise, double height, const F& f)
{
    Calc calc{0.0, 0.0, 0.0, 64.0, 64.0, 64.0, 6};
    std::mt19937 random(5);
    const auto chance = [&random](double p) { return random() % 10000 < p * 10000; };
    std::map<CCD, Point3> points;
    std::map<CCD, Bundle*> bundles;
    std::deque<Bundle> owned;
    for (int i = 0; i < 64 * 64 * 64; ++i)
    {
        const int x = i / 4096 - 32, y = i / 64 % 64 - 32, z = i % 64 - 32;
        const double off = std::fabs(std::sqrt(double(x * x + y * y + z * z)) - 20.0);
        const CCD c = calc.rcd2ccd(rcd::fromXYZ(u64(x + 32), u64(y + 32), u64(z + 32)));
        if (z > height || off >= 1.5 || (off <= 0.5 ? chance(noise * 0.1) : !chance(noise)))
            continue;
        points[c] = calc.getMidPoint(c);
        bundles[c] = &owned.emplace_back(Bundle{&points[c], c, nullptr, points[c]});
    }
    std::vector<CCD> fill;
    std::srand(1);
    progressForReco();
    Voro voro(&calc, bundles, fill, TM_FAT);
    voro.fatExtractTriangles();
    Top top(voro.getCMesh(), &calc);
    outputOf([&] { f(voro, top); });
    std::vector<Corners> out;
    for (const CTriangle* const t : voro.getCMesh()->vT)
        if (t->isAlive())
            out.push_back({t->c0, t->c1, t->c2});
    return out;
}

void finalize(Voro& voro, Top& top)
{
    top.finalizeReconstructedMesh(&voro);
    for (const CTriangle* const t : top.pCMesh->vT)
        EXPECT_EQ(t->getPatch(), nullptr);
}

/// The completion of cells with sets in place of sorted lists.
void completeNaively(Voro& voro, Top& top)
{
    std::vector<CEdge*> borders, deg4;
    top.getBordersKillDeg1nn(borders);
    top.pCMesh->getDegN(4, deg4);
    std::vector<CCD> cells;
    const auto addCommon = [&](const std::set<CCD>& corners)
    {
        std::map<CCD, size_t> count;
        for (const CCD corner : corners)
        {
            CCD block[8] = {corner};
            top.pCalc->completeArrayPlus(block);
            for (const CCD c : block)
                if (++count[c] == corners.size())
                    cells.push_back(c);
        }
    };
    for (const CEdge* const e : borders)
        addCommon({e->v0, e->v1, e->vT[0]->getThirdCCD(e->v0, e->v1)});
    for (const CEdge* const e : deg4)
        addCommon({e->v0, e->v1});
    voro.meshAgain(cells)->averageBundles();
    top.unifyDiagonals();
}
} // namespace

TEST(TopRepair, IsTheSameOnAnyNumberOfCpusAndLeavesAClosedSurfaceAsItIs)
{
    const auto leave = [](Voro&, Top&) {};
    const auto checked = [](Voro& voro, Top& top)
    {
        finalize(voro, top);
        EXPECT_TRUE(isConsistent(*top.pCMesh));
    };
    EXPECT_EQ(repairShell(0.0, 40.0, checked).size(), repairShell(0.0, 40.0, leave).size());
    const std::vector<Corners> noisy = repairShell(0.1, 10.0, finalize);
    EXPECT_GT(noisy.size(), 1000u);
    for (const int numCPU : {1, 2, 3, 7})
    {
        CpuCount cpus(numCPU);
        EXPECT_EQ(repairShell(0.1, 10.0, finalize), noisy) << numCPU;
    }
}

TEST(TopRepair, CellsAreCompletedWhereBlocksMeet)
{
    EXPECT_EQ(repairShell(0.1, 10.0, [](Voro& voro, Top& top) { top.cbsComplete(&voro); }),
              repairShell(0.1, 10.0, completeNaively));
}
