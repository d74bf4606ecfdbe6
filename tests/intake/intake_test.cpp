// From points to bundles: bounds, the spacing estimate, the choice of the lattice, cells and their points.

#include "base/Progress.h"
#include "cells/Prepare.h"
#include "helpers/capture.h"
#include "intake/CloudMgr.h"
#include "zav/zav_api_functions.h"

#include <algorithm>
#include <array>
#include <climits>
#include <limits>
#include <tuple>

using namespace MIRT_ZAV;
using test::hasBug;
using test::outputOf;

namespace
{
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
} // namespace

TEST(Spacing, PointsThatAreNotFiniteAreSkippedAndBadCloudsEndInBugs)
{
    std::vector<Point3> points, empty;
    const std::string text = outputOf([&] { EXPECT_EQ(estimateAvgSpacing(empty), -1.0); });
    EXPECT_NE(text.find("Nothing to do for cloud inputPointsViaMemory"), std::string::npos);

    for (int i = 0; i < 2000; ++i)
        points.emplace_back(i % 50 * 0.1, i / 50 * 0.1, 0.0);
    points.insert(points.begin() + 100, {notANumber, 0.0, 0.0});
    points.emplace_back(0.0, notANumber, inf - inf);
    const MeshPtr mesh = reconstruct_abs(points, 0.2, 0);
    std::vector<Point3*> vertices;
    mesh->getPoints(vertices);
    EXPECT_FALSE(vertices.empty());
    EXPECT_TRUE(std::all_of(vertices.begin(), vertices.end(), [](const Point3* p) { return p->isFinite(); }));

    const std::vector<Point3> two = {Point3(0, 0, 0), Point3(1, 1, 1)};
    const std::string noSpacing = "usedSpacing>0", noLattice = "numCReal>=numReqC";
    const std::tuple<std::vector<Point3>, double, std::string> cases[] = {
        {std::vector<Point3>(20, Point3(1.0, 2.0, 3.0)), 0.0, noSpacing}, // no extent
        {{Point3(1, 1, 1)}, -1.0, noSpacing},
        {two, notANumber, noSpacing},
        {two, 1e-320, noLattice},
        {{Point3(0, 0, 0), Point3(3e6, 0, 0)}, 1.0, noLattice},
        {{Point3(0, 0, 0), Point3(inf, 1, 1)}, 0.1, noLattice},
        {{Point3(notANumber, 0, 0), Point3(1, 1, 1)}, 0.1, noLattice}};
    for (const auto& [cloud, spacing, condition] : cases)
    {
        std::vector<Point3> bad = cloud;
        EXPECT_TRUE(hasBug(condition, [&bad, side = spacing] { reconstruct_abs(bad, side, 0); }))
            << bad.front() << ' ' << spacing;
    }
}

TEST(Lattice, IsTheBoxWithAMarginInACubeOfAPowerOfTwo)
{
    for (const auto& [extent, numLevels] : {std::pair(1e6, 20), std::pair(2087152.0, 21)}) // and 10,000 cells of margin
    {
        std::vector<Point3> points = {Point3(-4.0, 1.0, 2.0), Point3(extent - 4.0, 2.0, 3.0)};
        getThreadProgress()->startRun("Test");
        Cloud cloud("inputPointsViaMemory", 1.0, -1.0, false, 0);
        cloud.setInputPoints(points);
        cloud.prepareScanPoints(nullptr);
        getThreadProgress()->reset();
        double x = 0, y = 0, z = 0;
        cloud.getCalc()->getOrigin(x, y, z);
        EXPECT_EQ(Point3(x, y, z), Point3(-5004.0, -4999.0, -4998.0));
        EXPECT_EQ(cloud.getCalc()->getNumLevels(), numLevels);
        EXPECT_EQ(cloud.getCalc()->getSideLen(), 1.0);
    }
}

TEST(CellCreation, SizesOfHoleControlDoubleUpToTheLimit)
{
    const std::vector<int> expected[] = {{2, 4, 8, 16, 32, 64, 100}, {2, 4, 10}, {2, 5}, {2, 3}, {2}, {1}};
    for (const std::vector<int>& sizes : expected)
        EXPECT_EQ(Prepare::getHoleControlSizes(sizes.back()), sizes);
    EXPECT_EQ(Prepare::getHoleControlSizes(INT_MAX).back(), INT_MAX);
    EXPECT_TRUE(Prepare::getHoleControlSizes(0).empty());
    EXPECT_TRUE(Prepare::getHoleControlSizes(-7).empty());
}

TEST(Bundles, ThoseOfOneCellAreMerged)
{
    Point3 p[2] = {Point3(1, 1, 1), Point3(2, 2, 2)};
    Bundle b[2] = {{&p[0], 7, nullptr, p[0]}, {&p[1], 7, nullptr, p[1]}};
    const std::pair<CCD, Bundle*> run[2] = {{7, &b[0]}, {7, &b[1]}};
    EXPECT_EQ(mergeBundlesOfCell(run, run + 2), &b[1]);
    EXPECT_FALSE(p[1].hasColor());
    p[0].setColor(255, 200, 255, 0);
    p[1].setColor(255, 100, 254, 9);
    mergeBundlesOfCell(run, run + 1);
    EXPECT_EQ(int(p[0].g), 200);
    EXPECT_EQ(mergeBundlesOfCell(run, run + 2), &b[1]);
    EXPECT_EQ((std::array<int, 4>{p[1].r, p[1].g, p[1].b, p[1].a}), (std::array{1, 0, 0, 0})); // sums over 2 * 255
}
