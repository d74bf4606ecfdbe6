// Whole runs through the public functions.

#include "helpers/capture.h"
#include "zav/zav_api_functions.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <thread>

using namespace MIRT_ZAV;

namespace
{
/// A torus, evenly sampled in its parameters, with colours.
std::vector<Point3> getTorus(size_t n, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
    std::vector<Point3> points;
    for (size_t i = 0; i < n; ++i)
    {
        const double u = angle(random), v = angle(random), r = 3.0 + std::cos(v);
        points.emplace_back(r * std::cos(u), r * std::sin(u), std::sin(v));
        points.back().setColor(static_cast<unsigned char>(40.0 * u), static_cast<unsigned char>(40.0 * v), 7, 255);
    }
    return points;
}

struct Indexed
{
    std::vector<Point3*> points;
    std::vector<int> indices;
    explicit Indexed(const MeshPtr& mesh) { mesh->getVertexIndexData(points, indices); }
};

/// Keeps what it hears.
struct Listener : ProgressBase
{
    std::vector<std::pair<std::string, double>> heard;
    void update(const std::string& name, double fraction) override { heard.emplace_back(name, fraction); }
};

bool sameMesh(const MeshPtr& a, const MeshPtr& b)
{
    const Indexed x(a), y(b);
    return x.indices == y.indices &&
           std::equal(x.points.begin(), x.points.end(), y.points.begin(), y.points.end(),
                      [](const Point3* p, const Point3* q)
                      { return *p == *q && p->r == q->r && p->g == q->g && p->b == q->b && p->a == q->a; });
}
} // namespace

TEST(Reconstruct, AbsoluteAndFactorSpacingAgreeAndCoarserMeansFewer)
{
    std::vector<Point3> points = getTorus(8000, 2);
    const std::vector<Point3> before = points;
    const double spacing = estimateAvgSpacing(points);
    std::srand(1); // the repair draws from rand() in the state that the caller left
    const MeshPtr byFactor = reconstruct_auto(points, 1.5, 2);
    std::srand(1);
    EXPECT_TRUE(sameMesh(byFactor, reconstruct_abs(points, 1.5 * spacing, 2)));
    EXPECT_EQ(points, before);
    EXPECT_GT(byFactor->getNumT(), 2 * reconstruct_auto(points, 3.0, 2)->getNumT());
}

TEST(Reconstruct, SameMeshForAnyNumberOfCpusAndOnAnyThread)
{
    std::vector<Point3> points = getTorus(15000, 3);
    const auto run = [](std::vector<Point3>& cloud, int numCPU)
    {
        const test::CpuCount cpus(numCPU);
        destroySingletons();
        std::srand(1);
        return reconstruct_auto(cloud, 1.0, 4);
    };
    const MeshPtr serial = run(points, 1);
    for (const int n : {2, 3, 7})
        EXPECT_TRUE(sameMesh(serial, run(points, n))) << n;
    // Two application threads at once, each with its own progress tree. They share rand(), on which the last digits of
    // vertices that the repair adds depend, and by these a flip here and there: only the numbers have to agree.
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i)
        threads.emplace_back(
            [&serial, points]() mutable
            {
                Listener listener;
                subscribe(&listener);
                const MeshPtr mesh = reconstruct_auto(points, 1.0, 4);
                EXPECT_EQ(listener.heard.back(), std::make_pair(std::string("Reconstruct"), 1.0));
                EXPECT_EQ(mesh->getNumT(), serial->getNumT());
                EXPECT_EQ(Indexed(mesh).points.size(), Indexed(serial).points.size());
            });
    for (std::thread& thread : threads)
        thread.join();
    destroySingletons();
}

TEST(Reconstruct, NothingToMeshGivesANullMeshAndAMessage)
{
    std::vector<Point3> none, one = {Point3(1, 2, 3)}, many = getTorus(3000, 4);
    const std::string text = test::outputOf([&none] { EXPECT_FALSE(reconstruct_auto(none, 1.0, 0)); });
    EXPECT_NE(text.find("Nothing to do (bad input? wrong resolution?)"), std::string::npos);
    const MeshPtr mesh = reconstruct_abs(one, 0.1, 0);
    ASSERT_TRUE(mesh) << "one cell is a mesh without triangles";
    EXPECT_EQ(mesh->getNumT(), 0u);
    EXPECT_THROW(reconstruct_abs(one, 0.0, 0), ZavBugException);
    EXPECT_GT(reconstruct_auto(many, 1.0, 0)->getNumT(), 0u); // as before
}

TEST(Reconstruct, ProgressRisesToOneAndStagesAreTimed)
{
    std::vector<Point3> points = getTorus(5000, 5);
    Listener listener;
    const auto rises = [&listener](size_t from)
    {
        return std::is_sorted(listener.heard.begin() + long(from), listener.heard.end(),
                              [](const auto& a, const auto& b) { return a.second < b.second; });
    };
    std::thread thread( // there is no way to unsubscribe: the subscription has to end with its thread
        [&]
        {
            subscribe(&listener);
            subscribe(nullptr);
            reconstruct_auto(points, 1.0, 0);
            const std::vector<StageTiming> timings = getStageTimings();
            ASSERT_FALSE(timings.empty());
            EXPECT_EQ(timings.front().label, "Reconstruct");
            for (const char* label : {"CL_eres", "CL_creb", "PREP_createRCD", "PREP_fillHoles", "PREP_integFill",
                                      "HL_st", "VO_ftx", "VO_amb", "RM_cpo", "RM_kdeg", "RM_gEfCandMT", "efLoop"})
            {
                const auto isIt = [label](const StageTiming& t) { return t.label == label; };
                const auto it = std::find_if(timings.begin(), timings.end(), isIt);
                EXPECT_TRUE(it != timings.end() && it->seconds <= timings.front().seconds + 1e-3) << label;
            }
            const size_t numHeard = listener.heard.size();
            EXPECT_GE(numHeard, 8u);
            EXPECT_LT(numHeard, 1000u);
            EXPECT_TRUE(rises(0));
            EXPECT_EQ(listener.heard.back(), std::make_pair(std::string("Reconstruct"), 1.0));

            estimateAvgSpacing(points);
            EXPECT_EQ(listener.heard.back().first, "Density Estimation");
            EXPECT_NEAR(listener.heard.back().second, 2.0 / 3.0, 1e-9);
            EXPECT_TRUE(rises(numHeard));
        });
    thread.join();
}

TEST(PublicFunctions, OffsetsVersionAndCpuCount)
{
    double x = 1, y = 1, z = 1;
    std::vector<Point3> points;
    autoOffset(points, x, y, z);
    EXPECT_EQ(Point3(x, y, z), Point3(0, 0, 0));
    points = {Point3(0, 0, 0), Point3(2, 4, 6)};
    autoOffset(points, x, y, z);
    EXPECT_EQ(Point3(x, y, z), Point3(1, 2, 3));
    EXPECT_EQ(points, (std::vector<Point3>{Point3(-1, -2, -3), Point3(1, 2, 3)}));
    points = {Point3(2, 4, 6), Point3(0, 0, 0)}; // falling values never become the maximum: callers rely on the offset
    autoOffset(points, x, y, z);
    EXPECT_LT(x, -8e307);

    EXPECT_EQ(test::outputOf(printVersion), "ZAV, version 1.17\n");
    const test::CpuCount cpus(3);
    test::outputOf([] { setGlobalNumCPU(-1); });
    EXPECT_EQ(getGlobalNumCPU(), 3);
    setGlobalNumCPU(0);
    EXPECT_EQ(getGlobalNumCPU(), std::max(1, int(std::thread::hardware_concurrency())));
}
