// What an exception from the progress callback does to runs and to those behind them.
#include "base/Progress.h"
#include "helpers/capture.h"
#include "zav/meshOperations.h"
#include "zav/zav_api_functions.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <random>
#include <set>
#include <thread>

using namespace MIRT_ZAV;

namespace
{
struct Cancelled
{
    int atUpdate;
};

/// Hears updates, and throws at one of them.
struct Canceller : ProgressBase
{
    int throwAt = 0; // counted from 1; 0: never
    int numHeard = 0;
    std::set<std::string> names;
    double last = 0.0;

    void update(const std::string& name, double fraction) override
    {
        names.insert(name);
        last = fraction;
        if (++numHeard == throwAt)
            throw Cancelled{numHeard};
    }
};

/// Half a torus, so that hole control has rims to work on.
std::vector<Point3> getHalfTorus(size_t n)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
    std::vector<Point3> points;
    while (points.size() < n)
    {
        const double u = angle(random), v = angle(random), r = 3.0 + std::cos(v);
        if (u < 3.0 || v < 3.0)
            points.emplace_back(r * std::cos(u), r * std::sin(u), std::sin(v));
    }
    return points;
}

std::vector<Point3> getTornSoup()
{
    std::mt19937 random(2);
    std::uniform_real_distribution<double> x(-2.0, 2.0);
    std::vector<Point3> corners;
    for (int i = 0; i < 3 * 30; ++i)
        corners.emplace_back(x(random), x(random), x(random));
    return corners;
}

using Numbers = std::vector<std::array<double, 3>>;

Numbers getNumbers(const MeshPtr& mesh)
{
    std::vector<Point3*> corners;
    mesh->getTriangles(corners);
    Numbers numbers;
    for (const Point3* const p : corners)
        numbers.push_back({p->x(), p->y(), p->z()});
    return numbers;
}

/// A public function on fresh input. What it changes is left in mesh, as cancelling leaves it.
struct Operation
{
    const char* name;
    std::function<MeshPtr()> prepare;
    std::function<Numbers(MeshPtr&)> run;
};

std::vector<Operation> getCancellableOperations()
{
    static std::vector<Point3> cloud = getHalfTorus(1500), soup = getTornSoup();
    const auto reconstructAll = []
    {
        std::srand(1); // the repair draws from it
        return reconstruct_auto(cloud, 1.0, 0);
    };
    const auto nothing = [] { return MeshPtr(); };
    const auto onMesh = [&](const char* name, const std::function<void(const MeshPtr&)>& change)
    {
        return Operation{name, reconstructAll,
                         [change](MeshPtr& mesh)
                         {
                             change(mesh);
                             return getNumbers(mesh);
                         }};
    };
    return {{"Reconstruct", nothing, [](MeshPtr& mesh) { return getNumbers(mesh = reconstruct_auto(cloud, 1.0, 5)); }},
            {"Reconstruct", nothing, [](MeshPtr& mesh) { return getNumbers(mesh = reconstruct_abs(cloud, 0.3, 3)); }},
            {"Melt", nothing, [](MeshPtr& mesh) { return getNumbers(mesh = melt(soup, 0.25, 20.0)); }},
            {"ToCloud", nothing,
             [](MeshPtr&)
             {
                 std::vector<Point3> points;
                 toCloud(soup, 0.25, 20.0, points);
                 Numbers numbers;
                 for (const Point3& p : points)
                     numbers.push_back({p.x(), p.y(), p.z()});
                 return numbers;
             }},
            {"Density Estimation", nothing,
             [](MeshPtr&) {
                 return Numbers{{estimateAvgSpacing(cloud), 0.0, 0.0}};
             }},
            onMesh("EdgeFlips", [](const MeshPtr& mesh) { edgeFlips(mesh); }),
            onMesh("EdgeFlipsS", [](const MeshPtr& mesh) { edgeFlipsSimA(mesh); }),
            onMesh("Smoothing", [](const MeshPtr& mesh) { laplacianSmoothing(mesh, 2); }),
            onMesh("Reduce", [](const MeshPtr& mesh) { reduce(mesh, 1.0, 30.0); })};
}

/// One call on a thread of its own, from a known state of rand(): subscriptions end with their thread.
/// \return what came out; nothing if it was cancelled
Numbers runOnce(const Operation& operation, Canceller& listener, const std::function<void(const MeshPtr&)>& after)
{
    Numbers numbers;
    std::thread thread(
        [&]
        {
            MeshPtr mesh = operation.prepare();
            subscribe(&listener);
            std::srand(1);
            try
            {
                numbers = operation.run(mesh);
                EXPECT_EQ(listener.throwAt, 0) << operation.name;
            }
            catch (const Cancelled& cancelled)
            {
                EXPECT_EQ(cancelled.atUpdate, listener.throwAt);
                EXPECT_EQ(listener.numHeard, listener.throwAt) << "nothing is heard after it";
            }
            EXPECT_EQ(getThreadProgress()->getName(), "empty") << operation.name;
            EXPECT_EQ(listener.names, std::set<std::string>{operation.name});
            listener.throwAt = 0;
            after(mesh);
        });
    thread.join();
    return numbers;
}

void useMesh(const MeshPtr& mesh)
{
    if (!mesh)
        return;
    laplacianSmoothing(mesh, 1);
    edgeFlips(mesh);
    reduce(mesh, 0.5, 10.0);
    mesh->colorizeFilledHoles();
    std::vector<Point3*> points;
    std::vector<int> indices;
    mesh->getVertexIndexData(points, indices);
    EXPECT_EQ(indices.size(), 3 * mesh->getNumT());
}
} // namespace

class Cancel : public testing::TestWithParam<int>
{
protected:
    const test::CpuCount cpus{GetParam()};
    void SetUp() override { destroySingletons(); }
    void TearDown() override { destroySingletons(); }
};

TEST_P(Cancel, AnywhereLeavesUsableMeshesAndTheNextRunAsItWouldBe)
{
    const auto nothing = [](const MeshPtr&) {};
    for (const Operation& operation : getCancellableOperations())
    {
        SCOPED_TRACE(operation.name);
        Canceller counter;
        const Numbers expected = runOnce(operation, counter, nothing);
        EXPECT_FALSE(expected.empty());
        EXPECT_GT(counter.numHeard, 10);
        for (int tenth = 0; tenth <= 10; ++tenth)
        {
            Canceller canceller;
            canceller.throwAt = std::max(1, counter.numHeard * tenth / 10);
            Numbers again;
            runOnce(operation, canceller,
                    [&](const MeshPtr& mesh)
                    {
                        MeshPtr fresh = operation.prepare();
                        std::srand(1);
                        again = operation.run(fresh);
                        useMesh(mesh);
                    });
            EXPECT_TRUE(again == expected) << "cancelled at update " << canceller.numHeard;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Cpus, Cancel, testing::Values(1, 2, 4));

// The subscriber of estimateAvgSpacing hears about 2/3 at last. A bug, too, ends in the middle of a run.
TEST(NextRun, HasItsOwnNameAfterAnEstimationAndAfterABug)
{
    std::vector<Point3> cloud = getHalfTorus(3000), one(1);
    const MeshPtr mesh = reconstruct_auto(cloud, 1.0, 0);
    Canceller listener;
    std::thread thread(
        [&]
        {
            subscribe(&listener);
            const auto expectOwnRun = [&]
            {
                listener.names.clear();
                edgeFlips(mesh);
                EXPECT_EQ(listener.names, std::set<std::string>{"EdgeFlips"});
                EXPECT_EQ(listener.last, 1.0);
                EXPECT_EQ(getStageTimings().front().label, "EdgeFlips");
            };
            estimateAvgSpacing(cloud);
            EXPECT_NEAR(listener.last, 2.0 / 3.0, 1e-9);
            expectOwnRun();
            EXPECT_TRUE(test::hasBug("usedSpacing>0", [&] { reconstruct_abs(one, 0.0, 0); }));
            expectOwnRun();
        });
    thread.join();
}

// A cloud that cancelling leaves half full would be taken for a result.
TEST(ToCloud, AppendsAllPointsOrNone)
{
    std::vector<Point3> soup = getTornSoup(), points(1);
    Canceller canceller;
    std::thread thread(
        [&]
        {
            subscribe(&canceller);
            toCloud(soup, 0.2, 20.0, points);
            const size_t numPoints = points.size();
            canceller.throwAt = canceller.numHeard;
            canceller.numHeard = 0;
            EXPECT_THROW(toCloud(soup, 0.2, 20.0, points), Cancelled);
            EXPECT_EQ(points.size(), numPoints);
        });
    thread.join();
}

TEST(DestroySingletons, MayComeWhileOtherThreadsWork)
{
    const test::CpuCount cpus(3);
    std::vector<Point3> cloud = getHalfTorus(2000);
    const auto work = [&cloud](bool bDestroy)
    {
        std::vector<Point3> points = cloud;
        for (int i = 0; i < 4; ++i)
        {
            EXPECT_GT(reconstruct_auto(points, 1.0, 2)->getNumT(), 1000u);
            if (bDestroy)
                destroySingletons();
        }
    };
    std::vector<std::thread> threads;
    for (const bool bDestroy : {true, true, false})
        threads.emplace_back(work, bDestroy);
    for (int i = 0; i < 200; ++i)
    {
        destroySingletons();
        std::this_thread::yield();
    }
    for (std::thread& thread : threads)
        thread.join();
    destroySingletons();
}
