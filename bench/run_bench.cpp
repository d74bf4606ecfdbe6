// Whole reconstructions of a synthetic cloud, from the call to the finished mesh.

#include "zav/zav_api.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
/// Random points on a torus with radii 3 and 1. The noise across it is 0.3 of the mean spacing.
std::vector<Point3> getTorus(size_t n)
{
    std::mt19937_64 random(5);
    std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
    std::normal_distribution<double> noise(0.0, 0.3 * std::sqrt(12.0 * M_PI * M_PI / double(n)));
    std::vector<Point3> points;
    points.reserve(n);
    for (size_t i = 0; i < n; ++i)
    {
        const double u = angle(random), v = angle(random), tube = 1.0 + noise(random), r = 3.0 + tube * std::cos(v);
        points.emplace_back(r * std::cos(u), r * std::sin(u), tube * std::sin(v));
    }
    return points;
}

void reconstruct(benchmark::State& state)
{
    std::vector<Point3> points = getTorus(size_t(state.range(0)));
    const int numCPU = getGlobalNumCPU();
    destroySingletons();
    setGlobalNumCPU(int(state.range(1)));
    size_t numTriangles = 0;
    for (auto _ : state)
        numTriangles = reconstruct_auto(points, 1.0, int(state.range(2)))->getNumT();
    destroySingletons();
    setGlobalNumCPU(numCPU);
    state.counters["triangles"] = double(numTriangles);
    state.counters["points/s"] =
        benchmark::Counter(double(points.size()) * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(reconstruct)
    ->ArgNames({"points", "cpus", "holes"})
    ->Args({100000, 1, 0})
    ->Args({100000, 2, 0})
    ->Args({1000000, 1, 0})
    ->Args({1000000, 2, 0})
    ->Args({100000, 1, 10})
    ->Args({1000000, 1, 10})
    ->Args({1000000, 2, 10})
    ->Args({3000000, 1, 10})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
} // namespace
