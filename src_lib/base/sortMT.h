// The parallel sort used everywhere in place of std::sort, and parallel loops over slices.
//
// Comparison sorts follow a quicksort scheme: rounds of partitions around a sampled median make one range per CPU, then
// every range is sorted by a task of its own. Plain integer keys under their natural order go through a radix sort
// instead, whose result is the same and which is faster on one thread than the comparison sort on several.
#pragma once

#include "base/ctpl.h"
#include "base/radixSort.h"
#include "base/tools.h"

#include <algorithm>
#include <functional>
#include <future>
#include <iterator>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Order of pairs by the first member only.
struct Func_ltFirstComponent
{
    template <class A, class B>
    bool operator()(const std::pair<A, B>& x, const std::pair<A, B>& y) const
    {
        return x.first < y.first;
    }
};

/// Splits [first, last) around a pivot; result is the first element that is not below the pivot.
template <class T, class RandomIt, class Compare>
struct PartitionTask2
{
    T pivot;
    RandomIt first;
    RandomIt last;
    RandomIt result;
    const Compare* comp;

    PartitionTask2(T pivotArg, RandomIt firstArg, RandomIt lastArg, const Compare& compArg)
        : pivot(std::move(pivotArg)), first(firstArg), last(lastArg), result(lastArg), comp(&compArg)
    {
    }

    void operator()(int)
    {
        result = std::partition(first, last, [this](const T& element) { return (*comp)(element, pivot); });
    }
};

template <class RandomIt, class Compare>
struct SortTask2
{
    RandomIt first;
    RandomIt last;
    const Compare* comp;

    void operator()(int) { std::sort(first, last, *comp); }
};

/// A sample median: the middle of every (n / 1000)-th element.
template <class RandomIt, class Compare>
typename std::iterator_traits<RandomIt>::value_type estimateMid2(RandomIt first, RandomIt last, const Compare& comp)
{
    using T = typename std::iterator_traits<RandomIt>::value_type;
    const auto n = last - first;
    const auto stride = n >= 1000 ? n / 1000 : 1;
    std::vector<T> vSample;
    vSample.reserve(1000);
    for (auto i = decltype(n)(0); i < n; i += stride)
        vSample.push_back(first[i]);
    ZAV_ASSERT(!vSample.empty(), "!vSample.empty()");
    std::sort(vSample.begin(), vSample.end(), comp);
    return vSample[vSample.size() / 2];
}

/// Pushes every task to the pool of the caller's level and waits for all of them; then the first exception, if any, is
/// thrown. Tasks stay with the caller, so that they can be references to its data. onDone is called here after each
/// wait, in the order of the tasks.
template <class Task, class OnDone>
void runTasks(std::vector<Task>& tasks, const OnDone& onDone)
{
    if (tasks.empty())
        return;
    ctpl::thread_pool* const pool = ctpl::thread_pool::getLevelPool(false);
    std::vector<std::future<void>> futures;
    futures.reserve(tasks.size());
    const auto waitForAll = [&futures]
    {
        for (auto& future : futures)
            future.wait();
    };
    try
    {
        for (Task& task : tasks)
            futures.push_back(pool->push([&task](int id) { task(id); }));
    }
    catch (...)
    {
        waitForAll(); // tasks that run already hold references to the caller's data
        throw;
    }
    for (auto& future : futures)
    {
        future.wait();
        onDone();
    }
    for (auto& future : futures)
        future.get();
}

template <class Task>
void runTasks(std::vector<Task>& tasks)
{
    runTasks(tasks, [] {});
}

namespace sortMT_detail
{
template <class RandomIt, class Compare>
void sortByPartitions(RandomIt first, RandomIt last, const Compare& comp, int numCPU)
{
    using T = typename std::iterator_traits<RandomIt>::value_type;
    using Index = typename std::iterator_traits<RandomIt>::difference_type;
    using Partition = PartitionTask2<T, RandomIt, Compare>;
    const Index vectorSize = last - first;

    std::vector<std::pair<Index, Index>> ranges = {{0, vectorSize}};
    while (ranges.size() < static_cast<size_t>(numCPU))
    {
        std::vector<Partition> partitions;
        partitions.reserve(ranges.size());
        for (const auto& [a, b] : ranges)
            if (a < b) // nothing to sample in an empty range; it stays as it is
                partitions.emplace_back(estimateMid2(first + a, first + b, comp), first + a, first + b, comp);
        runTasks(partitions);

        std::vector<std::pair<Index, Index>> halves;
        auto partition = partitions.begin();
        for (const auto& [a, b] : ranges)
        {
            const Index p = a < b ? (partition++)->result - first : b;
            halves.emplace_back(a, p);
            halves.emplace_back(p, b);
        }
        ranges.swap(halves);
    }

    std::vector<SortTask2<RandomIt, Compare>> sorts;
    Index sumSize = 0;
    for (const auto& [a, b] : ranges)
    {
        if (a < b)
            sorts.push_back({first + a, first + b, &comp});
        sumSize += b - a;
    }
    runTasks(sorts);
    ZAV_ASSERT(sumSize == vectorSize, "sumSize==vectorSize");
}
} // namespace sortMT_detail

/// Calls f(begin, end) for contiguous slices of [0, n) on the pool of the caller's level; on the calling thread with
/// one CPU or one element. Slices have n / (slicesPerCPU * numCPU) elements, at least 1. f must touch disjoint data
/// only.
template <class F>
void forSlicesMT(size_t n, size_t slicesPerCPU, const F& f)
{
    const int numCPU = getGlobalNumCPU();
    if (numCPU < 2 || n <= 1)
    {
        if (n > 0)
            f(size_t(0), n);
        return;
    }
    const size_t numWanted = slicesPerCPU * static_cast<size_t>(numCPU);
    const size_t sliceSize = n < numWanted ? 1 : n / numWanted;
    struct SliceTask
    {
        const F* f;
        size_t begin;
        size_t end;
        void operator()(int) const { (*f)(begin, end); }
    };
    std::vector<SliceTask> tasks;
    for (size_t begin = 0; begin < n; begin += sliceSize)
        tasks.push_back({&f, begin, std::min(n, begin + sliceSize)});
    runTasks(tasks);
}

/// Runs f(i) for all i below n on the pool of the caller's level, in slices of neighbouring indices.
struct ParallelLoop
{
    template <class F>
    void operator()(size_t n, const F& f) const
    {
        forSlicesMT(n, 8,
                    [&f](size_t begin, size_t end)
                    {
                        for (size_t i = begin; i < end; ++i)
                            f(i);
                    });
    }
};

/// Runs two functions at the same time; with one CPU one after the other.
template <class F, class G>
void runBothMT(const F& f, const G& g)
{
    forSlicesMT(2, 1,
                [&](size_t begin, size_t end)
                {
                    if (begin == 0)
                        f();
                    if (end == 2)
                        g();
                });
}

/// Lists that are made in slices and joined in the order of the slices.
/// \param f    f(begin, end, list) appends to the list what the slice [begin, end) of [0, n) gives
/// \param out  the joined list is appended
template <class T, class F>
void collectMT(size_t n, std::vector<T>& out, const F& f)
{
    const size_t numSlices = getGlobalNumCPU() < 2 ? 1 : 8 * static_cast<size_t>(getGlobalNumCPU());
    if (numSlices == 1 || n < numSlices)
    {
        f(size_t(0), n, out);
        return;
    }
    std::vector<std::vector<T>> parts(numSlices);
    ParallelLoop()(numSlices, [&](size_t i) { f(n * i / numSlices, n * (i + 1) / numSlices, parts[i]); });
    size_t numAll = out.size();
    for (const std::vector<T>& part : parts)
        numAll += part.size();
    out.reserve(numAll);
    for (const std::vector<T>& part : parts)
        out.insert(out.end(), part.begin(), part.end());
}

/// Sorts [first, last) under comp on all CPUs. Not stable: the order of elements that compare equal can differ between
/// numbers of CPUs, so that callers whose result must not depend on it compare by a full order.
template <class RandomIt, class Compare>
void sortMT(RandomIt first, RandomIt last, const Compare& comp)
{
    using T = typename std::iterator_traits<RandomIt>::value_type;
    if constexpr (radix::isNaturalOrder<T, Compare> || radix::isFirstOrder<T, Compare, Func_ltFirstComponent>)
    {
        if (radix::sort(first, last, comp, ParallelLoop()))
            return;
    }
    const int numCPU = getGlobalNumCPU();
    if (numCPU <= 1 || last - first < 1000)
        std::sort(first, last, comp);
    else
        sortMT_detail::sortByPartitions(first, last, comp, numCPU);
}

template <class RandomIt>
void sortMT(RandomIt first, RandomIt last)
{
    sortMT(first, last, std::less<typename std::iterator_traits<RandomIt>::value_type>());
}

/// Sorts pairs by the first member only.
template <class RandomIt>
void sortByFirstMT(RandomIt first, RandomIt last)
{
    sortMT(first, last, Func_ltFirstComponent());
}

/// One slice of forEachMT.
template <class T, class F>
struct ForEachTask
{
    T* first;
    T* last;
    const F* f;

    void operator()(int) const { std::for_each(first, last, *f); }
};

/// Calls f on every element, in chunks of chunkSize elements per task, at least 1.
template <class T, class F>
void forEachMT(std::vector<T>& v, const F& f, size_t chunkSize)
{
    chunkSize = std::max<size_t>(1, chunkSize);
    std::vector<ForEachTask<T, F>> tasks;
    for (size_t begin = 0; begin < v.size(); begin += chunkSize)
        tasks.push_back({v.data() + begin, v.data() + std::min(v.size(), begin + chunkSize), &f});
    runTasks(tasks);
}

/// Writes f(input) of a slice of inputs to its own part of the output.
template <class In, class Out, class F>
struct TransformTask
{
    const In* first;
    const In* last;
    Out* out;
    const F* f;

    void operator()(int) const { std::transform(first, last, out, *f); }
};

/// The same with numOut outputs per input, written by f(input, pointer to the first of them).
template <class In, class Out, class F>
struct TransformTask_N
{
    const In* first;
    const In* last;
    Out* out;
    size_t numOut;
    const F* f;

    void operator()(int) const
    {
        Out* to = out;
        for (const In* it = first; it != last; ++it, to += numOut)
            (*f)(*it, to);
    }
};

/// out[i] = f(in[i]), in slices as forSlicesMT makes them; out is resized.
template <class In, class Out, class F>
void transformMT(const std::vector<In>& in, std::vector<Out>& out, const F& f)
{
    out.resize(in.size());
    forSlicesMT(in.size(), 8,
                [&](size_t begin, size_t end) {
                    TransformTask<In, Out, F>{in.data() + begin, in.data() + end, out.data() + begin, &f}(0);
                });
}

/// f(in[i], &out[i * numOut]), in slices as forSlicesMT makes them; out is resized.
template <class In, class Out, class F>
void transformMT_N(const std::vector<In>& in, size_t numOut, size_t slicesPerCPU, std::vector<Out>& out, const F& f)
{
    out.resize(in.size() * numOut);
    forSlicesMT(
        in.size(), slicesPerCPU,
        [&](size_t begin, size_t end) {
            TransformTask_N<In, Out, F>{in.data() + begin, in.data() + end, out.data() + begin * numOut, numOut, &f}(0);
        });
}

} // namespace MIRT_ZAV
