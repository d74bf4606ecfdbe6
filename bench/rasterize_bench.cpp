// Rasterisation of one torus in triangles with sides of about 60, 6 and 1.5 cells: first faces cost most, then edges,
// then the links between triangles.

#include "base/Progress.h"
#include "base/tools.h"
#include "soup/Pixel.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
/// A grid of n x n / 2 points on a torus, with two triangles for each square.
struct Torus
{
    std::vector<Point3> points;
    std::vector<Point3*> corners;

    Torus(size_t n, double radius)
    {
        const size_t m = n / 2;
        for (size_t i = 0; i < n * m; ++i)
        {
            const double a = 2.0 * M_PI * double(i / m) / double(n), b = 2.0 * M_PI * double(i % m) / double(m);
            const double r = radius * (1.0 + 0.4 * std::cos(b));
            points.emplace_back(r * std::cos(a), r * std::sin(a), 0.4 * radius * std::sin(b));
        }
        for (size_t i = 0; i < n; ++i)
            for (size_t k = 0; k < m; ++k)
            {
                const auto at = [&](size_t di, size_t dk) { return &points[(i + di) % n * m + (k + dk) % m]; };
                corners.insert(corners.end(), {at(0, 0), at(1, 0), at(1, 1), at(0, 0), at(1, 1), at(0, 1)});
            }
    }
};

void rasterize(benchmark::State& state)
{
    getSetGlobalNumCPU(0);
    Torus torus(size_t(state.range(0)), double(state.range(1)));
    Calc calc(-16000.0, -16000.0, -16000.0, 32768.0, 32768.0, 32768.0, 15);
    std::vector<Point3> out;
    for (auto _ : state)
    {
        getThreadProgress()->startRun("Melt");
        out.clear();
        CellPairs vFeatures, vBorders;
        Pixel(torus.corners, &calc).pixelTriangles(out, vFeatures, vBorders, 30.0);
        getThreadProgress()->finishRun();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(out.size())); // points
}
BENCHMARK(rasterize)
    ->Args({40, 400})
    ->Args({400, 400})
    ->Args({1600, 400})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
} // namespace
