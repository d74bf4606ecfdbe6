// Occupied cells: reading their neighbourhoods, deciding by them, and the loops that remove cells of a noisy shell.
#include "cells/RemoveDeciderFast.h"

#include "base/vectorHelpers.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>

using namespace MIRT_ZAV;

namespace
{
/// Cells of side 1 around a sphere, sorted, with one point each.
struct Shell
{
    Calc calc{0.0, 0.0, 0.0, 2097152.0, 2097152.0, 2097152.0, 21};
    RemoveDeciderFast::RCDPoints vRCDPoint;
    std::vector<RCD> cells;

    Shell(double radius, double noise, size_t numPoints)
    {
        std::mt19937_64 random(1);
        std::normal_distribution<double> normal;
        for (size_t i = 0; i < numPoints; ++i)
        {
            const Vector3 direction(normal(random), normal(random), normal(random));
            const double r = radius + noise * normal(random);
            const Point3 p = Point3(6000.0, 6000.0, 6000.0) + direction * (r / direction.length());
            vRCDPoint.emplace_back(calc.getRCD(&p), p);
        }
        sortByFirstMT(vRCDPoint.begin(), vRCDPoint.end());
        const auto hasSameCell = [](const auto& a, const auto& b) { return a.first == b.first; };
        vRCDPoint.erase(std::unique(vRCDPoint.begin(), vRCDPoint.end(), hasSameCell), vRCDPoint.end());
        for (const auto& entry : vRCDPoint)
            cells.push_back(entry.first);
    }
};

Shell& bigShell()
{
    static Shell shell(150.0, 0.6, 1500000);
    return shell;
}

/// Reads at random indices. The first read makes the tables, once for the whole program, and the counter says how long
/// that took.
void tables(benchmark::State& state)
{
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(gapBit(0));
    const std::chrono::duration<double, std::milli> firstRead = std::chrono::steady_clock::now() - start;
    static const double msToMake = firstRead.count();
    unsigned index = 1;
    for (auto _ : state)
    {
        index = (index * 1664525u + 1013904223u) & 0x3ffffff;
        benchmark::DoNotOptimize(gapBit(index));
        benchmark::DoNotOptimize(borderBit(index));
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["firstRead_ms"] = msToMake;
}
BENCHMARK(tables); // has to be the first: any other would make the tables

void getConfiguration(benchmark::State& state)
{
    Shell& shell = bigShell();
    RCDStore store(&shell.calc, shell.cells);
    std::vector<RCD> cells = shell.cells;
    if (state.range(0) != 0)
        std::shuffle(cells.begin(), cells.end(), std::mt19937_64(2));
    for (auto _ : state)
        for (const RCD r : cells)
            benchmark::DoNotOptimize(store.getRCDMatrix(r)->getConfiguration(RCDMatrix::rcdToAddress(r)));
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(cells.size()));
}
BENCHMARK(getConfiguration)->ArgName("shuffled")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void classify(benchmark::State& state)
{
    Shell& shell = bigShell();
    RemoveDeciderFast decider(shell.cells, &shell.calc);
    for (auto _ : state)
    {
        std::vector<RCD> area, border;
        decider.detectAreaAndBorder(area, border);
        benchmark::DoNotOptimize(area.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(shell.cells.size()));
}
BENCHMARK(classify)->Unit(benchmark::kMillisecond);

void construct(benchmark::State& state)
{
    Shell& shell = bigShell();
    for (auto _ : state)
        RemoveDeciderFast decider(shell.cells, &shell.calc);
    state.counters["cells"] = static_cast<double>(shell.cells.size());
}
BENCHMARK(construct)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void prunePrioq(benchmark::State& state)
{
    Shell& shell = bigShell();
    size_t numRemoved = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        RemoveDeciderFast decider(shell.cells, &shell.calc);
        std::vector<RCD> kept, removed;
        state.ResumeTiming();
        numRemoved = decider.prunePrioq(shell.vRCDPoint, shell.cells, kept, removed, state.range(0) != 0, false);
    }
    state.counters["cells"] = static_cast<double>(shell.cells.size());
    state.counters["removed"] = static_cast<double>(numRemoved);
}
BENCHMARK(prunePrioq)->ArgName("borders")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void pruneByDistance(benchmark::State& state)
{
    Shell& shell = bigShell();
    std::vector<std::pair<double, RCD>> vDist;
    for (const auto& [cell, p] : shell.vRCDPoint)
        vDist.emplace_back(std::fabs((p - Point3(6000.0, 6000.0, 6000.0)).length() - 150.0), cell);
    size_t numRemoved = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        RemoveDeciderFast decider(shell.cells, &shell.calc);
        auto list = vDist;
        std::vector<RCD> kept, killed;
        state.ResumeTiming();
        numRemoved = decider.pruneByDistance(static_cast<PruningMode>(state.range(0)), list, kept, killed);
    }
    state.counters["removed"] = static_cast<double>(numRemoved);
}
BENCHMARK(pruneByDistance)
    ->ArgName("mode")
    ->Arg(PM_PRUNE_BORDERS)
    ->Arg(PM_PRUNE_AREA)
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();
} // namespace
