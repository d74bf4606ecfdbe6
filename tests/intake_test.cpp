// From points to bundles: bounds, the spacing estimate, the choice of the lattice, cells and their points.

#include "CloudMgr.h"
#include "Prepare.h"
#include "Progress.h"
#include "tools.h"
#include "zav_api_functions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <set>

using namespace MIRT_ZAV;

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

/// The estimate in the plainest terms: integer coordinates instead of codes, sets instead of sorted vectors.
double estimateNaively(const std::vector<Point3>& points)
{
    double low[3] = {inf, inf, inf}, high[3] = {-inf, -inf, -inf};
    for (const Point3& p : points)
    {
        const double c[3] = {p.x(), p.y(), p.z()};
        for (int axis = 0; axis < 3; ++axis)
        {
            low[axis] = std::min(low[axis], c[axis]);
            high[axis] = std::max(high[axis], c[axis]);
        }
    }
    const double extent = std::max({high[0] - low[0], high[1] - low[1], high[2] - low[2]});
    const double scale = 1048576.0 / extent;
    using Index = std::array<unsigned, 3>;
    std::vector<Index> cells;
    for (const Point3& p : points)
        cells.push_back({unsigned((p.x() - low[0]) * scale), unsigned((p.y() - low[1]) * scale),
                         unsigned((p.z() - low[2]) * scale)});
    const auto octant = [](const Index& c, int level)
    { return (c[0] >> level & 1) * 4 + (c[1] >> level & 1) * 2 + (c[2] >> level & 1); };
    std::sort(cells.begin(), cells.end(),
              [&](const Index& a, const Index& b)
              {
                  for (int level = 20; level >= 0; --level)
                      if (octant(a, level) != octant(b, level))
                          return octant(a, level) < octant(b, level);
                  return false;
              });
    std::vector<int> levels;
    for (size_t i = 1; i < cells.size(); ++i)
        for (int level = 20; level > 1; --level)
            if (octant(cells[i - 1], level) != octant(cells[i], level))
            {
                levels.push_back(level);
                break;
            }
    std::sort(levels.begin(), levels.end());
    const int m = levels[levels.size() / 2] + 2;
    std::set<Index> coarse;
    for (const Index& c : cells)
        coarse.insert({c[0] >> m, c[1] >> m, c[2] >> m});
    const double s = std::ldexp(extent / 1048576.0, m);
    return std::sqrt((double(coarse.size()) * (s * s / 1.307025)) / double(points.size()) * 1.5396);
}

/// A Cloud through its intake at a given absolute spacing.
std::unique_ptr<Cloud> takeIn(std::vector<Point3> points, double spacing)
{
    getThreadProgress()->startRun("Test");
    auto cloud = std::make_unique<Cloud>("inputPointsViaMemory", spacing, -1.0, false, 0);
    cloud->setInputPoints(points);
    cloud->prepareScanPoints(nullptr);
    getThreadProgress()->reset();
    return cloud;
}

std::string outputOf(const std::function<void()>& f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}
} // namespace

TEST(Spacing, AgreesWithANaiveEstimateToTheLastBit)
{
    for (const size_t n : {50u, 700u, 5000u, 30000u})
    {
        std::vector<Point3> points = getNoisySphere(n, 10.0, unsigned(n));
        const double detected = estimateAvgSpacing(points);
        EXPECT_EQ(detected, estimateNaively(points));
        const double ideal = std::sqrt(4.0 * M_PI * 100.0 / double(n));
        EXPECT_GT(detected, 0.5 * ideal);
        EXPECT_LT(detected, 2.0 * ideal);
    }
}

TEST(Spacing, PointsThatAreNotFiniteAreSkippedAndBadCloudsEndInTheirMessages)
{
    std::vector<Point3> empty;
    const std::string text = outputOf([&] { EXPECT_EQ(estimateAvgSpacing(empty), -1.0); });
    const std::string nothing = "Nothing to do for cloud inputPointsViaMemory";
    EXPECT_NE(text.find(nothing), std::string::npos);
    EXPECT_EQ(text.find(nothing), text.rfind(nothing)) << "once";

    std::vector<Point3> points = getNoisySphere(2000, 1.0, 5);
    points.insert(points.begin() + 100, {notANumber, 0.0, 0.0});
    points.emplace_back(0.0, notANumber, inf - inf);
    const MeshPtr mesh = reconstruct_abs(points, 0.05, 0);
    ASSERT_TRUE(mesh);
    std::vector<Point3*> vertices;
    mesh->getPoints(vertices);
    EXPECT_TRUE(std::all_of(vertices.begin(), vertices.end(), [](const Point3* p) { return p->isFinite(); }));

    const auto failsWith = [](std::vector<Point3> bad, double spacing, const std::string& condition)
    {
        const std::string printed = outputOf([&] { EXPECT_THROW(reconstruct_abs(bad, spacing, 0), ZavBugException); });
        EXPECT_NE(printed.find("Condition [ " + condition + " failed ]"), std::string::npos) << printed;
    };
    failsWith(std::vector<Point3>(20, Point3(1.0, 2.0, 3.0)), 0.0, "usedSpacing>0"); // no extent, so no spacing
    failsWith({Point3(1, 1, 1)}, -1.0, "usedSpacing>0");
    failsWith(getNoisySphere(100, 1.0, 1), -2.0, "usedSpacing>0");
    failsWith({Point3(notANumber, 0, 0), Point3(1, 1, 1)}, 0.1, "numCReal>=numReqC");
    failsWith({Point3(1, notANumber, 0), Point3(1, 1, 1)}, 0.1, "numCReal>=numReqC");
    failsWith({Point3(1, 0, notANumber), Point3(1, 1, 1)}, -1.0, "usedSpacing>0");
    failsWith({Point3(0, 0, 0), Point3(inf, 1, 1)}, 0.1, "numCReal>=numReqC");
    failsWith({Point3(0, 0, 0), Point3(1, 1, 1)}, 1e-320, "numCReal>=numReqC");
    failsWith({Point3(0, 0, 0), Point3(1, 1, 1)}, notANumber, "usedSpacing>0");
    failsWith({Point3(0, 0, 0), Point3(1, 1, 1)}, inf, "usedSpacing>0");
}

TEST(Lattice, IsTheBoxWithAMarginInACubeOfAPowerOfTwo)
{
    const auto cloud = takeIn({Point3(-4.0, 1.0, 2.0), Point3(1e6 - 4.0, 2.0, 3.0)}, 1.0);
    EXPECT_EQ(cloud->getCalc()->getNumLevels(), 20); // 1,010,000 cells needed
    EXPECT_EQ(cloud->getCalc()->getSideLen(), 1.0);
    double x = 0, y = 0, z = 0;
    cloud->getCalc()->getOrigin(x, y, z);
    EXPECT_EQ(Point3(x, y, z), Point3(-5004.0, -4999.0, -4998.0));
    EXPECT_EQ(cloud->getDetectedSpacing(), -1.0);

    EXPECT_EQ(takeIn({Point3(0, 0, 0), Point3(2087152.0, 0, 0)}, 1.0)->getCalc()->getNumLevels(), 21);
    const std::string text = outputOf(
        [] {
            EXPECT_THROW(takeIn({Point3(0, 0, 0), Point3(3e6, 0, 0)}, 1.0), ZavBugException);
        });
    EXPECT_NE(text.find("BaseLevel out of range: 22"), std::string::npos);
    EXPECT_NE(text.find("numCReal>=numReqC"), std::string::npos);
    EXPECT_NE(text.find("createCalc()"), std::string::npos);
}

TEST(CellCreation, EveryCellCarriesItsLatestPointWithColour)
{
    std::vector<Point3> points = getNoisySphere(20000, 5.0, 9);
    const Calc calc(-60.0, -60.0, -60.0, 128.0, 128.0, 128.0, 9);
    std::map<CCD, Point3> latest;
    for (const Point3& p : points)
        latest[calc.getCCD(&p)] = p;

    getThreadProgress()->startRun("Test");
    Calc copy = calc;
    Prepare prepare(points, 0, &copy);
    std::vector<std::pair<CCD, Point3>> result;
    std::vector<CCD> fill;
    prepare.run(result, fill);
    getThreadProgress()->reset();

    EXPECT_TRUE(fill.empty());
    ASSERT_FALSE(result.empty());
    EXPECT_LE(result.size(), latest.size());
    for (size_t i = 0; i < result.size(); ++i)
    {
        const auto& [cell, point] = result[i];
        EXPECT_TRUE(i == 0 || result[i - 1].first < cell);
        ASSERT_TRUE(latest.count(cell));
        EXPECT_EQ(latest[cell], point);
        EXPECT_TRUE(point.hasColor());
        EXPECT_EQ(latest[cell].r, point.r);
    }
    std::vector<RCD> both = prepare.vAreaRCDsrt;
    both.insert(both.end(), prepare.vBorderRCDsrt.begin(), prepare.vBorderRCDsrt.end());
    std::sort(both.begin(), both.end());
    EXPECT_EQ(both, prepare.vAllRCDsrt);
    EXPECT_FALSE(prepare.vBorderRCDsrt.empty() && prepare.vAreaRCDsrt.empty());
}

TEST(CellCreation, SizesOfHoleControlDoubleUpToTheLimit)
{
    const auto sizes = [](int limit) { return Prepare::getHoleControlSizes(limit); };
    EXPECT_EQ(sizes(100), (std::vector<int>{2, 4, 8, 16, 32, 64, 100}));
    EXPECT_EQ(sizes(10), (std::vector<int>{2, 4, 10}));
    EXPECT_EQ(sizes(5), (std::vector<int>{2, 5}));
    EXPECT_EQ(sizes(3), (std::vector<int>{2, 3}));
    EXPECT_EQ(sizes(2), (std::vector<int>{2}));
    EXPECT_EQ(sizes(1), (std::vector<int>{1}));
    EXPECT_EQ(sizes(INT_MAX).back(), INT_MAX);
    EXPECT_LT(sizes(INT_MAX).size(), 32u);
    EXPECT_TRUE(sizes(0).empty());
    EXPECT_TRUE(sizes(-7).empty());
}

TEST(Bundles, OneCloudGivesOneBundlePerCellAndRunsAreMerged)
{
    getThreadProgress()->startRun("Test");
    std::vector<Point3> points = getNoisySphere(5000, 5.0, 2);
    CloudMgr manager;
    Calc* pCalc = nullptr;
    std::vector<Bundle*> bundles;
    std::vector<CCD> fill;
    EXPECT_THROW(manager.getBundles(bundles, pCalc, fill), ZavBugException);
    EXPECT_EQ(manager.setInputPoints(points, 0.3, -1.0, false, 361.0, nullptr, 0), -1.0);
    manager.getBundles(bundles, pCalc, fill);
    getThreadProgress()->reset();
    ASSERT_FALSE(bundles.empty());
    for (size_t i = 0; i < bundles.size(); ++i)
    {
        EXPECT_TRUE(i == 0 || bundles[i - 1]->ccd < bundles[i]->ccd);
        EXPECT_EQ(pCalc->getCCD(bundles[i]->pVtx), bundles[i]->ccd);
        EXPECT_EQ(*bundles[i]->pVtx, bundles[i]->startPoint);
    }

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
    EXPECT_EQ(int(p[1].r), 1); // (255 + 255) / (2 * 255)
    EXPECT_EQ(int(p[1].g), 0);
    EXPECT_EQ(int(p[1].b), 0);
    EXPECT_EQ(int(p[1].a), 0);
}
