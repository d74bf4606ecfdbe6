// Clean-up, smoothing and colours of the refined mesh.
#include "base/Progress.h"
#include "geometry/ColorUtils.h"
#include "geometry/freeFunctions.h"
#include "helpers/capture.h"
#include "helpers/mesh_shapes.h"
#include "refined/RMesh.h"
#include "refined/RPatch.h"
#include "refined/RTop.h"
#include "zav/Mesh.h"
#include "zav/meshOperations.h"
#include "zav/zav_api_functions.h"

#include <gtest/gtest.h>

#include <set>

using namespace MIRT_ZAV;
using namespace test;

namespace
{
class RMeshCleanup : public ::testing::Test
{
protected:
    std::mt19937 random{7};
    std::vector<Point3*> v;

    void SetUp() override { progressForReco(); }
    void TearDown() override { getThreadProgress()->reset(); }
};

/// Number of regular edges whose triangles are wound against each other.
int countTurnedEdges(const RMesh& mesh)
{
    int n = 0;
    for (const REdge* const pRE : mesh.getREdgesRef())
        if (RTriangle * t0, *t1; pRE->getTwoTriangles(t0, t1, true))
            n += t0->needFlip(t1);
    return n;
}

/// Collapses degenerate triangles one after the other: of each, the corner that turns its other triangles least moves
/// along an edge.
void killDegeneratePlainly(RMesh& mesh)
{
    std::vector<RTriangle*> stack = mesh.vRT;
    while (!stack.empty())
    {
        const RTriangle* const pRT = stack.back();
        stack.pop_back();
        if (!pRT->isAlive())
            continue;
        const Vector3 u = *pRT->pVtx[1] - *pRT->pVtx[0], w = *pRT->pVtx[2] - *pRT->pVtx[0];
        const double angle = getAngleDegree(normalize(u), normalize(w));
        if (!u.isZero() && !w.isZero() && angle >= 0.01 && angle <= 179.99)
            continue;
        double best = 361.0;
        Point3 *pSrc = nullptr, *pTrg = nullptr;
        for (Point3* const c : pRT->pVtx)
        {
            std::vector<REdge*> edges;
            mesh.getIncidentRE(c, edges);
            for (const REdge* const pRE : edges)
            {
                double worst = 0.0;
                mesh.forEachIncidentT(
                    c, [&](const RTriangle* t)
                    { worst = std::max(worst, t->getDevIfRepl(t->getICI(c), *pRE->getOtherPoint(c), true)); });
                if (worst < best)
                {
                    best = worst;
                    pSrc = c;
                    pTrg = pRE->getOtherPoint(c);
                }
            }
        }
        mesh.exchangeCorner(pSrc, pTrg);
        mesh.getIncidentT(pTrg, stack);
    }
    mesh.removeDups();
}

/// The vertices, by their numbers, at the other ends of a vertex's edges, dead ones included.
std::vector<size_t> getNeighbours(const RMesh& mesh, Point3* p)
{
    std::vector<size_t> neighbours;
    for (const REdge* const pRE : mesh.vRE)
        if (pRE->has(p))
            neighbours.push_back(mesh.mmVtxT.indexOf(pRE->getOtherPoint(p)));
    return neighbours;
}

bool isOnBorder(const RMesh& mesh, const Point3* p)
{
    return std::any_of(mesh.vRE.begin(), mesh.vRE.end(),
                       [p](const REdge* pRE) { return pRE->has(p) && pRE->getDegree() == 1; });
}

Point3 meanOf(const std::vector<Point3>& points, const std::vector<size_t>& some)
{
    Vector3 sum;
    for (const size_t i : some)
        sum += toVector(points[i]);
    const double n = double(some.size());
    return {sum.x() / n, sum.y() / n, sum.z() / n};
}
} // namespace

TEST_F(RMeshCleanup, DuplicatesOfAnyWindingGoAndTheEarliestStays)
{
    Shape shape{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}}, {}};
    shape.triangles = {{0, 1, 2}, {0, 1, 3}, {2, 1, 0}, {0, 1, 4}, {3, 0, 1}};
    const RMeshPtr mesh = makeMesh(shape, v);
    EXPECT_EQ(mesh->removeDups(), 6u); // each of two is found on its three edges
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(mesh->vRT[i]->isAlive(), i != 2 && i != 4);

    // Each edge keeps the first of equal triangles in its own list. Where two edges list them the other way round, the
    // one kills the one and the other the other: both go. Results depend on it.
    const RMeshPtr both = makeMesh({shape.points, {{0, 1, 3}, {0, 1, 2}, {1, 0, 2}}}, v);
    both->vRT[0]->kill(both.get()); // the last one takes its place on the edge of 0 and 1
    EXPECT_EQ(both->removeDups(), 3u);
    EXPECT_EQ(both->getNumT(), 0u);
}

TEST_F(RMeshCleanup, PatchesEndAtBordersAndNonManifoldEdgesAndAreWoundAlike)
{
    Shape torus = makeTorus(12, 9, 0.2, random);
    turnSomeTriangles(torus, random);
    const std::array<int, 3> first = torus.triangles.front();
    RMeshPtr mesh = makeMesh(torus, v);
    EXPECT_EQ(mesh->createPatchesOrient(), 1u);
    EXPECT_EQ(countTurnedEdges(*mesh), 0);
    EXPECT_EQ(mesh->vPatches[0]->getTriangles().size(), torus.triangles.size());
    EXPECT_EQ(mesh->vRT[0]->pVtx[0], v[size_t(first[0])]); // the first triangle fixes the winding
    EXPECT_EQ(mesh->vRT[0]->pVtx[1], v[size_t(first[1])]);

    // Three sheets on one edge are three patches, as none is the others' continuation; their windings stay.
    Shape fan{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}}, {{0, 1, 2}, {0, 1, 3}, {0, 1, 4}}};
    mesh = makeMesh(fan, v);
    EXPECT_EQ(mesh->createPatchesOrient(), 3u);
    for (const RTriangle* const pRT : mesh->vRT)
        EXPECT_EQ(pRT->getRTriOri(v[0], v[1]), 1);
}

TEST_F(RMeshCleanup, RandomSoupsCollapseAsOneTriangleAfterTheOtherWould)
{
    for (int run = 0; run < 300; ++run)
    {
        Shape soup;
        for (int i = 0; i < 14; ++i)
            soup.points.emplace_back(double(random() % 3), double(random() % 3) * (run % 2 == 0 ? 1.0 : 1e-4),
                                     double(random() % 2));
        for (int i = 0; i < 40; ++i)
        {
            const int a = int(random() % 14), b = int(random() % 14), c = int(random() % 14);
            if (a != b && b != c && c != a)
                soup.triangles.push_back({a, b, c});
        }
        const RMeshPtr mesh = makeMesh(soup, v), plain = makeMesh(soup, v);
        RTop(mesh.get()).finalizeBase();
        plain->removeDups();
        plain->createPatchesOrient();
        killDegeneratePlainly(*plain);
        for (size_t i = 0; i < mesh->vRT.size(); ++i)
        {
            const RTriangle &t = *mesh->vRT[i], &u = *plain->vRT[i];
            ASSERT_EQ(t.isAlive(), u.isAlive());
            for (int k = 0; k < 3; ++k)
                ASSERT_EQ(mesh->mmVtxT.indexOf(t.pVtx[k]), plain->mmVtxT.indexOf(u.pVtx[k]));
        }
        ASSERT_EQ(mesh->removeDups(), 0u);
    }
}

TEST_F(RMeshCleanup, ZeroVerticesRelaxOneAfterTheOther)
{
    for (const int numZeros : {3, 4, 40}) // up to 3 stay
        for (const int numCPU : {1, 3})
        {
            const CpuCount cpus(numCPU);
            const Shape shape = makeGrid(9, 9, 0.5, random);
            const RMeshPtr mesh = makeMesh(shape, v);
            std::set<size_t> zeros;
            while (int(zeros.size()) < numZeros)
                zeros.insert(random() % 81);
            for (const size_t i : zeros)
                mesh->vZeroVtx.push_back(v[i]);
            std::vector<Point3> expected = shape.points;
            for (int round = 0; round < 5 && numZeros > 3; ++round)
                for (const size_t i : zeros)
                    if (!isOnBorder(*mesh, v[i]))
                    {
                        std::vector<size_t> group = getNeighbours(*mesh, v[i]);
                        group.push_back(i);
                        expected[i] = meanOf(expected, group);
                    }
            mesh->smoothZeros(5);
            for (size_t i = 0; i < v.size(); ++i)
            {
                EXPECT_NEAR((*v[i] - expected[i]).length(), 0.0, 1e-12);
                EXPECT_TRUE(mesh->hasVertex(*v[i]));
            }
        }
}

TEST_F(RMeshCleanup, LaplacianSmoothingMovesAllAtOnceAndKeepsBorders)
{
    Shape shape = makeGrid(8, 8, 0.2, random);
    shape.points[18].setColor(1, 2, 3, 4);
    const MeshPtr mesh = std::make_shared<Mesh>(makeMesh(shape, v).release());
    RMesh& m = *mesh->getRMesh();
    m.vRT[40]->kill(&m);                                                           // opens a border inside
    ASSERT_NE(m.getEdge(v[9], v[18])->tryFlipEdge(&m, nullptr, nullptr), nullptr); // goes on pulling its ends
    std::vector<Point3> expected = shape.points;
    for (int round = 0; round < 3; ++round)
    {
        const std::vector<Point3> old = expected;
        for (size_t i = 0; i < v.size(); ++i)
            if (!isOnBorder(m, v[i]))
                expected[i] = meanOf(old, getNeighbours(m, v[i]));
    }
    getThreadProgress()->reset();
    laplacianSmoothing(mesh, 3);
    EXPECT_EQ(getStageTimings().front().label, "Smoothing");
    for (size_t i = 0; i < v.size(); ++i)
        EXPECT_NEAR((*v[i] - expected[i]).length(), 0.0, 1e-12);
    EXPECT_EQ(v[18]->b, 3);
}

TEST_F(RMeshCleanup, ColourCreepsInwardsAsARescanOfAllVerticesWould)
{
    Shape shape = makeGrid(14, 14, 0.2, random);
    const Shape island = makeGrid(3, 3, 0.2, random);
    for (const auto& [a, b, c] : island.triangles)
        shape.triangles.push_back({a + 196, b + 196, c + 196});
    shape.points.insert(shape.points.end(), island.points.begin(), island.points.end());
    const auto byte = [this] { return static_cast<unsigned char>(random()); };
    for (size_t i = 0; i < 196; ++i)
        if (random() % 6 == 0)
            shape.points[i].setColor(byte(), byte(), 255, 7);
    const RMeshPtr mesh = makeMesh(shape, v);

    std::vector<Point3> expected = shape.points;
    for (bool bNew = true; bNew;)
    {
        bNew = false;
        const std::vector<Point3> old = expected;
        for (size_t i = 0; i < old.size(); ++i)
        {
            double n = 0, sum[4] = {};
            for (const size_t j : getNeighbours(*mesh, v[i]))
                if (const Point3& p = old[j]; p.hasColor())
                {
                    ++n;
                    sum[0] += p.r, sum[1] += p.g, sum[2] += p.b, sum[3] += p.a;
                }
            if (old[i].hasColor() || n == 0)
                continue;
            const auto mean = [&](int k) { return static_cast<unsigned char>(sum[k] / n + 0.5); };
            expected[i].setColor(mean(0), mean(1), mean(2), mean(3));
            bNew = true;
        }
    }
    mesh->colorizeFilledHoles();
    for (size_t i = 0; i < v.size(); ++i)
    {
        const auto bytes = [](const Point3& p) { return std::array{p.r, p.g, p.b, p.a}; };
        EXPECT_EQ(v[i]->hasColor(), i < 196);
        EXPECT_EQ(bytes(*v[i]), bytes(expected[i]));
    }
}

TEST_F(RMeshCleanup, ContrastIsStretchedBetweenTheCuts)
{
    using Greys = std::vector<int>;
    const auto spread = [&](const Greys& greys, double low, double high)
    {
        Shape shape = makeGrid(2, 5, 0.0, random);
        for (size_t i = 0; i < greys.size(); ++i)
        {
            const auto grey = static_cast<unsigned char>(greys[i]);
            shape.points[i].setColor(grey, grey, grey, 9);
        }
        const RMeshPtr mesh = makeMesh(shape, v);
        mesh->contrastSpread(low, high);
        Greys after;
        for (const Point3* const p : v)
            if (p->hasColor())
                after.push_back(p->g == p->r && p->b == p->r && p->a == 9 ? p->r : -1);
        return after;
    };
    // Without cuts from 0 to 255: nothing changes. 10 vertices have 30 values; those without colour count, too.
    EXPECT_EQ(spread({0, 50, 100, 150, 255}, 0.0, 0.0), (Greys{0, 50, 100, 150, 255}));
    // Targets 7 and 7 of 30: the levels up to 99 hold 6 values, those from 200 on 9. So 99 becomes 0, and 201 becomes
    // 255.
    EXPECT_EQ(spread({10, 50, 100, 200, 250, 255}, 0.24, 0.24), (Greys{0, 0, 3, 253, 255, 255}));
    EXPECT_EQ(spread({100, 110, 120}, 0.5, 0.5), (Greys{0, 128, 255})); // a range of 20 levels is stretched as it is
    EXPECT_EQ(spread({70, 70, 70}, 0.1, 0.1), (Greys{0, 0, 0}));        // no range at all
    // The bright target is never reached, which puts the bright end at 0. Numbers that make no sense do no harm.
    EXPECT_EQ(spread({10, 100, 200}, NAN, INFINITY), (Greys{255, 255, 255}));
    EXPECT_EQ(spread({0, 100, 200}, -1e300, -1e300), (Greys{0, 100, 200}));
}

TEST(ColorUtils, DifferencesAgreeWithTheDefinition)
{
    const auto delta = [](ColorUtils::Rgb x, ColorUtils::Rgb y) { return ColorUtils::getColorDeltaE(x, y); };
    EXPECT_NEAR(delta({255, 255, 255}, {0, 0, 0}), 100.0, 0.01);
    EXPECT_NEAR(delta({255, 0, 0}, {0, 255, 0}), 170.58, 0.02);
    EXPECT_NEAR(delta({0, 0, 255}, {255, 255, 0}), 235.15, 0.05);
    EXPECT_NEAR(delta({10, 10, 10}, {12, 11, 9}), 0.9187, 0.001); // the linear part near black
    Point3 p, q;
    p.setColor(255, 255, 255, 0);
    EXPECT_NEAR(getColorDiffCIE76(&p, &q), 100.0, 0.01); // the flags don't count
    EXPECT_EQ(getColorDiffCIE76(&p, &p), 0.0);
}
