// Whole runs through the public functions.

#include "tools.h"
#include "zav_api_functions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
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

TEST(Reconstruct, VerticesAreInputPointsWithTheirColourButForAFewOfTheRepair)
{
    std::vector<Point3> points = getTorus(20000, 1);
    const std::vector<Point3> before = points;
    const MeshPtr mesh = reconstruct_auto(points, 1.0, 0);
    ASSERT_TRUE(mesh);
    EXPECT_EQ(points, before);

    const Indexed data(mesh);
    EXPECT_EQ(data.indices.size(), 3 * mesh->getNumT());
    EXPECT_GT(mesh->getNumT(), data.points.size()) << "about two triangles per vertex";
    std::map<Point3, const Point3*> inputs;
    for (const Point3& p : points)
        inputs[p] = &p;
    size_t numAdded = 0;
    for (const Point3* p : data.points)
    {
        EXPECT_TRUE(p->hasColor()); // of an input point or of the neighbours
        if (const auto input = inputs.find(*p); input == inputs.end())
            ++numAdded;
        else
            EXPECT_TRUE(p->r == input->second->r && p->a == 255);
    }
    EXPECT_LT(numAdded, data.points.size() / 20);
    std::set<std::set<int>> triangles;
    for (size_t i = 0; i < data.indices.size(); i += 3)
    {
        const std::set<int> corners(data.indices.begin() + long(i), data.indices.begin() + long(i) + 3);
        EXPECT_EQ(corners.size(), 3u);
        EXPECT_GE(*corners.begin(), 0);
        EXPECT_LT(*corners.rbegin(), int(data.points.size()));
        EXPECT_TRUE(triangles.insert(corners).second);
    }
    // The surface follows the torus: no edge is longer than the space diagonal of three cells.
    const double spacing = estimateAvgSpacing(points);
    for (size_t i = 0; i < data.indices.size(); ++i)
    {
        const size_t next = i % 3 == 2 ? i - 2 : i + 1;
        const Vector3 edge = *data.points[size_t(data.indices[i])] - *data.points[size_t(data.indices[next])];
        EXPECT_LT(edge.length(), 3.0 * std::sqrt(3.0) * spacing);
    }
}

TEST(Reconstruct, AbsoluteAndFactorSpacingAgreeAndCoarserMeansFewer)
{
    std::vector<Point3> points = getTorus(8000, 2);
    const double spacing = estimateAvgSpacing(points);
    std::srand(1); // the repair draws from rand() in the state that the caller left
    const MeshPtr byFactor = reconstruct_auto(points, 1.5, 2);
    std::srand(1);
    EXPECT_TRUE(sameMesh(byFactor, reconstruct_abs(points, 1.5 * spacing, 2)));
    EXPECT_GT(byFactor->getNumT(), 2 * reconstruct_auto(points, 3.0, 2)->getNumT());
}

TEST(Reconstruct, SameMeshForAnyNumberOfCpusAndOnAnyThread)
{
    std::vector<Point3> points = getTorus(15000, 3);
    const int numCPU = getGlobalNumCPU();
    setGlobalNumCPU(1);
    const auto run = [](std::vector<Point3>& cloud)
    {
        std::srand(1);
        return reconstruct_auto(cloud, 1.0, 4);
    };
    const MeshPtr serial = run(points);
    for (const int n : {2, 3, 7})
    {
        destroySingletons();
        setGlobalNumCPU(n);
        EXPECT_TRUE(sameMesh(serial, run(points))) << n;
    }
    // Two application threads at once, each with its own progress tree. They share rand(), which moves vertices that
    // the repair added in their last digits, and with them a flip here and there.
    std::vector<MeshPtr> meshes(2);
    std::vector<std::thread> threads;
    for (MeshPtr& mesh : meshes)
        threads.emplace_back(
            [&mesh, points]() mutable
            {
                Listener listener;
                subscribe(&listener);
                mesh = reconstruct_auto(points, 1.0, 4);
                EXPECT_EQ(listener.heard.back(), std::make_pair(std::string("Reconstruct"), 1.0));
            });
    for (std::thread& thread : threads)
        thread.join();
    for (const MeshPtr& mesh : meshes)
    {
        EXPECT_EQ(mesh->getNumT(), serial->getNumT());
        EXPECT_EQ(Indexed(mesh).points.size(), Indexed(serial).points.size());
    }
    destroySingletons();
    setGlobalNumCPU(numCPU);
}

TEST(Reconstruct, NothingToMeshGivesANullMeshAndAMessage)
{
    std::vector<Point3> none;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(reconstruct_auto(none, 1.0, 0));
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Nothing to do (bad input? wrong resolution?)"),
              std::string::npos);
    std::vector<Point3> one = {Point3(1, 2, 3)};
    const MeshPtr mesh = reconstruct_abs(one, 0.1, 0);
    ASSERT_TRUE(mesh) << "one cell is a mesh without triangles";
    EXPECT_EQ(mesh->getNumT(), 0u);

    // After a failed run the library works as before.
    EXPECT_THROW(reconstruct_abs(one, 0.0, 0), ZavBugException);
    std::vector<Point3> points = getTorus(3000, 4);
    EXPECT_GT(reconstruct_auto(points, 1.0, 0)->getNumT(), 0u);
}

TEST(Reconstruct, ProgressRisesToOneAndStagesAreTimed)
{
    std::vector<Point3> points = getTorus(5000, 5);
    Listener listener;
    std::thread thread( // the subscription ends with the thread's tree, not with the test
        [&]
        {
            subscribe(&listener);
            subscribe(nullptr);
            reconstruct_auto(points, 1.0, 0);
            const std::vector<StageTiming> timings = getStageTimings();
            ASSERT_FALSE(timings.empty());
            EXPECT_EQ(timings.front().label, "Reconstruct");
            std::set<std::string> labels;
            for (const StageTiming& t : timings)
            {
                labels.insert(t.label);
                EXPECT_LE(t.seconds, timings.front().seconds + 1e-3);
            }
            for (const char* label : {"CL_eres", "CL_creb", "PREP_createRCD", "PREP_fillHoles", "PREP_integFill",
                                      "HL_st", "VO_ftx", "VO_amb", "RM_cpo", "RM_kdeg", "RM_gEfCandMT", "efLoop"})
                EXPECT_TRUE(labels.count(label)) << label;

            const size_t numHeard = listener.heard.size();
            estimateAvgSpacing(points);
            EXPECT_EQ(listener.heard.back().first, "Density Estimation");
            EXPECT_NEAR(listener.heard.back().second, 2.0 / 3.0, 1e-9);
            EXPECT_TRUE(std::is_sorted(listener.heard.begin() + long(numHeard), listener.heard.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; }));
            listener.heard.resize(numHeard);
        });
    thread.join();
    // A later thread, which may get the same id, has a tree of its own.
    const std::vector<std::pair<std::string, double>> heard = listener.heard;
    std::thread([&points] { reconstruct_auto(points, 1.0, 0); }).join();
    EXPECT_EQ(listener.heard, heard);
    ASSERT_GE(listener.heard.size(), 8u);
    EXPECT_LT(listener.heard.size(), 1000u);
    EXPECT_TRUE(std::is_sorted(listener.heard.begin(), listener.heard.end(),
                               [](const auto& a, const auto& b) { return a.second < b.second; }));
    EXPECT_EQ(listener.heard.back(), std::make_pair(std::string("Reconstruct"), 1.0));
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
    points = {Point3(2, 4, 6), Point3(0, 0, 0)}; // falling values never become the maximum, deliberately
    autoOffset(points, x, y, z);
    EXPECT_LT(x, -8e307);

    testing::internal::CaptureStdout();
    printVersion();
    const int numCPU = getGlobalNumCPU();
    setGlobalNumCPU(3);
    setGlobalNumCPU(-1);
    EXPECT_EQ(getGlobalNumCPU(), 3);
    setGlobalNumCPU(0);
    EXPECT_EQ(getGlobalNumCPU(), std::max(1, int(std::thread::hardware_concurrency())));
    setGlobalNumCPU(numCPU);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed.find("ZAV, version 1.17\n"), 0u);
    EXPECT_NE(printed.find("numCPU<0 not used"), std::string::npos);
    EXPECT_TRUE(isRelease());
    EXPECT_FALSE(is32bitSystem());
}
