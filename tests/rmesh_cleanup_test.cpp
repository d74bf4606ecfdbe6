// Clean-up, smoothing and colours of the refined mesh.
#include "ColorUtils.h"
#include "Mesh.h"
#include "Progress.h"
#include "RMesh.h"
#include "RPatch.h"
#include "RTop.h"
#include "capture.h"
#include "freeFunctions.h"
#include "meshOperations.h"
#include "mesh_shapes.h"
#include "zav_api_functions.h"

#include <gtest/gtest.h>

#include <map>
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

/// Degenerate triangles one after the other, as they come.
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

std::vector<Point3> copyOf(const std::vector<Point3*>& v)
{
    std::vector<Point3> copy;
    for (const Point3* const p : v)
        copy.push_back(*p);
    return copy;
}
} // namespace

TEST_F(RMeshCleanup, DuplicatesOfAnyWindingGoAndTheEarliestStays)
{
    Shape shape{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}}, {}};
    shape.triangles = {{0, 1, 2}, {0, 1, 3}, {2, 1, 0}, {0, 1, 4}, {3, 0, 1}};
    const RMeshPtr mesh = makeMesh(shape, v);
    EXPECT_EQ(mesh->removeDups(), 6u); // each of two is found on its three edges
    std::vector<bool> alive;
    for (const RTriangle* const pRT : mesh->vRT)
        alive.push_back(pRT->isAlive());
    EXPECT_EQ(alive, (std::vector<bool>{true, true, false, true, false}));
    EXPECT_EQ(mesh->removeDups(), 0u);

    // Each edge judges for itself: where the order of two equal triangles differs between edges, both go.
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

    // A third sheet on an edge separates all three; windings across it stay as they are.
    Shape fan{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}}, {{0, 1, 2}, {0, 1, 3}, {0, 1, 4}}};
    mesh = makeMesh(fan, v);
    EXPECT_EQ(mesh->createPatchesOrient(), 3u);
    for (const RTriangle* const pRT : mesh->vRT)
        EXPECT_EQ(pRT->getRTriOri(v[0], v[1]), 1);

    // A band with half a turn can't be oriented; it is one patch all the same.
    Shape band{{}, {}};
    for (int i = 0; i < 7; ++i)
        for (const double side : {-0.3, 0.3})
        {
            const double u = 2 * M_PI * i / 7, w = side * std::cos(u / 2), h = side * std::sin(u / 2);
            band.points.emplace_back((1 + w) * std::cos(u), (1 + w) * std::sin(u), h);
        }
    for (int i = 0; i < 7; ++i)
    {
        const int a = 2 * i, b = 2 * i + 1, c = i < 6 ? a + 2 : 1, d = i < 6 ? b + 2 : 0;
        band.triangles.insert(band.triangles.end(), {{a, b, c}, {b, d, c}});
    }
    mesh = makeMesh(band, v);
    EXPECT_EQ(mesh->createPatchesOrient(), 1u);
    EXPECT_EQ(countTurnedEdges(*mesh), 1);
    EXPECT_EQ(mesh->createPatchesOrient(), 1u); // again: patches are replaced
    EXPECT_EQ(mesh->vPatches[0]->getTriangles().size(), 14u);
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
        std::vector<Point3*> w;
        const RMeshPtr mesh = makeMesh(soup, v), plain = makeMesh(soup, w);
        RTop(mesh.get()).finalizeBase();
        plain->removeDups();
        plain->createPatchesOrient();
        killDegeneratePlainly(*plain);
        std::set<std::set<Point3*>> triangles;
        for (size_t i = 0; i < mesh->vRT.size(); ++i)
        {
            const RTriangle &t = *mesh->vRT[i], &u = *plain->vRT[i];
            ASSERT_EQ(t.isAlive(), u.isAlive());
            for (int k = 0; k < 3; ++k)
                ASSERT_EQ(std::find(v.begin(), v.end(), t.pVtx[k]) - v.begin(),
                          std::find(w.begin(), w.end(), u.pVtx[k]) - w.begin());
            const bool bNew = !t.isAlive() || triangles.insert({t.pVtx[0], t.pVtx[1], t.pVtx[2]}).second;
            EXPECT_TRUE(bNew);
        }
    }
}

TEST_F(RMeshCleanup, ZeroVerticesRelaxOneAfterTheOther)
{
    for (const int numZeros : {3, 4, 40})
        for (const int numCPU : {1, 3})
        {
            const CpuCount cpus(numCPU);
            const Shape shape = makeGrid(9, 9, 0.5, random);
            const RMeshPtr mesh = makeMesh(shape, v);
            std::set<int> zeros;
            while (int(zeros.size()) < numZeros)
                zeros.insert(int(random() % 81));
            for (const int i : zeros)
                mesh->vZeroVtx.push_back(v[size_t(i)]);
            std::vector<Point3> expected = shape.points;
            for (int round = 0; round < 5 && numZeros > 3; ++round)
                for (const int i : zeros)
                {
                    const int x = i / 9, y = i % 9;
                    if (x == 0 || y == 0 || x == 8 || y == 8)
                        continue;
                    Vector3 sum;
                    for (const int j : {i, i - 10, i - 9, i - 1, i + 1, i + 9, i + 10})
                        sum += toVector(expected[size_t(j)]);
                    expected[size_t(i)].set(sum.x() / 7, sum.y() / 7, sum.z() / 7);
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
    Shape shape = makeGrid(8, 8, 0.5, random);
    for (size_t i = 0; i < shape.points.size(); ++i)
        shape.points[i].setColor(static_cast<unsigned char>(i), 1, 2, 3);
    RMesh* const pRMesh = makeMesh(shape, v).release();
    const MeshPtr mesh = std::make_shared<Mesh>(pRMesh);
    pRMesh->vRT[40]->kill(pRMesh); // opens a border inside
    std::set<const Point3*> border(std::begin(pRMesh->vRT[40]->pVtx), std::end(pRMesh->vRT[40]->pVtx));
    std::vector<Point3> expected = shape.points;
    for (int round = 0; round < 3; ++round)
    {
        const std::vector<Point3> old = expected;
        for (int i = 0; i < 64; ++i)
        {
            const int x = i / 8, y = i % 8;
            if (x == 0 || y == 0 || x == 7 || y == 7 || border.count(v[size_t(i)]) != 0)
                continue;
            Vector3 sum;
            for (const int j : {i - 9, i - 8, i - 1, i + 1, i + 8, i + 9})
                sum += toVector(old[size_t(j)]);
            expected[size_t(i)].set(sum.x() / 6, sum.y() / 6, sum.z() / 6);
        }
    }
    laplacianSmoothing(mesh, 3);
    for (size_t i = 0; i < v.size(); ++i)
    {
        EXPECT_NEAR((*v[i] - expected[i]).length(), 0.0, 1e-12);
        EXPECT_EQ(v[i]->r, i); // the colour stays
    }
    const std::vector<Point3> before = copyOf(v);
    laplacianSmoothing(mesh, 0);
    EXPECT_EQ(copyOf(v), before);
}

TEST_F(RMeshCleanup, LaplacianSmoothingOfDeadEdgesAndCoincidentVertices)
{
    const auto meshOf = [this](const Shape& shape) { return std::make_shared<Mesh>(makeMesh(shape, v).release()); };
    Shape grid = makeGrid(4, 4, 0.2, random);
    MeshPtr mesh = meshOf(grid);
    RMesh& m = *mesh->getRMesh();
    ASSERT_NE(m.getEdge(v[5], v[10])->tryFlipEdge(&m, nullptr, nullptr), nullptr);
    getThreadProgress()->reset();
    laplacianSmoothing(mesh, 1);
    EXPECT_EQ(getStageTimings().front().label, "Smoothing");
    for (const auto& [i, neighbours] : {std::pair(5, std::vector{0, 1, 4, 6, 9, 10}), // 5 - 10 still pulls
                                        std::pair(6, std::vector{1, 2, 5, 7, 9, 10, 11})})
    {
        Vector3 sum;
        for (const int j : neighbours)
            sum += toVector(grid.points[size_t(j)]);
        EXPECT_NEAR((toVector(*v[size_t(i)]) - sum / double(neighbours.size())).length(), 0.0, 1e-12);
    }

    grid = makeGrid(4, 4, 0.0, random);
    grid.points[5].set(1.0, 1.0, 0.5);
    grid.points.emplace_back(1.0, 1.0, 0.0); // a vertex of no triangle is listed where 5 would go
    mesh = meshOf(grid);
    laplacianSmoothing(mesh, 1);
    EXPECT_EQ(*v[5], grid.points[5]);
    grid.points[5] = grid.points[10];
    mesh = meshOf(grid);
    EXPECT_TRUE(hasBug("numErased==1", [&] { laplacianSmoothing(mesh, 2); }));
    EXPECT_EQ(mesh->getNumT(), 18u);
}

TEST_F(RMeshCleanup, ColourCreepsInwardsAsARescanOfAllVerticesWould)
{
    Shape shape = makeGrid(14, 14, 0.2, random);
    const Shape island = makeGrid(3, 3, 0.2, random);
    for (const auto& [a, b, c] : island.triangles)
        shape.triangles.push_back({a + 196, b + 196, c + 196});
    shape.points.insert(shape.points.end(), island.points.begin(), island.points.end());
    for (size_t i = 0; i < 196; ++i)
        if (random() % 6 == 0)
            shape.points[i].setColor(static_cast<unsigned char>(random()), static_cast<unsigned char>(random()), 255,
                                     7);
    const RMeshPtr mesh = makeMesh(shape, v);

    std::vector<Point3> expected = shape.points;
    for (bool bNew = true; bNew;)
    {
        bNew = false;
        const std::vector<Point3> old = expected;
        for (int i = 0; i < int(old.size()); ++i)
        {
            std::set<int> around;
            for (const auto& t : shape.triangles)
                if (std::count(t.begin(), t.end(), i))
                    for (const int j : t)
                        if (old[size_t(j)].hasColor())
                            around.insert(j);
            if (old[size_t(i)].hasColor() || around.empty())
                continue;
            double sum[4] = {};
            for (const int j : around)
            {
                const Point3& p = old[size_t(j)];
                sum[0] += p.r, sum[1] += p.g, sum[2] += p.b, sum[3] += p.a;
            }
            const auto mean = [&](int k) { return static_cast<unsigned char>(sum[k] / double(around.size()) + 0.5); };
            expected[size_t(i)].setColor(mean(0), mean(1), mean(2), mean(3));
            bNew = true;
        }
    }
    mesh->colorizeFilledHoles();
    for (size_t i = 0; i < v.size(); ++i)
    {
        EXPECT_EQ(v[i]->hasColor(), i < 196);
        EXPECT_EQ(v[i]->r, expected[i].r);
        EXPECT_EQ(v[i]->g, expected[i].g);
        EXPECT_EQ(v[i]->b, expected[i].b);
        EXPECT_EQ(v[i]->a, expected[i].a);
    }
}

TEST_F(RMeshCleanup, ContrastIsStretchedBetweenTheCuts)
{
    const auto spread = [&](std::vector<int> greys, double low, double high)
    {
        Shape shape = makeGrid(2, 5, 0.0, random);
        for (size_t i = 0; i < greys.size(); ++i)
        {
            const auto grey = static_cast<unsigned char>(greys[i]);
            shape.points[i].setColor(grey, grey, grey, 9);
        }
        const RMeshPtr mesh = makeMesh(shape, v);
        mesh->contrastSpread(low, high);
        for (size_t i = 0; i < greys.size(); ++i)
        {
            EXPECT_EQ(v[i]->a, 9);
            EXPECT_EQ(v[i]->g, v[i]->b);
            greys[i] = v[i]->r;
        }
        for (size_t i = greys.size(); i < v.size(); ++i)
            EXPECT_FALSE(v[i]->hasColor());
        return greys;
    };
    using Greys = std::vector<int>;
    // Without cuts from 0 to 255: nothing changes. 10 vertices have 30 values; uncoloured vertices count.
    EXPECT_EQ(spread({0, 50, 100, 150, 255}, 0.0, 0.0), (Greys{0, 50, 100, 150, 255}));
    // Targets 7 and 7 of 30: the levels up to 99 hold 6 values, those from 200 on 9. So 99 becomes 0, and 201 becomes
    // 255.
    EXPECT_EQ(spread({10, 50, 100, 200, 250, 255}, 0.24, 0.24), (Greys{0, 0, 3, 253, 255, 255}));
    // A range of 20 levels is stretched as it is.
    EXPECT_EQ(spread({100, 110, 120}, 0.5, 0.5), (Greys{0, 128, 255}));
    EXPECT_EQ(spread({70, 70, 70}, 0.1, 0.1), (Greys{0, 0, 0})); // no range at all
    // The bright target is never reached: the high cut is 0. Numbers that make no sense do no harm.
    EXPECT_EQ(spread({10, 100, 200}, 0.0, 1.0), (Greys{255, 255, 255}));
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
