// Reduction: evaluating collapses on one and on two CPUs, and whole runs, on a torus of 10^6 triangles with rough skin.
#include "Mesh.h"
#include "RMesh.h"
#include "ctpl.h"
#include "meshOperations.h"
#include "tools.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

using namespace MIRT_ZAV;

namespace
{
MeshPtr makeRoughTorus(int m, int n)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<double> shift(-0.2, 0.2);
    const size_t numVertices = static_cast<size_t>(m) * static_cast<size_t>(n);
    auto pRMesh = std::make_unique<RMesh>(1.0, numVertices, 2 * numVertices);
    std::vector<Point3*> v;
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j)
        {
            const double u = 2 * M_PI * i / m, w = 2 * M_PI * j / n;
            const double r = n / 6.0 + shift(random), R = m / 6.0 + n / 6.0;
            v.push_back(pRMesh->createVertex(
                Point3((R + r * std::cos(w)) * std::cos(u), (R + r * std::cos(w)) * std::sin(u), r * std::sin(w))));
        }
    const auto at = [&](int i, int j) { return v[static_cast<size_t>(i % m * n + j % n)]; };
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j)
        {
            pRMesh->createT(at(i, j), at(i + 1, j), at(i + 1, j + 1));
            pRMesh->createT(at(i, j), at(i + 1, j + 1), at(i, j + 1));
        }
    return std::make_shared<Mesh>(pRMesh.release());
}

/// Candidates per second of wall time; the argument is the number of CPUs.
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

/// A whole call; the arguments are the limits, for length in tenths and for the angle. "left" is the share of triangles
/// that stays.
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
