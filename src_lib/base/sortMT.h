// The parallel sort of the library, and parallel loops over slices.
//
// Sorting by comparison is a quicksort whose first rounds run side by side: each range is split around a sampled median
// until there is a range for every CPU, and each of these is then sorted by a task.
//
//     [ .............................. ]
//     [ ..... < p ...... | ... >= p .. ]
//     [ ...... | ....... | .... | .... ]      4 CPUs: 2 rounds
//
// Plain keys under their natural order go through a radix sort instead. It gives the same result and is faster on one
// thread than the comparison sort on several.
#pragma once

#include "base/ctpl.h"
#include "base/radixSort.h"
#include "base/tools.h"

#include <algorithm>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace MIRT_ZAV
{

/// Compares pairs by their first members. A type of its own, so that sortMT can tell that a radix sort will do.
struct Func_ltFirstComponent
{
    template <class A, class B>
    bool operator()(const std::pair<A, B>& x, const std::pair<A, B>& y) const
    {
        return x.first < y.first;
    }
};

/// Puts the elements of [first, last) that are below the pivot in front; result is where the others begin.
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

/// The median of a sample: of every (n / 1000)-th element, or of all where there are fewer than 1000.
/// \throws ZavBugException when the range is empty
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

/// Runs all tasks on the pool of the caller's level and waits for them. They stay with the caller and may refer to its
/// data.
/// \param tasks   called as task(number of the thread), each once
/// \param onDone  called on the calling thread after each task, in their order, to count progress
/// \throws once all tasks have ended: what onDone has thrown, which isn't called again then, else what the first task in
///         their order has
template <class Task, class OnDone>
void runTasks(std::vector<Task>& tasks, const OnDone& onDone)
{
    if (tasks.empty())
        return;
    const std::shared_ptr<ctpl::thread_pool> pool = ctpl::thread_pool::getLevelPool(false);
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
        for (auto& future : futures)
        {
            future.wait();
            onDone(); // may throw: a subscriber of progress ends a run like this
        }
    }
    catch (...)
    {
        waitForAll(); // the tasks refer to the caller's data
        throw;
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
            if (a < b) // an empty range has no median; it stays as it is
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

/// Calls f(begin, end) for contiguous slices that make up [0, n), on the pool of the caller's level, and waits for all.
/// One CPU or one element needs no pool: f is then called here, once. Calls for different slices may overlap in time,
/// so each has to write to data of its own.
/// \param slicesPerCPU  a slice has n / (slicesPerCPU * number of CPUs) elements, at least 1; more slices even out work
///                      that is spread unevenly
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

/// Runs f(i) for all i below n, in slices as forSlicesMT makes them.
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

/// Collects what slices give in the order of the slices, which is the same list for any number of CPUs.
/// \param f    f(begin, end, list) appends to the list what the slice [begin, end) of [0, n) gives
/// \param out  all of it is appended
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

/// Sorts [first, last) under comp on all CPUs. Not stable: elements that compare equal may end up in another order with
/// another number of CPUs. Callers whose result hangs on it compare by an order that tells all elements apart.
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

/// Sorts pairs by their first members; as for sortMT, the order of pairs with equal first members is open.
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

/// Calls f on every element, on the pool of the caller's level.
/// \param chunkSize  elements per task; below 1 counts as 1
template <class T, class F>
void forEachMT(std::vector<T>& v, const F& f, size_t chunkSize)
{
    chunkSize = std::max<size_t>(1, chunkSize);
    std::vector<ForEachTask<T, F>> tasks;
    for (size_t begin = 0; begin < v.size(); begin += chunkSize)
        tasks.push_back({v.data() + begin, v.data() + std::min(v.size(), begin + chunkSize), &f});
    runTasks(tasks);
}

/// One slice of transformMT: writes f(input) for each input.
template <class In, class Out, class F>
struct TransformTask
{
    const In* first;
    const In* last;
    Out* out;
    const F* f;

    void operator()(int) const { std::transform(first, last, out, *f); }
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

} // namespace MIRT_ZAV
