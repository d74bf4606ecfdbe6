// From triangle soups to clouds and new meshes.
#include "base/Progress.h"
#include "helpers/capture.h"
#include "zav/Mesh.h"
#include "zav/zav_api_functions.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <random>
#include <set>

using namespace MIRT_ZAV;
using namespace test;

namespace
{
/// The twelve triangles of a cube from the origin.
std::vector<Point3> getCube(double side)
{
    std::vector<Point3> corners;
    for (const double level : {0.0, side})
        for (int axis = 0; axis < 3; ++axis)
            for (const auto& [u, v] : {std::pair(0., 0.), {side, 0.}, {side, side}, {0., 0.}, {side, side}, {0., side}})
                corners.push_back(axis == 0   ? Point3(level, u, v)
                                  : axis == 1 ? Point3(u, level, v)
                                              : Point3(u, v, level));
    return corners;
}

std::vector<Point3> getRandomSoup(std::mt19937& random, int numTriangles)
{
    std::uniform_real_distribution<double> x(-3, 3);
    std::vector<Point3> corners;
    for (int i = 0; i < 3 * numTriangles; ++i)
        if (!corners.empty() && random() % 3 == 0)
            corners.push_back(corners[random() % corners.size()]);
        else
            corners.emplace_back(x(random), x(random), x(random));
    return corners;
}

using Corners = std::vector<std::array<double, 3>>;

Corners getCorners(const MeshPtr& mesh)
{
    std::vector<Point3*> points;
    mesh->getTriangles(points);
    Corners corners;
    for (const Point3* const p : points)
        corners.push_back({p->x(), p->y(), p->z()});
    return corners;
}

} // namespace

TEST(Melt, ACubeBecomesAnEvenCloudThatIsAppended)
{
    std::vector<Point3> cube = getCube(8.0);
    const std::vector<Point3> before = cube;
    std::vector<Point3> cloud(1, Point3(8, 8, 99)); // has to stay in front
    toCloud(cube, 0.5, 30.0, cloud);
    EXPECT_EQ(cube, before);
    EXPECT_EQ(cloud.front(), Point3(8, 8, 99));
    EXPECT_EQ(cloud.size(), 1539u);
    size_t numOnEdges = 0;
    for (const Point3& p : cloud)
    {
        const auto isAtEnd = [](double value) { return std::fabs(value) < 1e-9 || std::fabs(value - 8.0) < 1e-9; };
        const int numAtEnd = isAtEnd(p.x()) + isAtEnd(p.y()) + isAtEnd(p.z());
        EXPECT_GE(numAtEnd, 1) << p;
        numOnEdges += numAtEnd >= 2;
    }
    EXPECT_GE(numOnEdges, 12u * 15u);
}

TEST(Melt, SameMeshForAnyNumberOfCpus)
{
    std::mt19937 random(17);
    for (int run = 0; run < 6; ++run)
    {
        std::vector<Point3> soup = getRandomSoup(random, 40);
        const auto meltWith = [&](int numCPU)
        {
            destroySingletons();
            const CpuCount cpus(numCPU);
            std::srand(3);
            MeshPtr mesh;
            outputOf([&] { mesh = melt(soup, 0.15, 20.0); });
            return getCorners(mesh);
        };
        const Corners serial = meltWith(1);
        EXPECT_GT(serial.size(), 1000u);
        for (const int numCPU : {2, 5})
            EXPECT_EQ(meltWith(numCPU), serial) << run;
    }
    destroySingletons();
}

TEST(Melt, TornSoupsEndInAResult)
{
    std::mt19937 random(5);
    int numDone = 0;
    for (int run = 0; run < 60; ++run)
    {
        std::vector<Point3> soup = getRandomSoup(random, 1 + run % 7);
        if (run % 5 == 0)
            for (Point3& p : soup)
                p.set(1e6 + std::floor(p.x()), std::floor(p.y()), -3e6 + std::floor(p.z()));
        const auto meltBoth = [&]
        {
            std::vector<Point3> cloud;
            toCloud(soup, 0.4, run % 3 == 0 ? 361.0 : 20.0, cloud);
            EXPECT_EQ(std::set<Point3>(cloud.begin(), cloud.end()).size(), cloud.size());
            melt(soup, 0.4, 20.0);
        };
        numDone += bugReportOf(meltBoth) == "no bug"; // a needle may end in a bug report
    }
    EXPECT_GT(numDone, 50);
}

TEST(Melt, WhatCanNotBeDoneIsTold)
{
    std::vector<Point3> none, flat = {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, cube = getCube(1.0), cloud;
    const auto tells = [](const char* what, const auto& f) { return outputOf(f).find(what) != std::string::npos; };
    EXPECT_TRUE(tells("toCloud: Nothing to do", [&] { toCloud(none, 1.0, 30.0, cloud); }) && cloud.empty());
    EXPECT_TRUE(tells("MELT: Nothing to do", [&] { EXPECT_FALSE(melt(none, 1.0, 30.0)); }));
    EXPECT_TRUE(tells("No non-degenerate triangles", [&] { EXPECT_FALSE(melt(flat, 0.3, 30.0)); }));
    for (const double spacing : {0.0, -1.0, double(NAN)})
        EXPECT_TRUE(hasBug("usedSpacing>0", [&] { toCloud(cube, spacing, 30.0, cloud); })) << spacing;
    cube.pop_back();
    EXPECT_TRUE(hasBug("vTriangleCorners.size()%3==0", [&] { toCloud(cube, 0.1, 30.0, cloud); }));
    cube = getCube(1.0);
    cloud.clear();
    toCloud(cube, 0.25, 30.0, cloud); // as if nothing had happened
    EXPECT_GT(cloud.size(), 90u);
    EXPECT_EQ(getThreadProgress()->getName(), "empty");
    EXPECT_EQ(getStageTimings().front().label, "ToCloud");
}
