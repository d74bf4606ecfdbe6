// Reduction by edge collapse of a torus of 10^6 triangles with rough skin: which collapses are allowed, on one and on
// two CPUs, and whole calls.
#include "base/ctpl.h"
#include "base/tools.h"
#include "refined/RMesh.h"
#include "rough_torus.h"
#include "zav/Mesh.h"
#include "zav/meshOperations.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
/// Candidates per second of wall time, two for each edge; the argument is the number of CPUs.
void evaluateCollapses(benchmark::State& state)
{
    const MeshPtr mesh = makeRoughTorus(1000, 500);
    const RMesh& rMesh = *mesh->getRMesh();
    const int numCPU = getGlobalNumCPU();
    ctpl::thread_pool::getLevelPool(true);
    getSetGlobalNumCPU(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        std::vector<std::pair<double, RECandidate>> entries;
        rMesh.getPrioqEntries(0.7, 9.0, rMesh.vRE, entries);
        benchmark::DoNotOptimize(entries.data());
    }
    ctpl::thread_pool::getLevelPool(true);
    getSetGlobalNumCPU(numCPU);
    state.SetItemsProcessed(2 * state.iterations() * static_cast<std::int64_t>(rMesh.vRE.size()));
}
BENCHMARK(evaluateCollapses)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

/// A whole call. The arguments are its two limits, the edge length in tenths and the angle in degrees; "left" is the
/// share of triangles that stays.
void reduceTorus(benchmark::State& state)
{
    for (auto _ : state)
    {
        state.PauseTiming();
        MeshPtr mesh = makeRoughTorus(1000, 500);
        const auto numBefore = static_cast<double>(mesh->getNumT());
        state.ResumeTiming();
        reduce(mesh, 0.1 * static_cast<double>(state.range(0)), static_cast<double>(state.range(1)));
        state.PauseTiming();
        state.counters["left"] = static_cast<double>(mesh->getNumT()) / numBefore;
        mesh.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(reduceTorus)->Args({18, 20})->Args({50, 40})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
} // namespace
