// Hole control with the same rims in shells of different size, and with ten times the rims: its cost has to follow the
// rims, not the shell.

#include "base/Progress.h"
#include "base/tools.h"
#include "cells/Prepare.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
/// Points on a sphere, some six for each cell of side 1, but for round openings that are 12 cells wide.
std::vector<Point3> getSphereWithOpenings(double radius, int numOpenings)
{
    const double golden = M_PI * (3.0 - std::sqrt(5.0));
    const auto direction = [golden](size_t i, size_t n)
    {
        const double z = 1.0 - 2.0 * (double(i) + 0.5) / double(n), r = std::sqrt(1.0 - z * z),
                     phi = golden * double(i);
        return Vector3(r * std::cos(phi), r * std::sin(phi), z);
    };
    const size_t n = size_t(4.0 * M_PI * radius * radius * 6.0);
    const double minCosine = std::cos(6.0 / radius);
    std::vector<Vector3> openings;
    for (int i = 0; i < numOpenings; ++i)
        openings.push_back(direction(size_t(i), size_t(numOpenings)));
    std::vector<Point3> points;
    for (size_t i = 0; i < n; ++i)
    {
        const Vector3 d = direction(i, n);
        bool bOpen = false;
        for (const Vector3& opening : openings)
            bOpen |= d * opening > minCosine;
        if (!bOpen)
            points.push_back(Point3(0.0, 0.0, 0.0) + d * radius);
    }
    return points;
}

/// Times the stage of hole control alone, as the run's own clock gives it; making and pruning cells doesn't count.
void prepare(benchmark::State& state)
{
    std::vector<Point3> points = getSphereWithOpenings(double(state.range(0)), int(state.range(1)));
    Calc calc(-1024.0, -1024.0, -1024.0, 2048.0, 2048.0, 2048.0, 11);
    std::vector<std::pair<CCD, Point3>> cells;
    std::vector<CCD> fill;
    for (auto _ : state)
    {
        cells.clear();
        fill.clear();
        getThreadProgress()->startRun("Benchmark");
        Prepare run(points, 8, &calc);
        run.run(cells, fill);
        getThreadProgress()->finishRun();
        for (const StageTiming& timing : getThreadProgress()->getTimings())
            if (timing.label == "PREP_fillHoles")
                state.SetIterationTime(timing.seconds);
    }
    state.counters["cells"] = double(cells.size());
    state.counters["fill"] = double(fill.size());
}
BENCHMARK(prepare)
    ->ArgNames({"radius", "openings"})
    ->Args({75, 40})
    ->Args({235, 40})
    ->Args({235, 400})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
} // namespace
