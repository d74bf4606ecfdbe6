// Edge flips: the gain written out again, the loop against a plain one, and flips that are impossible.
#include "base/Progress.h"
#include "geometry/ColorUtils.h"
#include "geometry/energyPower.h"
#include "helpers/capture.h"
#include "helpers/mesh_shapes.h"
#include "refined/REdgeEnergy.h"
#include "refined/RMesh.h"
#include "zav/Mesh.h"
#include "zav/meshOperations.h"
#include "zav/zav_api_functions.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cstring>
#include <functional>
#include <map>

using namespace MIRT_ZAV;
using namespace test;

namespace
{
class Flips : public ::testing::Test
{
protected:
    std::mt19937 random{11};
    std::vector<Point3*> v;

    void SetUp() override { progressForFlips(); }
    void TearDown() override { getThreadProgress()->reset(); }

    MeshPtr makeKindOfMesh(int kind) { return std::make_shared<Mesh>(makeKind(kind, v).release()); }
};

Vector3 normalOf(const Point3& a, const Point3& b, const Point3& c)
{
    const Vector3 n = crossProduct(b - a, c - a);
    return n / n.length();
}

double energyOf(const Vector3& n0, const Vector3& n1, const Point3& p, const Point3& q)
{
    return std::pow(std::max(0.0, 1 - n0 * n1) * (q - p).length(), 0.335);
}

/// Angle at p of the triangle p, q, r in degrees.
double angleAt(const Point3& p, const Point3& q, const Point3& r)
{
    const Vector3 u = q - p, w = r - p;
    return std::acos(u * w / (u.length() * w.length())) * 180 / M_PI;
}

double largestAngle(const Point3& p, const Point3& q, const Point3& r)
{
    return std::max({angleAt(p, q, r), angleAt(q, r, p), angleAt(r, p, q)});
}

/// What it gains to put the edge o0, o1 in the place of a, b. rim[i] is the third corner of the triangle beyond rim
/// edge i, or null at a border:
///
///             0
///        o0 ---- b
///      1  |    / |  3
///         |  /   |
///         a ---- o1
///             2
double expectedGain(const Point3& a, const Point3& b, const Point3& o0, const Point3& o1, const Point3* rim[4])
{
    const Vector3 n0 = normalOf(o0, a, b), n1 = normalOf(o1, b, a);
    const Vector3 m0 = normalOf(o0, a, o1), m1 = normalOf(o0, o1, b);
    double gain = energyOf(n0, n1, a, b) - energyOf(m0, m1, o0, o1);
    const struct
    {
        const Point3 &from, &to;
        Vector3 before, after;
    } rims[4] = {{b, o0, n0, m1}, {o0, a, n0, m0}, {a, o1, n1, m0}, {o1, b, n1, m1}};
    for (int i = 0; i < 4; ++i)
        if (rim[i] != nullptr)
        {
            const Vector3 n = normalOf(rims[i].to, rims[i].from, *rim[i]);
            gain += energyOf(n, rims[i].before, rims[i].from, rims[i].to);
            gain -= energyOf(n, rims[i].after, rims[i].from, rims[i].to);
        }
    double penalty = 0.0;
    const double wide = std::max(largestAngle(o0, o1, b), largestAngle(o0, a, o1));
    if (wide > 130.0 && wide > std::max(largestAngle(b, a, o1), largestAngle(o0, a, b)))
        penalty = wide > 160.0 ? 1.0 : 0.1;
    gain -= penalty;
    if (a.hasColor() && b.hasColor() && o0.hasColor() && o1.hasColor())
    {
        const double d = getColorDiffCIE76(&a, &b) - getColorDiffCIE76(&o0, &o1) - 4.6;
        gain += d <= 0 ? 0.0 : d < 10 ? 2 * d : 20.0;
    }
    return gain < 0.1 ? gain - 10 * penalty : gain;
}

double gainOf(RMesh& mesh, REdge* pRE)
{
    try
    {
        REdgeEnergy energy(&mesh, pRE);
        energy.compute();
        return energy.result;
    }
    catch (const ZavBugException&) // of vertices that coincide
    {
        return -DBL_MAX;
    }
}

/// Which edges a round would flip, in one thread and in the order of the edges; by rising gain at the end, where equal
/// gains keep that order.
std::vector<std::pair<double, REdge*>> getCandidatesPlainly(RMesh& mesh, double temperature)
{
    std::vector<std::pair<double, REdge*>> taken;
    for (REdge* const pRE : mesh.vRE)
        if (const double gain = gainOf(mesh, pRE);
            gain >= 0.0 ||
            (gain != -DBL_MAX && temperature > 0.0 && std::rand() / 2147483647.0 <= std::exp(gain / temperature)))
            taken.emplace_back(gain, pRE);
    std::stable_sort(taken.begin(), taken.end(), [](auto& x, auto& y) { return x.first < y.first; });
    return taken;
}

/// The flips with a tree as queue and every gain computed afresh, in place of all that makes the real loop fast.
void flipPlainly(RMesh& mesh)
{
    std::vector<std::pair<double, REdge*>> candidates;
    mesh.getEdgeFlipCandidates_MT(std::vector<REdge*>(mesh.vRE), 0.005, 0.0, candidates);
    std::multimap<double, REdge*, std::greater<double>> queue;
    for (const auto& candidate : candidates)
        queue.insert(candidate);
    while (!queue.empty())
    {
        const auto [saved, pRE] = *queue.begin();
        queue.erase(queue.begin());
        const double fresh = gainOf(mesh, pRE);
        if (fresh >= saved)
            pRE->tryFlipEdge(&mesh, nullptr, nullptr);
        else if (fresh > 0.005)
            queue.insert({fresh, pRE});
    }
    mesh.killDegenerate();
}
} // namespace

TEST(EnergyPower, AgreesWithThePower)
{
    std::mt19937_64 random(3);
    for (int i = 0; i < 200000; ++i)
    {
        const double x = std::ldexp(1.0 + double(random() >> 12) / 0x1p52, int(random() % 2044) - 1021);
        const long double expected = std::pow(static_cast<long double>(x), 0.335L);
        ASSERT_LE(std::fabs(energyPower(x) - expected), 6e-16L * expected) << x;
    }
    for (const double x : {DBL_MIN, 1e-320, 5e-324, DBL_MAX, 1.0})
        EXPECT_NEAR(double(energyPower(x) / std::pow(static_cast<long double>(x), 0.335L)), 1.0, 1e-15) << x;
    EXPECT_EQ(energyPower(0.0), 0.0);
    EXPECT_EQ(energyPower(HUGE_VAL), HUGE_VAL);
    EXPECT_TRUE(std::isnan(energyPower(NAN)));
}

TEST_F(Flips, GainAgreesWithItsDefinition)
{
    int numWide = 0, numColored = 0, numFolded = 0, numRefused = 0;
    for (int run = 0; run < 3000; ++run)
    {
        std::uniform_real_distribution<double> x(-1, 1);
        const double spread = run % 5 < 2 ? 0.3 : 1.0;
        const auto near = [&](double px, double py)
        { return Point3(px + spread * x(random), py + spread * x(random), 0.7 * spread * x(random)); };
        Shape shape{
            {near(-2, 0), near(2, 0), near(0, 1.5), near(0, -1.5), near(-2, 3), near(2, 3), near(2, -3), near(-2, -3)},
            {}};
        if (run % 5 == 0) // the flip would fold
            shape.points[3] = near(0, 0.7);
        else if (run % 5 == 1) // folded before and after
            for (size_t i = 0; i < 4; ++i)
                shape.points[i] = near(i % 2 == 0 ? 0 : 2, i < 2 ? 2 : 0);
        if (run % 2 == 0)
            for (Point3& p : shape.points)
                p.setColor(static_cast<unsigned char>(random() % 64), 10, 90, 0);
        // a = 2, b = 3, opposite corners 0 and 1; the rims run 3-0, 0-2, 2-1, 1-3.
        shape.triangles = {{0, 2, 3}, {1, 3, 2}};
        const std::array<int, 3> outer[4] = {{0, 3, 7}, {2, 0, 4}, {1, 2, 5}, {3, 1, 6}};
        const Point3* rim[4] = {};
        for (size_t i = 0; i < 4; ++i)
            if (random() % 4 != 0)
            {
                shape.triangles.push_back(outer[i]);
                rim[i] = &shape.points[size_t(outer[i][2])];
            }
        if (run % 3 == 0)
            turnSomeTriangles(shape, random); // the first triangle's winding counts; the gain is the same
        const RMeshPtr mesh = makeMesh(shape, v);
        const auto& p = shape.points;
        const double gain = gainOf(*mesh, mesh->getEdge(v[2], v[3]));
        const double altDih = 1 - normalOf(p[0], p[2], p[1]) * normalOf(p[0], p[1], p[3]);
        const double curDih = 1 - normalOf(p[0], p[2], p[3]) * normalOf(p[1], p[3], p[2]);
        numFolded += altDih > 1.984807753;
        numRefused += gain == -DBL_MAX;
        ASSERT_EQ(gain == -DBL_MAX, altDih > 1.984807753 && altDih > curDih);
        if (gain == -DBL_MAX)
            continue;
        const double expected = expectedGain(p[2], p[3], p[0], p[1], rim);
        ASSERT_NEAR(gain, expected, 1e-6) << run; // nearly flat edges amplify rounding
        numWide += largestAngle(p[0], p[1], p[3]) > 130.0;
        numColored += run % 2 == 0;

        // The flip itself: both new triangles are wound like the first old one.
        REdge* const pNew = mesh->getEdge(v[2], v[3])->tryFlipEdge(mesh.get(), nullptr, nullptr);
        ASSERT_EQ(pNew, mesh->getEdge(v[0], v[1]));
        ASSERT_EQ(pNew->getDegree(), 2);
        const bool bTurned = shape.triangles[0][1] != 2;
        shape.triangles[0] = bTurned ? std::array{1, 2, 0} : std::array{0, 2, 1};
        shape.triangles[1] = bTurned ? std::array{0, 3, 1} : std::array{1, 3, 0};
        std::vector<Point3*> w;
        const RMeshPtr flipped = makeMesh(shape, w);
        ASSERT_EQ(getTriangles(*mesh), getTriangles(*flipped));
    }
    EXPECT_GT(numWide, 50);
    EXPECT_GT(numColored, 1000);
    EXPECT_GT(numRefused, 20);
    EXPECT_GT(numFolded, numRefused);
}

TEST_F(Flips, ImpossibleFlips)
{
    // A tetrahedron, where the other diagonal is an edge already; borders and three sheets on one edge; a diagonal that
    // runs through an end of the edge, one end or the other, so that a new triangle would be flat.
    const Shape shapes[] = {
        {{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {2, 0, 3}}},
        {{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}}, {{0, 1, 2}, {1, 0, 3}, {0, 1, 4}}},
        {{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}}, {{0, 1, 2}, {1, 0, 3}}},
        {{{1, 0, 0}, {0, 0, 0}, {0, 1, 0}, {0, -1, 0}}, {{0, 1, 2}, {1, 0, 3}}}};
    for (const Shape& shape : shapes)
    {
        const RMeshPtr mesh = makeMesh(shape, v);
        for (REdge* const pRE : mesh->getREdgesRef())
        {
            EXPECT_EQ(gainOf(*mesh, pRE), -DBL_MAX);
            EXPECT_EQ(pRE->tryFlipEdge(mesh.get(), nullptr, nullptr), nullptr);
        }
        EXPECT_EQ(mesh->getNumT(), shape.triangles.size());
    }
}

TEST_F(Flips, SameMeshAsAPlainLoopForAnyNumberOfThreads)
{
    for (int kind = 0; kind < numKinds; ++kind)
    {
        std::srand(1);
        const MeshPtr plain = makeKindOfMesh(kind);
        const std::vector<Point3*> plainVertices = v;
        outputOf([&] { flipPlainly(*plain->getRMesh()); }); // moves and bugs of coincident corners are printed
        for (const int numCPU : {1, 2, 5})
        {
            SCOPED_TRACE(std::to_string(kind) + " with CPUs: " + std::to_string(numCPU));
            const CpuCount cpus(numCPU);
            destroySingletons();
            std::srand(1);
            const MeshPtr mesh = makeKindOfMesh(kind);
            const RMesh& m = *mesh->getRMesh();
            const auto before = getTriangles(m);
            outputOf([&] { edgeFlips(mesh); });
            EXPECT_NE(getTriangles(m), before);
            EXPECT_TRUE(getTriangles(m) == getTriangles(*plain->getRMesh()));
            for (size_t i = 0; i < v.size(); ++i)
                EXPECT_EQ(std::memcmp(v[i], plainVertices[i], 3 * sizeof(double)), 0) << *v[i] << *plainVertices[i];
            std::vector<REdge*> regular;
            m.getDegN(2, regular);
            EXPECT_TRUE(kind >= 3 || 2 * regular.size() == 3 * mesh->getNumT()); // tori stay closed
            for (const REdge* const pRE : regular)
                EXPECT_FALSE(kind < 3 && pRE->vRT[0]->needFlip(pRE->vRT[1]));
        }
    }
    destroySingletons();
    EXPECT_EQ(getThreadProgress()->getName(), "EdgeFlips"); // a run under way goes on
}

TEST_F(Flips, OneRoundOfAnnealingDrawsInTheOrderOfTheEdges)
{
    const double temperature = 0.3;
    const MeshPtr expected = makeKindOfMesh(1);
    RMesh& m = *expected->getRMesh();
    std::vector<std::pair<double, REdge*>> candidates;
    m.getEdgeFlipCandidates_MT(m.vRE, 0.005, 0.0, candidates);
    EXPECT_EQ(candidates, getCandidatesPlainly(m, 0.0));
    std::srand(9);
    auto taken = getCandidatesPlainly(m, temperature);
    for (size_t i = 1; i < taken.size(); ++i)
        std::swap(taken[i], taken[size_t(std::rand()) % (i + 1)]);
    for (const auto& [gain, pRE] : taken)
        if (pRE->getDegree() == 2 && gainOf(m, pRE) != -DBL_MAX)
            pRE->tryFlipEdge(&m, nullptr, nullptr);

    for (const int numCPU : {1, 3})
    {
        const CpuCount cpus(numCPU);
        const MeshPtr mesh = makeKindOfMesh(1);
        std::srand(9);
        edgeFlipsSimA(mesh->getRMesh(), temperature);
        EXPECT_EQ(getTriangles(*mesh->getRMesh()), getTriangles(m)) << numCPU;
    }
}
