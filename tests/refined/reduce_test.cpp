// Reduction: the penalty written out again, and the loop against a plain one.
#include "base/Progress.h"
#include "geometry/ColorUtils.h"
#include "geometry/freeFunctions.h"
#include "helpers/capture.h"
#include "helpers/mesh_shapes.h"
#include "refined/RMesh.h"
#include "zav/Mesh.h"
#include "zav/meshOperations.h"
#include "zav/zav_api_functions.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <map>
#include <set>

using namespace MIRT_ZAV;
using namespace test;

namespace
{
constexpr double radians = 0.01745329251;

/// The penalty of moving one end of an edge (src) onto the other (trg), from the list of all triangles and with the arc
/// tangent. DBL_MAX where the collapse isn't allowed.
double expectedPenalty(const RMesh& mesh, const REdge& edge, int which, double maxLen2, double maxAngle)
{
    const Point3 *const src = which == 0 ? edge.pVtx0 : edge.pVtx1, *const trg = which == 0 ? edge.pVtx1 : edge.pVtx0;
    const double ratio = std::sqrt((*trg - *src).length() / mesh.sideLen);
    const bool colored = src->hasColor() || trg->hasColor();
    const double colorDiff = colored ? getColorDiffCIE76(src, trg) : 0.0;
    if ((*trg - *src).sqLength() > maxLen2 || colorDiff > 1.0 || colorDiff > 1.0 / ratio)
        return DBL_MAX;
    int numShared = 0, numTurned = 0;
    double sum = 0.0;
    std::set<std::set<const Point3*>> ringOfTrg;
    for (const RTriangle* const t : mesh.vRT)
        if (t->isAlive() && t->has(trg) && !t->has(src))
        {
            std::set<const Point3*> ring(t->pVtx, t->pVtx + 3);
            ring.erase(trg);
            ringOfTrg.insert(ring);
        }
    for (const RTriangle* const t : mesh.vRT)
    {
        if (!t->isAlive() || !t->has(src))
            continue;
        if (t->has(trg))
        {
            ++numShared;
            continue;
        }
        const int i = t->getICI(src);
        const Point3 &u = *t->pVtx[(i + 1) % 3], &w = *t->pVtx[(i + 2) % 3];
        if (ringOfTrg.count({&u, &w}) != 0)
            return DBL_MAX;
        const Vector3 n = crossProduct(u - w, *src - w), m = crossProduct(u - w, *trg - w);
        if (n.isZero())
            continue;
        const double angle = std::atan2(crossProduct(n, m).length(), n * m);
        if (m.length() < 1e-10 || angle > maxAngle)
            return DBL_MAX;
        sum += angle;
        ++numTurned;
    }
    if (numShared == 0 || numTurned == 0)
        return DBL_MAX;
    return sum * 100.0 / numTurned + ratio + 100.0 * colorDiff;
}

/// Whether border vertex p may move along an edge.
bool mayLeaveBorder(const RMesh& mesh, const REdge& edge, Point3* p)
{
    std::vector<Vector3> directions;
    for (const REdge* const pRE : mesh.vRE)
        if (pRE->getDegree() == 1 && pRE->has(p))
            directions.push_back(*pRE->getOtherPoint(p) - *p);
    return edge.getDegree() == 1 && directions.size() == 2 &&
           getAngleDegree(normalize(directions[0]), normalize(directions[1])) >= 170.0;
}

struct Counts
{
    int numLocal = 0, numFull = 0, numSunk = 0, numKept = 0;
};

/// The reduction with a tree as queue and every penalty computed afresh, in place of all that makes the real one fast.
/// Checks every collapse. Returns the number of triangles that went.
int reducePlainly(RMesh& mesh, double maxLen2, double maxAngle, Counts& counts)
{
    int numKilled = 0;
    std::vector<RTriangle*> vIncT;
    std::multimap<double, std::pair<REdge*, int>> queue;
    const auto getPenalty = [&](REdge* pRE, int which)
    { return mesh.getPenalty(pRE, which, maxLen2, maxAngle, vIncT); };
    const auto insert = [&](const auto& edges)
    {
        for (REdge* const pRE : edges)
            for (const int which : {0, 1})
                if (const double penalty = getPenalty(pRE, which); penalty != DBL_MAX)
                    queue.insert({penalty, {pRE, which}});
    };
    std::set<const Point3*> border;
    for (const REdge* const pRE : mesh.vRE)
        if (pRE->getDegree() == 1)
            border.insert({pRE->pVtx0, pRE->pVtx1});
    insert(mesh.vRE);
    std::vector<Point3*> touched;
    int numRefreshes = 0;
    while (!queue.empty())
    {
        const auto [saved, candidate] = *queue.begin();
        const auto [pRE, which] = candidate;
        queue.erase(queue.begin());
        const double fresh = getPenalty(pRE, which);
        if (fresh == DBL_MAX)
            continue;
        if (fresh > 2.0 && fresh > saved + 3.0)
        {
            queue.insert({fresh, candidate});
            ++counts.numSunk;
            continue;
        }
        Point3 *const src = which == 0 ? pRE->pVtx0 : pRE->pVtx1, *const trg = pRE->getOtherPoint(src);
        if (border.count(src) != 0 && !mayLeaveBorder(mesh, *pRE, src))
        {
            ++counts.numKept;
            continue;
        }
        EXPECT_NE(expectedPenalty(mesh, *pRE, which, maxLen2, maxAngle + 1e-7), DBL_MAX);
        numKilled += pRE->getDegree();
        mesh.exchangeCorner(src, trg);
        touched.push_back(trg);
        const size_t n = touched.size();
        if (!queue.empty() && n <= 5000 && (queue.begin()->first <= 6.0 || n <= 50))
            continue;
        if (3 <= n && n <= 999 && ++numRefreshes < 5)
        {
            ++counts.numFull;
            insert(mesh.vRE);
        }
        else
        {
            ++counts.numLocal;
            std::set<REdge*> edges;
            for (const Point3* const p : touched)
                for (REdge* const pNear : mesh.vRE)
                    if (pNear->isAlive() && pNear->has(p))
                        edges.insert(pNear);
            insert(edges);
        }
        touched.clear();
    }
    mesh.killDegenerate();
    return numKilled;
}

} // namespace

TEST(Reduce, PenaltyAgreesWithItsDefinition)
{
    std::vector<Point3*> v;
    std::vector<RTriangle*> vIncT;
    int numRefused = 0, numAllowed = 0;
    for (int kind = 0; kind < numKinds; ++kind)
    {
        if (kind == 7)
            continue;
        const RMeshPtr mesh = makeKind(kind, v);
        std::mt19937 random(1);
        for (int i = 0; i < 300; ++i)
        {
            const REdge& edge = *mesh->vRE[random() % mesh->vRE.size()];
            const int which = static_cast<int>(random() % 2);
            double penalty = 0.0;
            outputOf([&] { penalty = mesh->getPenalty(&edge, which, 2.5, 0.8, vIncT); });
            const double expected = expectedPenalty(*mesh, edge, which, 2.5, 0.8);
            ++(penalty == DBL_MAX ? numRefused : numAllowed);
            if (penalty == DBL_MAX || expected == DBL_MAX)
                EXPECT_EQ(penalty, expected) << kind;
            else
                EXPECT_NEAR(penalty, expected, 1e-5) << kind; // the arc cosine is coarse near 0
        }
        EXPECT_EQ(mesh->getPenalty(mesh->vRE[0], 0, 0.0, 4.0, vIncT), DBL_MAX);
    }
    EXPECT_GT(numRefused, 200);
    EXPECT_GT(numAllowed, 200);
}

TEST(Reduce, SameMeshAsAPlainLoopForAnyNumberOfThreads)
{
    std::vector<Point3*> v;
    Counts counts;
    for (int kind = 0; kind < 2 * numKinds; ++kind)
    {
        const double maxLength = kind < numKinds ? 4.0 : -9.0, maxAngle = kind % 3 == 0 ? 20.0 : 70.0;
        const RMeshPtr plain = makeKind(kind % numKinds, v);
        int numKilled = 0;
        progressForReduction();
        outputOf([&] { numKilled = reducePlainly(*plain, maxLength * maxLength, maxAngle * radians, counts); });
        getThreadProgress()->reset();
        EXPECT_GT(numKilled, 200) << kind;
        for (const int numCPU : {1, 2, 5})
        {
            const CpuCount cpus(numCPU);
            destroySingletons();
            const MeshPtr mesh = std::make_shared<Mesh>(makeKind(kind % numKinds, v).release());
            int numRemoved = 0;
            outputOf([&] { numRemoved = reduce(mesh, maxLength, maxAngle); });
            EXPECT_EQ(numRemoved, numKilled);
            EXPECT_TRUE(getTriangles(*mesh->getRMesh()) == getTriangles(*plain)) << kind << ' ' << numCPU;
        }
    }
    destroySingletons();
    EXPECT_GT(counts.numLocal, 50);
    EXPECT_GT(counts.numFull, 20);
    EXPECT_GT(counts.numSunk, 200);
    EXPECT_GT(counts.numKept, 200);
    EXPECT_EQ(getThreadProgress()->getName(), "empty"); // a run of its own was closed
}
