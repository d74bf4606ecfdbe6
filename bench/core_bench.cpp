// What every stage stands on: parallel sort, cell codes, the mesh's index, sets of cells.
//
// Something is wrong if sortMT of 10^7 keys on 2 CPUs isn't at least 1.6 times as fast as std::sort, or one core turns
// fewer than 30 million points per second to codes. std::sort of 10^6 keys is the yardstick between machines.
#include "base/OrderedIndex.h"
#include "base/sortMT.h"
#include "base/vectorHelpers.h"
#include "lattice/Calc.h"
#include "lattice/cellSets.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <map>
#include <random>

using namespace MIRT_ZAV;

namespace
{
std::vector<u64> randomKeys(size_t n)
{
    std::mt19937_64 random(1);
    std::vector<u64> keys(n);
    for (u64& key : keys)
        key = random();
    return keys;
}

/// Sorts a fresh copy of the keys in every iteration, and times the sort alone.
template <class T, class Sort>
void timeSort(benchmark::State& state, const std::vector<T>& keys, const Sort& sort)
{
    for (auto _ : state)
    {
        state.PauseTiming();
        std::vector<T> copy = keys;
        state.ResumeTiming();
        sort(copy);
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(keys.size()));
}

void keys_stdSort(benchmark::State& state)
{
    const auto sort = [](std::vector<u64>& keys) { std::sort(keys.begin(), keys.end()); };
    timeSort(state, randomKeys(static_cast<size_t>(state.range(0))), sort);
}

void keys_sortMT(benchmark::State& state)
{
    const auto sort = [](std::vector<u64>& keys) { sortMT(keys.begin(), keys.end()); };
    timeSort(state, randomKeys(static_cast<size_t>(state.range(0))), sort);
}

/// Structs under a comparator, where the digits of keys are no help.
struct Record
{
    u64 key;
    u64 cargo;
};
const auto byKey = [](const Record& x, const Record& y) { return x.key < y.key; };

std::vector<Record> randomRecords(size_t n)
{
    std::vector<Record> records;
    for (const u64 key : randomKeys(n))
        records.push_back({key, ~key});
    return records;
}

void records_stdSort(benchmark::State& state)
{
    const auto sort = [](std::vector<Record>& records) { std::sort(records.begin(), records.end(), byKey); };
    timeSort(state, randomRecords(static_cast<size_t>(state.range(0))), sort);
}

void records_sortMT(benchmark::State& state)
{
    const auto sort = [](std::vector<Record>& records) { sortMT(records.begin(), records.end(), byKey); };
    timeSort(state, randomRecords(static_cast<size_t>(state.range(0))), sort);
}

std::vector<Point3> randomPoints(size_t n)
{
    std::mt19937_64 random(2);
    std::uniform_real_distribution<double> coordinate(0.0, 2097152.0);
    std::vector<Point3> points;
    for (size_t i = 0; i < n; ++i)
        points.emplace_back(coordinate(random), coordinate(random), coordinate(random));
    return points;
}

void points_getCCD(benchmark::State& state)
{
    const Calc calc(0, 0, 0, 2097152.0, 2097152.0, 2097152.0, 21);
    const std::vector<Point3> points = randomPoints(1000000);
    std::vector<CCD> codes(points.size());
    for (auto _ : state)
    {
        for (size_t i = 0; i < points.size(); ++i)
            codes[i] = calc.getCCD(&points[i]);
        benchmark::DoNotOptimize(codes.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(points.size()));
}

/// Row codes of a shell of cells one cell thick around a sphere; about 4 pi radius^2 of them.
std::vector<RCD> sphereShell(double radius)
{
    std::vector<RCD> cells;
    const u64 centre = 5000 + static_cast<u64>(radius);
    const auto reach = static_cast<int>(radius) + 1;
    for (int x = -reach; x <= reach; ++x)
        for (int y = -reach; y <= reach; ++y)
            for (int z = -reach; z <= reach; ++z)
                if (std::abs(std::sqrt(double(x * x + y * y + z * z)) - radius) < 0.5)
                    cells.push_back(rcd::fromXYZ(centre + static_cast<u64>(x), centre + static_cast<u64>(y),
                                                 centre + static_cast<u64>(z)));
    return cells;
}
constexpr double shellRadius = 89.0; // 10^5 cells

/// Keys as extraction makes them: pairs of neighbouring cells, region after region, but in no order inside of a region.
/// The benchmarks look each one up several times, as a mesh does.
std::vector<std::pair<CCD, CCD>> meshEdges()
{
    const Calc calc(0, 0, 0, 1, 1, 1, 21);
    std::vector<RCD> cells = sphereShell(shellRadius);
    std::vector<std::pair<CCD, CCD>> edges;
    std::vector<RCD> neigs;
    for (const RCD r : cells)
    {
        neigs.clear();
        getNeigs26(cells, r, neigs);
        for (const RCD neig : neigs)
            if (neig > r)
                edges.emplace_back(calc.rcd2ccd(r), calc.rcd2ccd(neig));
    }
    std::mt19937 random(3);
    for (size_t i = 0; i + 1000 < edges.size(); i += 1000)
        std::shuffle(edges.begin() + static_cast<long>(i), edges.begin() + static_cast<long>(i + 1000), random);
    return edges;
}

void edges_map(benchmark::State& state)
{
    const auto edges = meshEdges();
    for (auto _ : state)
    {
        std::map<std::pair<CCD, CCD>, size_t> index;
        size_t sum = 0;
        for (size_t i = 0; i < edges.size(); ++i)
            index.emplace(edges[i], i);
        for (int round = 0; round < 3; ++round)
            for (const auto& edge : edges)
                sum += index.find(edge)->second;
        for (const auto& [edge, i] : index)
            sum = 31 * sum + i;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(edges.size()));
}

void edges_OrderedIndex(benchmark::State& state)
{
    const auto edges = meshEdges();
    for (auto _ : state)
    {
        MIRT_TOOLS::OrderedIndex<std::pair<CCD, CCD>, size_t> index;
        size_t sum = 0;
        for (size_t i = 0; i < edges.size(); ++i)
            index.insert(edges[i], i);
        for (int round = 0; round < 3; ++round)
            for (const auto& edge : edges)
                sum += *index.find(edge);
        for (const auto& [edge, i] : index)
            sum = 31 * sum + i;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(edges.size()));
}

void shell_inflateRCD(benchmark::State& state)
{
    std::vector<RCD> cells = sphereShell(shellRadius);
    for (auto _ : state)
    {
        std::vector<RCD> out;
        inflateRCD(cells, 2, false, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(cells.size()));
}

void shell_createCC_RCD(benchmark::State& state)
{
    std::vector<RCD> cells = sphereShell(shellRadius);
    for (auto _ : state)
    {
        std::vector<std::vector<RCD>> components;
        createCC_RCD(cells, components);
        benchmark::DoNotOptimize(components.data());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(cells.size()));
}
} // namespace

BENCHMARK(keys_stdSort)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(keys_sortMT)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(records_stdSort)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(records_sortMT)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(points_getCCD)->Unit(benchmark::kMillisecond);
BENCHMARK(edges_map)->Unit(benchmark::kMillisecond);
BENCHMARK(edges_OrderedIndex)->Unit(benchmark::kMillisecond);
BENCHMARK(shell_inflateRCD)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(shell_createCC_RCD)->Unit(benchmark::kMillisecond)->UseRealTime();
