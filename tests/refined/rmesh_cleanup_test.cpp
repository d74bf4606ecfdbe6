// Clean-up and colours of the refined mesh, and the limits of its smoothing.
#include "base/Progress.h"
#include "geometry/ColorUtils.h"
#include "helpers/capture.h"
#include "helpers/mesh_shapes.h"
#include "refined/RMesh.h"
#include "refined/RPatch.h"
#include "zav/Mesh.h"
#include "zav/meshOperations.h"
#include "zav/zav_api_functions.h"

#include <gtest/gtest.h>

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

TEST_F(RMeshCleanup, PatchesHoldWhatHangsTogetherOverEdgesOfTwo)
{
    const Shape torus = makeTorus(12, 9, 0.2, random);
    RMeshPtr mesh = makeMesh(torus, v);
    EXPECT_EQ(mesh->createPatchesOrient(), 1u);
    EXPECT_EQ(mesh->vPatches[0]->getTriangles().size(), torus.triangles.size());
    mesh = makeMesh({{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}}, {{0, 1, 2}, {0, 1, 3}, {0, 1, 4}}}, v);
    EXPECT_EQ(mesh->createPatchesOrient(), 3u);
}

TEST_F(RMeshCleanup, FlatTrianglesGo)
{
    for (const Point3& p : {Point3(0, 0, 0), Point3(1, 0, 0), Point3(2, 1e-5, 0), Point3(-2, 1e-5, 0)})
        for (const std::array<int, 3>& corners : {std::array{0, 1, 2}, {0, 2, 1}})
        {
            const RMeshPtr mesh = makeMesh({{{0, 0, 0}, {1, 0, 0}, p}, {corners}}, v);
            mesh->killDegenerate();
            EXPECT_EQ(mesh->getNumT(), 0u) << p;
        }
}

TEST_F(RMeshCleanup, UpToThreeZeroVerticesStay)
{
    for (const size_t numZeros : {3u, 4u})
    {
        const RMeshPtr mesh = makeMesh(makeGrid(5, 5, 0.5, random), v);
        mesh->vZeroVtx.assign(v.begin() + 11, v.begin() + 11 + long(numZeros)); // inside, but for number 14
        const Point3 before[] = {*v[11], *v[14]};
        mesh->smoothZeros(5);
        EXPECT_EQ(*v[11] == before[0], numZeros == 3);
        EXPECT_TRUE(*v[14] == before[1] && mesh->hasVertex(*v[11]));
    }
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
