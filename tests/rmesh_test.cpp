// The refined mesh against a plain model of it, its stated failures, and its construction.
#include "CMesh.h"
#include "RMesh.h"
#include "RPatch.h"
#include "capture.h"
#include "tools.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <random>
#include <set>

using namespace MIRT_ZAV;
using test::hasBug;

namespace
{

/// The mesh on numbers in place of addresses: vertices, triangles and edges count from 0 in order of creation.
struct Model
{
    struct Tri
    {
        std::array<int, 3> vtx;
        std::array<int, 3> edge; // opposite to the corner of the same index
        bool alive;
    };
    struct Edge
    {
        std::pair<int, int> ends;
        std::vector<int> tris;
    };
    using Key = std::pair<int, int>;

    std::vector<Point3> points;
    std::map<Point3, int> mVtx;
    std::vector<Tri> tris;
    std::vector<Edge> edges;
    std::map<Key, int> mRE;
    std::multimap<int, int> mmVtxT;

    static Key keyOf(int a, int b) { return {std::min(a, b), std::max(a, b)}; }
    int indexOf(int t, int v) const
    {
        return int(std::find(tris[t].vtx.begin(), tris[t].vtx.end(), v) - tris[t].vtx.begin());
    }
    int edgeOf(int a, int b) const
    {
        const auto it = mRE.find(keyOf(a, b));
        return it == mRE.end() ? -1 : it->second;
    }

    void createVertex(const Point3& p)
    {
        mVtx.insert({p, int(points.size())});
        points.push_back(p);
    }

    void createT(int p0, int p1, int p2)
    {
        const int t = int(tris.size());
        tris.push_back({{p0, p1, p2}, {}, true});
        for (const int v : {p0, p1, p2})
            mmVtxT.insert({v, t});
        const std::array<std::pair<int, Key>, 3> order = {{{2, keyOf(p0, p1)}, {0, keyOf(p1, p2)}, {1, keyOf(p0, p2)}}};
        for (const auto& [i, key] : order)
        {
            const auto [it, bNew] = mRE.insert({key, int(edges.size())});
            if (bNew)
                edges.push_back({key, {}});
            edges[it->second].tris.push_back(t);
            tris[t].edge[i] = it->second;
        }
    }

    void kill(int t)
    {
        for (const int e : tris[t].edge)
        {
            std::vector<int>& list = edges[e].tris;
            *std::find(list.begin(), list.end(), t) = list.back();
            list.pop_back();
        }
        for (const int v : tris[t].vtx)
            eraseCertainEntry(mmVtxT, v, t);
        tris[t].alive = false;
    }

    void flip(int t)
    {
        std::swap(tris[t].vtx[0], tris[t].vtx[1]);
        std::swap(tris[t].edge[0], tris[t].edge[1]);
    }

    void updateVertex(int v, const Point3& p)
    {
        mVtx.erase(points[v]);
        points[v].set(p.x(), p.y(), p.z());
        mVtx.insert({p, v});
    }

    void exchangeCorner(int src, int trg)
    {
        if (const int e = edgeOf(src, trg); e >= 0)
            for (const int t : std::vector<int>(edges[e].tris))
                kill(t);
        std::vector<int> moved;
        for (auto [it, end] = mmVtxT.equal_range(src); it != end; ++it)
            moved.push_back(it->second);
        std::set<int> around;
        for (const int t : moved)
            for (int i = 0; i < 3; ++i)
                if (tris[t].vtx[i] != src)
                    around.insert(tris[t].edge[i]);
        for (const int e : around)
        {
            const Key old = edges[e].ends;
            mRE.erase(old);
            const Key key = keyOf(old.first == src ? old.second : old.first, trg);
            if (const auto [it, bNew] = mRE.insert({key, e}); bNew)
                edges[e].ends = key;
            else
            {
                for (const int t : edges[e].tris)
                {
                    edges[it->second].tris.push_back(t);
                    *std::find(tris[t].edge.begin(), tris[t].edge.end(), e) = it->second;
                }
                edges[e].tris.clear();
            }
        }
        mmVtxT.erase(src);
        for (const int t : moved)
        {
            tris[t].vtx[indexOf(t, src)] = trg;
            mmVtxT.insert({trg, t});
        }
    }

    std::vector<int> degN(int n) const
    {
        std::vector<int> out;
        for (const auto& [key, e] : mRE)
        {
            const int degree = int(edges[e].tris.size());
            if (n == -1 ? degree >= 3 : n == -99 ? degree >= 1 : degree == n)
                out.push_back(e);
        }
        return out;
    }
};

/// A mesh and its model under the same operations.
struct Twins
{
    RMesh mesh{1.0};
    Model model;
    std::vector<Point3*> vtx;

    void createVertex(const Point3& p)
    {
        vtx.push_back(mesh.createVertex(p));
        model.createVertex(p);
    }
    void createT(int a, int b, int c)
    {
        mesh.createT(vtx[a], vtx[b], vtx[c]);
        model.createT(a, b, c);
    }

    template <class T>
    static std::vector<int> numbers(const std::vector<T*>& some, const std::vector<T*>& all)
    {
        std::vector<int> out;
        for (T* const p : some)
            out.push_back(int(std::find(all.begin(), all.end(), p) - all.begin()));
        return out;
    }

    void compare() const
    {
        compareTrianglesAndEdges();
        for (int v = 0; v < int(vtx.size()); ++v)
            compareAround(v);
        for (const int n : {0, 1, 2, 3, 4, -1, -99})
        {
            std::vector<REdge*> found;
            mesh.getDegN(n, found);
            ASSERT_EQ(numbers(found, mesh.vRE), model.degN(n)) << n;
        }
        std::set<int> used;
        for (const auto& [v, t] : model.mmVtxT)
            used.insert(v);
        std::vector<Point3*> points;
        mesh.getPoints(points);
        ASSERT_EQ(numbers(points, vtx), std::vector<int>(used.begin(), used.end()));
        ASSERT_TRUE(std::equal(mesh.mVtx.begin(), mesh.mVtx.end(), model.mVtx.begin(), model.mVtx.end(),
                               [this](const auto& x, const auto& y)
                               { return x.first == y.first && x.second == vtx[y.second]; }));
    }

    void compareTrianglesAndEdges() const
    {
        ASSERT_EQ(mesh.vRT.size(), model.tris.size());
        size_t numAlive = 0;
        for (size_t t = 0; t < model.tris.size(); ++t)
        {
            ASSERT_EQ(mesh.vRT[t]->isAlive(), model.tris[t].alive);
            numAlive += model.tris[t].alive;
            for (int i = 0; i < 3 && model.tris[t].alive; ++i)
            {
                ASSERT_EQ(mesh.vRT[t]->getCorner(i), vtx[model.tris[t].vtx[i]]);
                ASSERT_EQ(mesh.vRT[t]->getRE(i), mesh.vRE[model.tris[t].edge[i]]);
            }
        }
        ASSERT_EQ(mesh.getNumT(), numAlive);
        ASSERT_EQ(mesh.vRE.size(), model.edges.size());
        double sum = 0.0;
        int numAliveRE = 0;
        for (size_t e = 0; e < model.edges.size(); ++e)
        {
            const auto& [ends, tris] = model.edges[e];
            std::vector<RTriangle*> onEdge;
            mesh.vRE[e]->getAliveTriangles(onEdge);
            ASSERT_EQ(numbers(onEdge, mesh.vRT), tris);
            ASSERT_TRUE(mesh.vRE[e]->getVtx0() == vtx[ends.first] && mesh.vRE[e]->getVtx1() == vtx[ends.second]);
            if (tris.empty())
                continue;
            ++numAliveRE;
            sum += (model.points[ends.first] - model.points[ends.second]).length();
        }
        ASSERT_DOUBLE_EQ(mesh.getAvgLen(), numAliveRE > 0 ? sum / numAliveRE : -1.0);
    }

    void compareAround(int v) const
    {
        std::vector<int> incident, ring;
        std::set<int> spokes;
        for (auto [it, end] = model.mmVtxT.equal_range(v); it != end; ++it)
        {
            const Model::Tri& tri = model.tris[it->second];
            incident.push_back(it->second);
            for (int i = 0; i < 3; ++i)
                if (tri.vtx[i] == v)
                    ring.push_back(tri.edge[i]);
                else
                    spokes.insert(tri.edge[i]);
        }
        std::vector<RTriangle*> vT;
        std::vector<REdge*> vSpokes, vRing;
        mesh.getIncidentT(vtx[v], vT);
        mesh.getIncidentRE(vtx[v], vSpokes);
        mesh.getRingRE(vtx[v], vRing);
        ASSERT_EQ(numbers(vT, mesh.vRT), incident);
        ASSERT_EQ(numbers(vSpokes, mesh.vRE), std::vector<int>(spokes.begin(), spokes.end()));
        ASSERT_EQ(numbers(vRing, mesh.vRE), ring);
        for (int w = 0; w < int(vtx.size()); ++w)
        {
            const int e = model.edgeOf(v, w);
            ASSERT_EQ(mesh.getEdge(vtx[v], vtx[w]), e < 0 ? nullptr : mesh.vRE[e]);
            ASSERT_EQ(mesh.hasAliveEdge(vtx[v], vtx[w]), e >= 0 && !model.edges[e].tris.empty());
        }
    }
};

/// A closed fan around vertex 0 with 6 triangles, flat in z = 0; rim vertices 1 to 6.
void makeFan(Twins& fan)
{
    fan.createVertex({0, 0, 0});
    for (int i = 0; i < 6; ++i)
        fan.createVertex({std::cos(i * M_PI / 3), std::sin(i * M_PI / 3), 0});
    for (int i = 0; i < 6; ++i)
        fan.createT(0, 1 + i, 1 + (i + 1) % 6);
}

} // namespace

TEST(RMesh, LongRandomSequencesAgreeWithTheModel)
{
    int numCollapses = 0;
    for (unsigned seed = 0; seed < 12; ++seed)
    {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const int numVtx = 5 + int(seed) * 2;
        const auto below = [&random](int n) { return int(random() % unsigned(n)); };
        const auto somePoint = [&below] { return Point3(below(4) - 1, below(4) * -0.0, below(3)); };
        Twins twins;
        RMesh& mesh = twins.mesh;
        Model& model = twins.model;
        for (int i = 0; i < numVtx; ++i)
            twins.createVertex(somePoint());
        for (int step = 0; step < 500 && !HasFatalFailure(); ++step)
        {
            const int a = below(numVtx), b = below(numVtx), c = below(numVtx), op = below(10);
            const int t = model.tris.empty() ? -1 : below(int(model.tris.size()));
            const bool bAlive = t >= 0 && model.tris[t].alive;
            const Point3 p = somePoint();
            if (op < 6 && a != b && b != c && a != c)
                twins.createT(a, b, c);
            else if (op == 6 && bAlive)
            {
                mesh.vRT[t]->kill(&mesh);
                model.kill(t);
            }
            else if (op == 7 && bAlive)
            {
                mesh.vRT[t]->flipNNV();
                model.flip(t);
            }
            else if (op == 8 && a != b && (model.edgeOf(a, b) < 0 || mesh.hasAliveEdge(twins.vtx[a], twins.vtx[b])))
            {
                mesh.exchangeCorner(twins.vtx[a], twins.vtx[b]);
                model.exchangeCorner(a, b);
                ++numCollapses;
            }
            else if (op == 9 && model.mVtx.count(model.points[a]) && !mesh.hasVertex(p))
            {
                mesh.updateVertex(twins.vtx[a], p);
                model.updateVertex(a, p);
            }
            if (step % 5 == 0)
                twins.compare();
        }
    }
    EXPECT_GT(numCollapses, 200);
}

TEST(RMesh, BrokenConditionsAreReported)
{
    Twins fan;
    makeFan(fan);
    RMesh& mesh = fan.mesh;
    Point3 *const p0 = fan.vtx[0], *const p1 = fan.vtx[1];
    EXPECT_TRUE(hasBug("*pVtx!=newPoint", [&] { mesh.updateVertex(p0, Point3(-0.0, 0, 0)); }));
    EXPECT_TRUE(hasBug("false", [&] { mesh.vRT[0]->needFlip(mesh.vRT[2]); }));
    const std::string report = test::bugReportOf([&] { mesh.getEdge(p0, fan.vtx[4])->checkOut(mesh.vRT[0]); });
    EXPECT_NE(report.find("REdge::checkOut, triangle live state: 1\n"), std::string::npos) << report;
    mesh.vRT[0]->kill(&mesh);
    EXPECT_TRUE(hasBug("bAlive", [&] { mesh.vRT[0]->kill(&mesh); }));
    mesh.vRT[5]->kill(&mesh);
    EXPECT_TRUE(hasBug("pKillEdge==__null || pKillEdge->isAlive()", [&] { mesh.exchangeCorner(p0, p1); }));
    EXPECT_TRUE(hasBug("pair0.first<pair0.second", [&] { mesh.createT(p0, p1, p1); }));
    Point3* const pTwin = mesh.createVertex(*p0); // no key of its own
    mesh.updateVertex(p0, Point3(5, 5, 5));
    EXPECT_TRUE(hasBug("numErased==1", [&] { mesh.updateVertex(pTwin, Point3(6, 6, 6)); }));
    EXPECT_TRUE(hasBug("bOK", [&] { mesh.updateVertex(p1, Point3(5, 5, 5)); }));
}

TEST(RMesh, WindingAndNormals)
{
    Twins fan;
    makeFan(fan);
    RTriangle& t = *fan.mesh.vRT[0];
    RTriangle& neighbour = *fan.mesh.vRT[1];
    EXPECT_FALSE(t.needFlip(&neighbour));
    neighbour.flipNNV();
    EXPECT_TRUE(t.needFlip(&neighbour));
    bool ok = false;
    EXPECT_EQ(neighbour.getNNV(ok).z(), -1.0);
    // The cache outlives a move of a vertex, but not a collapse.
    fan.mesh.updateVertex(fan.vtx[2], Point3(0, 0, 7));
    EXPECT_EQ(neighbour.getNNV(ok).z(), -1.0);
    EXPECT_EQ(neighbour.getThirdPoint(fan.vtx[3], fan.vtx[0]), fan.vtx[2]);
    fan.mesh.exchangeCorner(fan.vtx[3], fan.vtx[4]);
    EXPECT_TRUE(neighbour.nnv.isZero());
}

TEST(RMesh, DeviationOfAReplacedCorner)
{
    RMesh mesh(1.0);
    Point3 *const a = mesh.createVertex({0, 0, 0}), *const b = mesh.createVertex({1, 0, 0}),
                  *const c = mesh.createVertex({0, 1, 0}), *const onLine = mesh.createVertex({0.5, 0.5, 0});
    const RTriangle &t = *mesh.createT(a, b, c), &flat = *mesh.createT(onLine, b, c);
    EXPECT_NEAR(t.getDevIfRepl(0, {1, 1, 0}, true), 180.0, 1e-9);
    EXPECT_NEAR(t.getDevIfRepl(2, {0, 0, 3}, true), 90.0, 1e-5);
    EXPECT_EQ(t.getDevIfRepl(0, *b, true), 0.0);
    EXPECT_EQ(t.getDevIfRepl(0, *b, false), 360.0);
    EXPECT_EQ(t.getDevIfRepl(0, *onLine, true), 360.0);
    EXPECT_EQ(flat.getDevIfRepl(0, *a, true), -1.0);
    EXPECT_EQ(flat.getDevIfRepl(0, Point3(2, -1, 0), true), 360.0);
}

TEST(RMesh, NeighboursAcrossANonManifoldEdge)
{
    Twins twins;
    for (int i = 0; i < 5; ++i)
        twins.createVertex({1.0 * i, 1.0 * i * i, 0});
    twins.createT(0, 1, 2);
    twins.createT(1, 0, 3);
    const std::vector<RTriangle*>& t = twins.mesh.vRT;
    RTriangle *t0 = nullptr, *t1 = nullptr;
    const REdge* const pRE = twins.mesh.getEdge(twins.vtx[1], twins.vtx[0]);
    EXPECT_TRUE(pRE->getTwoTriangles(t0, t1, true) && pRE->getUniqueOtherTriangle(t[0]) == t[1]);
    twins.createT(4, 0, 1);
    EXPECT_FALSE(pRE->getTwoTriangles(t0, t1, true) || pRE->getUniqueOtherTriangle(t[0]) != nullptr);
    EXPECT_TRUE(pRE->getTwoTriangles(t0, t1, false) && t0 == t[0] && t1 == t[1]);
    t[0]->kill(&twins.mesh);
    t[1]->kill(&twins.mesh);
    EXPECT_FALSE(pRE->getTwoTriangles(t0, t1, false));
    EXPECT_TRUE(t0 == t[2] && t1 == nullptr && pRE->getUniqueOtherTriangle(t[2]) == nullptr);
}

TEST(RMesh, PatchesHoldASetAndLetGo)
{
    Twins fan;
    makeFan(fan);
    {
        RPatch patch(&fan.mesh);
        for (const int t : {4, 1, 4, 2})
            patch.add(fan.mesh.vRT[t]);
        EXPECT_EQ(Twins::numbers(patch.getTriangles(), fan.mesh.vRT), (std::vector<int>{1, 2, 4}));
        EXPECT_EQ(fan.mesh.vRT[2]->getPatch(), &patch);
    }
    EXPECT_EQ(fan.mesh.vRT[2]->getPatch(), nullptr);
}

TEST(RMesh, TakesOverACoarseMesh)
{
    // A point in most cells of a lattice; some points coincide up to the sign of zero.
    Calc calc(0, 0, 0, 64, 64, 64, 6);
    std::vector<Point3> points;
    for (int i = 0; i < 64 * 64 * 4; ++i)
        if (i % 7 != 3)
            points.emplace_back(i % 64 + 0.5, i / 64 % 64 + 0.5, 16 * (i / 4096) + 0.5);
    std::vector<Bundle> bundles(points.size());
    std::map<CCD, Bundle*> mCCDBundle;
    for (size_t i = 0; i < points.size(); ++i)
    {
        bundles[i] = {&points[i], calc.getCCD(&points[i]), nullptr, points[i]};
        mCCDBundle[bundles[i].ccd] = &bundles[i];
    }
    points[17].set(0.0, 0, 0);
    points[42].set(-0.0, 0, 0);
    points[42].setColor(1, 2, 3, 4);
    std::vector<CCD> vFill;
    for (auto it = mCCDBundle.begin(); vFill.size() < 5; ++it, ++it)
        vFill.push_back(it->first);
    CMesh coarse(nullptr, &calc, &mCCDBundle, vFill);
    std::mt19937 random(1);
    std::vector<size_t> expected;
    std::map<CCD, size_t> used;
    for (int i = 0; i < 3000; ++i)
    {
        // Far apart or side by side: searches of all lengths, both ways.
        const size_t a = i == 0 ? 17 : i == 1 ? 42 : random() % points.size();
        const size_t step = i % 2 == 0 ? 1 : 1 + random() % 5000;
        const std::array<size_t, 3> t = {a, (a + step) % points.size(), (a + 2 * step) % points.size()};
        CTriangle* const pCT = coarse.createT(bundles[t[0]].ccd, bundles[t[1]].ccd, bundles[t[2]].ccd, 0, 0);
        if (i % 5 == 2)
        {
            pCT->kill(&coarse);
            continue;
        }
        for (const size_t v : t)
            expected.push_back(used[bundles[v].ccd] = v);
    }
    const std::vector<Point3> before = points;
    const RMesh mesh(&coarse);
    points.assign(points.size(), Point3(9, 9, 9)); // the copy must not notice

    EXPECT_EQ(mesh.getSideLen(), 1.0);
    std::vector<Point3*> corners, vertices;
    mesh.getTriangleCorners(corners);
    ASSERT_EQ(corners.size(), expected.size());
    std::map<CCD, Point3*> vertexOf;
    for (size_t i = 0; i < corners.size(); ++i)
    {
        ASSERT_TRUE(*corners[i] == before[expected[i]] && corners[i]->b == before[expected[i]].b);
        Point3*& vertex = vertexOf[bundles[expected[i]].ccd];
        ASSERT_TRUE(vertex == nullptr || vertex == corners[i]);
        vertex = corners[i];
    }
    EXPECT_TRUE(mesh.hasColors());
    mesh.getPoints(vertices);
    ASSERT_EQ(vertices.size(), used.size());
    auto it = vertexOf.begin();
    for (Point3* const p : vertices)
        ASSERT_EQ(p, (it++)->second);                      // by cell code
    const bool bFirst = bundles[17].ccd < bundles[42].ccd; // the lower cell code owns the place
    EXPECT_EQ(*mesh.mVtx.find(Point3(0, 0, 0)), vertexOf[bundles[bFirst ? 17 : 42].ccd]);
    ASSERT_EQ(mesh.vZeroVtx.size(), vFill.size());
    for (size_t i = 0; i < vFill.size(); ++i)
        EXPECT_EQ(*mesh.vZeroVtx[i], before[size_t(mCCDBundle[vFill[i]] - bundles.data())]);

    mCCDBundle.erase(bundles[17].ccd);
    EXPECT_TRUE(hasBug("it0!=vCCDVertex.end() && it1!=vCCDVertex.end() && it2!=vCCDVertex.end()",
                       [&] { RMesh broken(&coarse); }));
}
