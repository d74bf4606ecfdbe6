// From points to bundles: bounds, the spacing estimate, the choice of the lattice, cells and their points.

#include "base/Progress.h"
#include "cells/Prepare.h"
#include "helpers/capture.h"
#include "intake/CloudMgr.h"
#include "zav/zav_api_functions.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <tuple>

using namespace MIRT_ZAV;
using test::hasBug;
using test::outputOf;

namespace
{
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

std::vector<Point3> getNoisySphere(size_t n, double radius, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> normal;
    std::vector<Point3> points;
    for (size_t i = 0; i < n; ++i)
    {
        const double x = normal(random), y = normal(random), z = normal(random);
        const double r = radius * (1.0 + 0.002 * normal(random)) / std::sqrt(x * x + y * y + z * z);
        points.emplace_back(r * x + 3.0, r * y - 2.0, r * z);
        points.back().setColor(static_cast<unsigned char>(i), 1, 2, 3);
    }
    return points;
}

/// The estimate on Morton codes that are strings of octants, the highest level first: how far two codes agree shows at
/// their fronts, and coarser cells are shorter strings.
double estimateNaively(const std::vector<Point3>& points)
{
    double low[3] = {inf, inf, inf}, high[3] = {-inf, -inf, -inf};
    for (const Point3& p : points)
        for (int axis = 0; axis < 3; ++axis)
        {
            const double c = axis == 0 ? p.x() : axis == 1 ? p.y() : p.z();
            low[axis] = std::min(low[axis], c);
            high[axis] = std::max(high[axis], c);
        }
    const double extent = std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]});
    const auto toIndex = [&](double c, int axis) { return unsigned((c - low[axis]) * (1048576.0 / extent)); };
    std::vector<std::string> cells;
    for (const Point3& p : points)
    {
        const unsigned i = toIndex(p.x(), 0), j = toIndex(p.y(), 1), k = toIndex(p.z(), 2);
        cells.emplace_back();
        for (int level = 20; level >= 0; --level)
            cells.back() += char('0' + (i >> level & 1) * 4 + (j >> level & 1) * 2 + (k >> level & 1));
    }
    std::sort(cells.begin(), cells.end());
    std::vector<int> levels;
    for (size_t i = 1; i < cells.size(); ++i)
    {
        const auto differs = std::mismatch(cells[i].begin(), cells[i].end(), cells[i - 1].begin()).first;
        if (const int level = 20 - int(differs - cells[i].begin()); level > 1)
            levels.push_back(level);
    }
    std::sort(levels.begin(), levels.end());
    const int m = levels[levels.size() / 2] + 2;
    std::set<std::string> coarse;
    for (const std::string& cell : cells)
        coarse.insert(cell.substr(0, size_t(21 - m)));
    const double s = std::ldexp(extent / 1048576.0, m);
    return std::sqrt((double(coarse.size()) * (s * s / 1.307025)) / double(points.size()) * 1.5396);
}
} // namespace

TEST(Spacing, AgreesWithANaiveEstimateToTheLastBit)
{
    for (const size_t n : {50u, 700u, 5000u, 30000u})
    {
        std::vector<Point3> points = getNoisySphere(n, 10.0, unsigned(n));
        EXPECT_EQ(estimateAvgSpacing(points), estimateNaively(points));
    }
}

TEST(Spacing, PointsThatAreNotFiniteAreSkippedAndBadCloudsEndInBugs)
{
    std::vector<Point3> points, empty;
    const std::string text = outputOf([&] { EXPECT_EQ(estimateAvgSpacing(empty), -1.0); });
    EXPECT_NE(text.find("Nothing to do for cloud inputPointsViaMemory"), std::string::npos);

    points = getNoisySphere(2000, 1.0, 5);
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

TEST(CellCreation, EveryCellCarriesItsLatestPointWithColour)
{
    std::vector<Point3> points = getNoisySphere(20000, 5.0, 9);
    Calc calc(-60.0, -60.0, -60.0, 128.0, 128.0, 128.0, 9);
    std::map<CCD, Point3> latest;
    for (const Point3& p : points)
        latest[calc.getCCD(&p)] = p;

    getThreadProgress()->startRun("Test");
    Prepare prepare(points, 0, &calc);
    std::vector<std::pair<CCD, Point3>> result;
    std::vector<CCD> fill;
    prepare.run(result, fill);
    getThreadProgress()->reset();

    EXPECT_TRUE(fill.empty());
    ASSERT_FALSE(result.empty());
    for (size_t i = 0; i < result.size(); ++i)
    {
        const auto& [cell, point] = result[i];
        EXPECT_TRUE(i == 0 || result[i - 1].first < cell);
        ASSERT_TRUE(latest.count(cell));
        EXPECT_EQ(latest[cell], point);
        EXPECT_TRUE(point.hasColor() && latest[cell].r == point.r);
    }
    std::vector<RCD> both = prepare.vAreaRCDsrt;
    const auto middle = both.insert(both.end(), prepare.vBorderRCDsrt.begin(), prepare.vBorderRCDsrt.end());
    std::inplace_merge(both.begin(), middle, both.end());
    EXPECT_EQ(both, prepare.vAllRCDsrt);
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
