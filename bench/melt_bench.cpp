// From triangles to clouds and meshes: a rippled sphere of 640,000 triangles, about as large as cells. That is the hard
// case, as nearly every cell lies on an edge.
#include "zav/zav_api.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
std::vector<Point3> getSphere(int n)
{
    const auto at = [n](int i, int j)
    {
        const double u = M_PI * i / n, v = M_PI * j / n, r = 10.0 + 0.3 * std::sin(9 * u) * std::cos(7 * v);
        return Point3(r * std::sin(u) * std::cos(v), r * std::sin(u) * std::sin(v), r * std::cos(u));
    };
    std::vector<Point3> corners;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < 2 * n; ++j)
        {
            const Point3 square[4] = {at(i, j), at(i + 1, j), at(i + 1, (j + 1) % (2 * n)), at(i, (j + 1) % (2 * n))};
            for (const int k : {0, 1, 2, 0, 2, 3})
                corners.push_back(square[k]);
        }
    return corners;
}

/// Points of the cloud per second of wall time; the argument is the number of CPUs.
void makeCloud(benchmark::State& state)
{
    std::vector<Point3> corners = getSphere(400);
    const int numCPU = getGlobalNumCPU();
    destroySingletons();
    setGlobalNumCPU(static_cast<int>(state.range(0)));
    size_t numPoints = 0;
    for (auto _ : state)
    {
        std::vector<Point3> cloud;
        toCloud(corners, 0.045, 30.0, cloud);
        numPoints = cloud.size();
    }
    destroySingletons();
    setGlobalNumCPU(numCPU);
    state.counters["points"] = static_cast<double>(numPoints);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numPoints));
}
BENCHMARK(makeCloud)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

void meltAnew(benchmark::State& state)
{
    std::vector<Point3> corners = getSphere(400);
    size_t numTriangles = 0;
    for (auto _ : state)
        numTriangles = melt(corners, 0.1, 30.0)->getNumT();
    state.counters["triangles"] = static_cast<double>(numTriangles);
}
BENCHMARK(meltAnew)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
} // namespace
