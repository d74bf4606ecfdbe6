// The refined mesh against a plain model of it, and its public handle.
#include "base/vectorHelpers.h"
#include "helpers/capture.h"
#include "refined/RMesh.h"
#include "zav/Mesh.h"

#include <array>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

using namespace MIRT_ZAV;

namespace
{
struct Tri
{
    std::array<int, 3> vtx;
    bool alive;
    bool has(int v) const { return std::count(vtx.begin(), vtx.end(), v) != 0; }
};

/// A mesh and a model of it that knows only the corners of triangles, as numbers. Both get the same operations and must
/// agree afterwards. Vertices and triangles count from 0 in order of creation.
struct Twins
{
    RMesh mesh{1.0};
    std::vector<Point3*> vtx;
    std::vector<Point3> points;
    std::map<Point3, int> places;
    std::vector<Tri> tris;
    std::vector<std::vector<int>> around; // the triangles of every vertex in order of arrival

    void createVertex(const Point3& p)
    {
        vtx.push_back(mesh.createVertex(p));
        places.insert({p, int(points.size())});
        points.push_back(p);
        around.emplace_back();
    }
    void createT(int a, int b, int c)
    {
        mesh.createT(vtx[a], vtx[b], vtx[c]);
        for (const int v : {a, b, c})
            around[v].push_back(int(tris.size()));
        tris.push_back({{a, b, c}, true});
    }
    void kill(int t)
    {
        mesh.vRT[t]->kill(&mesh);
        bury(t);
    }
    void bury(int t)
    {
        for (const int v : tris[t].vtx)
            std::erase(around[v], t);
        tris[t].alive = false;
    }
    void flip(int t)
    {
        mesh.vRT[t]->flipNNV();
        std::swap(tris[t].vtx[0], tris[t].vtx[1]);
    }
    void updateVertex(int v, const Point3& p)
    {
        mesh.updateVertex(vtx[v], p);
        places.erase(points[v]);
        points[v] = p;
        places.insert({p, v});
    }
    void exchangeCorner(int src, int trg)
    {
        mesh.exchangeCorner(vtx[src], vtx[trg]);
        for (const int t : std::vector<int>(around[src]))
            if (tris[t].has(trg))
                bury(t);
        for (const int t : std::exchange(around[src], {}))
        {
            std::replace(tris[t].vtx.begin(), tris[t].vtx.end(), src, trg);
            around[trg].push_back(t);
        }
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
        compareTriangles();
        for (int v = 0; v < int(vtx.size()); ++v)
            compareAround(v);
        compareEdges();
        ASSERT_TRUE(std::equal(mesh.mVtx.begin(), mesh.mVtx.end(), places.begin(), places.end(),
                               [this](const auto& x, const auto& y)
                               { return x.first == y.first && x.second == vtx[y.second]; }));
    }

    void compareTriangles() const
    {
        ASSERT_EQ(mesh.vRT.size(), tris.size());
        size_t numAlive = 0;
        for (size_t t = 0; t < tris.size(); ++t)
        {
            ASSERT_EQ(mesh.vRT[t]->isAlive(), tris[t].alive);
            numAlive += tris[t].alive;
            for (int i = 0; i < 3 && tris[t].alive; ++i)
            {
                ASSERT_EQ(mesh.vRT[t]->getCorner(i), vtx[tris[t].vtx[i]]);
                ASSERT_EQ(mesh.vRT[t]->getRE(i),
                          mesh.getEdge(vtx[tris[t].vtx[(i + 1) % 3]], vtx[tris[t].vtx[(i + 2) % 3]]));
            }
        }
        ASSERT_EQ(mesh.getNumT(), numAlive);
    }

    void compareAround(int v) const
    {
        std::vector<REdge*> spokes, ring, foundSpokes, foundRing;
        for (const int t : around[v])
            for (int i = 0; i < 3; ++i)
                (tris[t].vtx[i] == v ? ring : spokes).push_back(mesh.vRT[t]->getRE(i));
        oneInstance(spokes);
        std::vector<RTriangle*> vT;
        mesh.getIncidentT(vtx[v], vT);
        mesh.getIncidentRE(vtx[v], foundSpokes);
        mesh.getRingRE(vtx[v], foundRing);
        ASSERT_EQ(numbers(vT, mesh.vRT), around[v]);
        ASSERT_EQ(foundSpokes, spokes);
        ASSERT_EQ(foundRing, ring);
    }

    void compareEdges() const
    {
        // In the order of their ends; -1 and -99 stand for the groups of edges that getDegN gives for these numbers.
        std::map<int, std::vector<REdge*>> byDegree;
        double sum = 0.0;
        for (int a = 0; a < int(vtx.size()); ++a)
            for (int b = a + 1; b < int(vtx.size()); ++b)
            {
                std::vector<int> expected;
                std::copy_if(around[a].begin(), around[a].end(), std::back_inserter(expected),
                             [this, b](int t) { return tris[t].has(b); });
                REdge* const pRE = mesh.getEdge(vtx[b], vtx[a]);
                ASSERT_EQ(mesh.hasAliveEdge(vtx[a], vtx[b]), !expected.empty());
                if (pRE == nullptr)
                    continue;
                compareEdge(*pRE, expected);
                ASSERT_TRUE(pRE->getVtx0() == vtx[a] && pRE->getVtx1() == vtx[b]);
                const int degree = int(expected.size());
                byDegree[degree].push_back(pRE);
                if (degree >= 3)
                    byDegree[-1].push_back(pRE);
                if (degree >= 1)
                    byDegree[-99].push_back(pRE);
                sum += degree == 0 ? 0.0 : (points[a] - points[b]).length();
            }
        const auto numAlive = double(byDegree[-99].size());
        ASSERT_NEAR(mesh.getAvgLen(), numAlive > 0 ? sum / numAlive : -1.0, 1e-12);
        for (const int n : {0, 1, 2, 3, 4, -1, -99})
        {
            std::vector<REdge*> found;
            mesh.getDegN(n, found);
            ASSERT_EQ(found, byDegree[n]) << n;
        }
    }

    void compareEdge(const REdge& edge, std::vector<int>& expected) const
    {
        std::vector<RTriangle*> found;
        edge.getAliveTriangles(found);
        std::vector<int> sorted = numbers(found, mesh.vRT);
        std::sort(sorted.begin(), sorted.end());
        std::sort(expected.begin(), expected.end());
        ASSERT_EQ(sorted, expected);
        RTriangle *t0, *t1;
        ASSERT_EQ(edge.getTwoTriangles(t0, t1, true), found.size() == 2);
        ASSERT_EQ(edge.getTwoTriangles(t0, t1, false), found.size() >= 2);
        ASSERT_EQ(t0, found.size() < 1 ? nullptr : found[0]);
        ASSERT_EQ(t1, found.size() < 2 ? nullptr : found[1]);
        for (const RTriangle* const t : found)
            ASSERT_EQ(edge.getUniqueOtherTriangle(t), found.size() == 2 ? found[t == t0] : nullptr);
    }
};
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
        for (int i = 0; i < numVtx; ++i)
            twins.createVertex(somePoint());
        twins.createT(2, 1, 0);
        for (int i = 0; i < 3; ++i) // edges are made in the order 01, 12, 02
            ASSERT_EQ(twins.mesh.vRE[i], twins.mesh.vRT[0]->getRE(std::array{2, 0, 1}[i]));
        for (int step = 0; step < 500 && !HasFatalFailure(); ++step)
        {
            const int a = below(numVtx), b = below(numVtx), c = below(numVtx), op = below(10);
            const int t = below(int(twins.tris.size()));
            const Point3 p = somePoint();
            const bool bDeadEdge = a != b && twins.mesh.getEdge(twins.vtx[a], twins.vtx[b]) != nullptr &&
                                   !twins.mesh.hasAliveEdge(twins.vtx[a], twins.vtx[b]);
            if (op < 6 && a != b && b != c && a != c)
                twins.createT(a, b, c);
            else if (op == 6 && twins.tris[t].alive)
                twins.kill(t);
            else if (op == 7 && twins.tris[t].alive)
                twins.flip(t);
            else if (op == 8 && a != b && !bDeadEdge)
            {
                twins.exchangeCorner(a, b);
                ++numCollapses;
            }
            else if (op == 9 && twins.places.count(twins.points[a]) && !twins.mesh.hasVertex(p))
                twins.updateVertex(a, p);
            if (step % 5 == 0)
                twins.compare();
        }
    }
    EXPECT_GT(numCollapses, 200);
}

TEST(RMesh, CachedNormalsOutliveMovesButNotCollapses)
{
    Twins twins;
    for (const Point3& p : {Point3(0, 0, 0), Point3(1, 0, 0), Point3(0, 1, 0), Point3(5, 5, 5)})
        twins.createVertex(p);
    twins.createT(0, 1, 2);
    RTriangle& t = *twins.mesh.vRT[0];
    bool ok = false;
    EXPECT_EQ(t.getNNV(ok).z(), 1.0);
    t.flipNNV();
    twins.mesh.updateVertex(twins.vtx[2], Point3(0, 0, 7));
    EXPECT_EQ(t.getNNV(ok).z(), -1.0);
    twins.mesh.exchangeCorner(twins.vtx[2], twins.vtx[3]);
    EXPECT_TRUE(t.nnv.isZero());
}

TEST(Mesh, PlyFormsAreCrossed)
{
    const Mesh mesh(new RMesh(1.0));
    const std::string path = testing::TempDir() + "rmesh_test.ply";
    const auto hasAsciiFile = [&path]
    {
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str().find("format ascii 1.0") != std::string::npos;
    };
    EXPECT_TRUE(mesh.writePly_BIN(path) && hasAsciiFile());
    EXPECT_TRUE(mesh.writePly_ASCII(path) && !hasAsciiFile());
}
