// Edge flips on a torus of 10^6 triangles with rough skin, so that there is much to flip: what candidates are worth, on
// one and on two CPUs, and whole calls.
#include "base/Progress.h"
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
/// Edges per second of wall time; the argument is the number of CPUs.
void evaluateCandidates(benchmark::State& state)
{
    const MeshPtr mesh = makeRoughTorus(1000, 500);
    RMesh& rMesh = *mesh->getRMesh();
    const int numCPU = getGlobalNumCPU();
    ctpl::thread_pool::getLevelPool(true);
    getSetGlobalNumCPU(static_cast<int>(state.range(0)));
    progressForFlips();
    for (auto _ : state)
    {
        std::vector<std::pair<double, REdge*>> candidates;
        rMesh.getEdgeFlipCandidates_MT(rMesh.getREdgesRef(), 0.005, 0.0, candidates);
        benchmark::DoNotOptimize(candidates.data());
    }
    getThreadProgress()->reset();
    ctpl::thread_pool::getLevelPool(true);
    getSetGlobalNumCPU(numCPU);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(rMesh.vRE.size()));
}
BENCHMARK(evaluateCandidates)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

/// Flips per second of a whole call, evaluation and clean-up included. Each flip appends two triangles to the mesh.
void flip(benchmark::State& state)
{
    std::int64_t numFlips = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        MeshPtr mesh = makeRoughTorus(1000, 500);
        const size_t numBefore = mesh->getRMesh()->vRT.size();
        state.ResumeTiming();
        edgeFlips(mesh);
        state.PauseTiming();
        numFlips += static_cast<std::int64_t>((mesh->getRMesh()->vRT.size() - numBefore) / 2);
        mesh.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(numFlips);
}
BENCHMARK(flip)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
} // namespace
