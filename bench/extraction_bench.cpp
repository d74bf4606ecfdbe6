// Extraction of triangles from a shell of about 10^6 cells: first the patterns around lattice vertices and the
// triangles they give, then all of it, with the triangles entered in the mesh, which is most of the work.

#include "base/Progress.h"
#include "base/tools.h"
#include "coarse/Voro.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <map>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
/// The cells that a sphere's surface passes through, with a bundle in the middle of each.
struct Shell
{
    Calc calc{0.0, 0.0, 0.0, 2048.0, 2048.0, 2048.0, 11};
    std::vector<Point3> points;
    std::vector<Bundle> storage;
    std::map<CCD, Bundle*> bundles;
    std::vector<CCD> fill;

    explicit Shell(double radius)
    {
        const double centre = 1024.0;
        std::vector<CCD> cells;
        const int reach = static_cast<int>(radius) + 2;
        for (int x = -reach; x <= reach; ++x)
            for (int y = -reach; y <= reach; ++y)
                for (int z = -reach; z <= reach; ++z)
                {
                    const double r = std::sqrt(double(x) * x + double(y) * y + double(z) * z);
                    if (r > radius - 0.5 && r <= radius + 0.5)
                        cells.push_back(calc.rcd2ccd(rcd::fromXYZ(u64(centre + x), u64(centre + y), u64(centre + z))));
                }
        points.reserve(cells.size());
        storage.reserve(cells.size());
        for (const CCD c : cells)
        {
            points.push_back(calc.getMidPoint(c));
            storage.push_back({&points.back(), c, nullptr, points.back()});
            bundles[c] = &storage.back();
        }
    }
};

Shell& getShell()
{
    static Shell shell(282.0);
    return shell;
}

void findTriangles(benchmark::State& state)
{
    Shell& shell = getShell();
    for (auto _ : state)
    {
        Voro voro(&shell.calc, shell.bundles, shell.fill, TM_FAT);
        std::vector<CCD> made;
        size_t numTriangles = 0;
        for (size_t block = 0; block < voro.patterns.getNumBlocks(); ++block)
            voro.patterns.forEachPartlyFilled(block,
                                              [&](VCD vertex, int pattern)
                                              {
                                                  std::array<CCD, 8> corners;
                                                  corners[5] = vertex;
                                                  shell.calc.completeArraySym(corners.data());
                                                  made.clear();
                                                  voro.casx.getTriangles(pattern, corners.data(), made, TUT);
                                                  numTriangles += made.size() / 3;
                                              });
        benchmark::DoNotOptimize(numTriangles);
    }
    state.counters["cells"] = double(shell.bundles.size());
}
BENCHMARK(findTriangles)->Unit(benchmark::kMillisecond);

void extractIntoMesh(benchmark::State& state)
{
    Shell& shell = getShell();
    for (auto _ : state)
    {
        getThreadProgress()->startRun("Benchmark");
        Voro voro(&shell.calc, shell.bundles, shell.fill, TM_FAT);
        voro.fatExtractTriangles();
        state.counters["triangles"] = double(voro.getCMesh()->vT.size());
        getThreadProgress()->finishRun();
    }
    state.counters["cells"] = double(shell.bundles.size());
}
BENCHMARK(extractIntoMesh)->Unit(benchmark::kMillisecond);
} // namespace
