// The coarse mesh: structure under random changes against a naive model, and the operations in real coordinates.

#include "base/tools.h"
#include "helpers/coarse_cells.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <map>
#include <random>
#include <tuple>

using namespace MIRT_ZAV;

namespace
{
using Corners = std::array<VCD, 3>;

/// A mesh on unit cells, with bundles in those that a test asks for.
class CMeshTest : public ::testing::Test, protected test::CoarseCells
{
protected:
    CMeshTest() : CoarseCells(4) {}

    CTriangle* create(const Corners& c) { return mesh.createT(c[0], c[1], c[2], 0, 0); }

    std::vector<CTriangle*> incidentT(VCD v)
    {
        std::vector<CTriangle*> out;
        mesh.getIncidentT(v, out);
        return out;
    }
    size_t numDegN(int n)
    {
        std::vector<CEdge*> out;
        mesh.getDegN(n, out);
        return out.size();
    }
};

} // namespace

TEST_F(CMeshTest, RandomCreationAndKillsAgreeWithANaiveModel)
{
    std::mt19937 random(7);
    std::vector<std::pair<CTriangle*, Corners>> alive; // in order of creation
    std::map<std::pair<VCD, VCD>, int> degrees;        // of dead edges, too
    const auto addToDegrees = [&](const Corners& c, int step)
    {
        for (size_t k = 0; k < 3; ++k)
            degrees[std::minmax(c[k], c[(k + 1) % 3])] += step;
    };
    for (int step = 0; step < 4000; ++step)
        if (random() % 3 != 0 || alive.empty())
        {
            const VCD a = random() % 12, b = (a + 1 + random() % 5) % 12, c = (b + 1 + random() % 5) % 12;
            alive.emplace_back(create({a, b, c}), Corners{a, b, c});
            addToDegrees({a, b, c}, 1);
        }
        else
        {
            const auto victim = alive.begin() + static_cast<std::ptrdiff_t>(random() % alive.size());
            victim->first->kill(&mesh);
            addToDegrees(victim->second, -1);
            alive.erase(victim);
        }
    ASSERT_EQ(mesh.vCE.size(), degrees.size());
    ASSERT_EQ(mesh.numAliveT, alive.size());
    for (VCD v = 0; v < 12; ++v)
    {
        std::vector<CTriangle*> expected;
        for (const auto& [t, corners] : alive)
            if (std::count(corners.begin(), corners.end(), v) > 0)
                expected.push_back(t);
        EXPECT_EQ(incidentT(v), expected) << v;
    }
    const std::tuple<int, int, int> queries[] = {{1, 1, 1}, {2, 2, 2}, {-1, 3, 1000}, {-99, 1, 1000}, {7, 7, 7}};
    for (const auto& [n, least, most] : queries)
    {
        std::vector<CEdge*> edges;
        mesh.getDegN(n, edges);
        std::vector<std::pair<VCD, VCD>> ends, expected;
        for (const CEdge* e : edges)
            ends.emplace_back(e->v0, e->v1);
        for (const auto& [edge, degree] : degrees)
            if (degree >= least && degree <= most)
                expected.push_back(edge);
        EXPECT_EQ(ends, expected) << n;
    }
    EXPECT_EQ(numDegN(-5), numDegN(1) + numDegN(-1));

    mesh.reset();
    EXPECT_TRUE(mesh.vT.empty() && mesh.vCE.empty() && mesh.numAliveT == 0);
    CTriangle* const t = create({1, 2, 3});
    EXPECT_EQ(numDegN(1), 3u);
    t->kill(&mesh);
    EXPECT_THROW(t->kill(&mesh), ZavBugException);
}

TEST_F(CMeshTest, OfEqualTrianglesTheFirstMadeSurvivesWhateverItsWinding)
{
    CTriangle* const other = create({7, 8, 9});
    CTriangle* const first = create({3, 1, 2});
    CTriangle* const flipped = create({1, 3, 2});
    CTriangle* const again = create({1, 2, 3});
    first->kill(&mesh);
    EXPECT_EQ(mesh.killDups(), 1);
    EXPECT_TRUE(flipped->isAlive());
    EXPECT_FALSE(again->isAlive());
    EXPECT_EQ(mesh.vT, (std::vector<CTriangle*>{first, flipped, again, other}));
}

TEST_F(CMeshTest, AdditionalBundlesStandInTheMiddleOfTheirRing)
{
    // A fan of four around a new cell; the cells of the ring are old ones, whose mean counts.
    const CCD centre = cell(5, 5, 5);
    const CCD ring[4] = {vertex(4, 5, 5), vertex(5, 4, 5), vertex(6, 5, 5), vertex(5, 6, 5)};
    for (int i = 0; i < 4; ++i)
        create({centre, ring[i], ring[(i + 1) % 4]});
    EXPECT_THROW(mesh.addBundle(centre, DBL_MAX, DBL_MAX, 1.0), ZavBugException) << "only three mean the middle";

    mesh.addBundle(centre, DBL_MAX, DBL_MAX, DBL_MAX);
    const Point3* const p = mesh.getVtx(centre);
    // The ring vertex r of the last edge pulls, r + 1.003 * (avg - r); up to 1e-5 of rand() come on top in x.
    const Point3 mean = calc.getMidPoint(centre), last = *mesh.getVtx(ring[3]);
    EXPECT_NEAR(p->x(), last.x() + 1.003 * (mean.x() - last.x()), 1.01e-5);
    EXPECT_DOUBLE_EQ(p->y(), last.y() + 1.003 * (mean.y() - last.y()));
    EXPECT_DOUBLE_EQ(p->z(), mean.z());

    // Its own edges forbid every collapse: the bundle stays.
    mesh.integrateAdditionalBundles();
    EXPECT_EQ(mesh.vAdditionalBundles.size(), 1u);
    EXPECT_EQ(incidentT(centre).size(), 4u);

    // No neighbour has a bundle: the middle of the cell. No edge: the point that is given.
    const CCD alone = cell(12, 12, 12), lonely = cell(9, 9, 9);
    create({alone, cell(13, 12, 12), cell(12, 13, 12)});
    mesh.addBundle(alone, 12.1, 12.1, 12.1);
    mesh.addBundle(lonely, 9.25, 9.5, 9.75);
    EXPECT_EQ(*mesh.getVtx(alone), calc.getMidPoint(alone));
    EXPECT_EQ(*mesh.getVtx(lonely), Point3(9.25, 9.5, 9.75));
}

TEST_F(CMeshTest, FlatTrianglesAreSplitAwayUnlessANeighbourWouldTurn)
{
    //        beyond
    //
    //           d           the neighbour is a, b, d
    //
    //     a --- v --- b     the flat triangle is a, v, b: its corner v lies on its longest edge
    const CCD a = vertexAt(cell(2, 2, 2), {2.5, 2.5, 2.5}), b = vertexAt(cell(4, 2, 2), {4.5, 2.5, 2.5});
    const CCD v = vertexAt(cell(3, 2, 2), {3.5, 2.5, 2.5}), d = vertexAt(cell(3, 4, 2), {3.5, 4.5, 2.5});
    const CCD beyond = vertexAt(cell(3, 6, 2), {3.5, 6.5, 2.5}); // splitting a, b, d here would turn its halves over
    CPatch patch(&mesh, &calc);
    CTriangle* const neighbour = create({a, b, d});
    patch.add(neighbour);
    CTriangle* const far = create({a, beyond, b});
    std::vector<CTriangle*> vNew;
    EXPECT_FALSE(mesh.getEdge(a, b)->trySplitNeigsKillT(&mesh, far, 1, vNew));
    EXPECT_TRUE(far->isAlive() && neighbour->isAlive() && vNew.empty());
    far->kill(&mesh);

    CTriangle* const flat = create({a, v, b});
    EXPECT_TRUE(flat->isDegenerate(&mesh) && !neighbour->isDegenerate(&mesh));
    EXPECT_EQ(flat->getLargestEdgeICI(&mesh), 1);
    EXPECT_EQ(flat->getDevIfRepl(&mesh, 1, Point3(3.5, 1.0, 2.5)), -1.0);
    EXPECT_EQ(neighbour->getDevIfRepl(&mesh, 2, Point3(9.0, 2.5, 2.5)), 360.0);
    const double area = mesh.getArea();
    mesh.treatDegenerateT();
    EXPECT_FALSE(flat->isAlive() || neighbour->isAlive());
    EXPECT_TRUE(incidentT(d).size() == 2 && incidentT(v).size() == 2);
    EXPECT_DOUBLE_EQ(mesh.getArea(), area);
    EXPECT_EQ(patch.getSize(), 3u) << "the killed member stays listed";
    for (const CTriangle* t : incidentT(d))
    {
        bool ok = false;
        EXPECT_TRUE(t->getRealNNV(&mesh, ok).z() > 0.99 && t->getPatch() == &patch) << "winding and patch stay";
    }
}

TEST_F(CMeshTest, LaplacianMovesAtMostATenthOfACell)
{
    const CCD a = vertexAt(cell(2, 2, 2), {2.0, 2.0, 2.0}), b = vertexAt(cell(4, 2, 2), {4.0, 2.0, 2.0}),
              c = vertexAt(cell(3, 4, 2), {3.0, 4.0, 2.0}), v = vertexAt(cell(3, 3, 3), {3.0, 3.0, 3.0});
    EXPECT_FALSE(mesh.laplacianForOne(v));
    create({a, b, v});
    create({b, c, v});
    create({c, a, v});
    ownedPoints[3].setColor(1, 2, 3, 4);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(mesh.laplacianForOne(v));
    EXPECT_NE(testing::internal::GetCapturedStdout().find("devAngle would be "), std::string::npos);
    EXPECT_NEAR((mesh.getAvgPoint(v) - Point3(3.0, 3.0, 3.0)).length(), 0.1 * calc.getSideLen(), 1e-12);
    EXPECT_TRUE(mesh.getVtx(v)->hasColor());
}
