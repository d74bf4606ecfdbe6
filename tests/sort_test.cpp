#include "Point3.h"
#include "capture.h"
#include "sortMT.h"
#include "vectorHelpers.h"

#include <limits>
#include <random>
#include <stdexcept>
#include <string>

using namespace MIRT_ZAV;
using test::CpuCount;

namespace
{
const std::vector<size_t> sizes = {0, 1, 2, 999, 1000, 1001, 1023, 1024, 1025, 20000};
const std::vector<int> cpuCounts = {1, 2, 3, 6, 7};

/// A key and what it must travel with; ordered by the key, and by a full order where a test compares results.
struct Record
{
    int key;
    int cargo;
    bool operator==(const Record&) const = default;
};

const auto byKey = [](const Record& x, const Record& y) { return x.key < y.key; };
const auto byAll = [](const Record& x, const Record& y) { return x.key != y.key ? x.key < y.key : x.cargo < y.cargo; };

template <class T, class Compare>
void expectSortedLikeStd(std::vector<T> v, const Compare& comp)
{
    std::vector<T> expected = v;
    std::sort(expected.begin(), expected.end(), comp);
    sortMT(v.begin(), v.end(), comp);
    ASSERT_TRUE(v == expected) << v.size() << " elements, " << getGlobalNumCPU() << " CPUs";
}

/// Calls make(random) for every element, for every size and number of CPUs.
template <class Make, class Compare>
void expectSortsAtAllSizes(const Make& make, const Compare& comp)
{
    std::mt19937_64 random(1);
    for (const int numCPU : cpuCounts)
    {
        const CpuCount cpus(numCPU);
        for (const size_t n : sizes)
        {
            std::vector<decltype(make(random))> v;
            for (size_t i = 0; i < n; ++i)
                v.push_back(make(random));
            expectSortedLikeStd(v, comp);
        }
    }
}
} // namespace

TEST(SortMT, ByPartitions)
{
    const auto wide = [](auto& random) { return Record{int(random() % 1000000), int(random() % 10)}; };
    const auto fewKeys = [](auto& random) { return Record{int(random() % 3), int(random() % 3)}; };
    expectSortsAtAllSizes(wide, byAll);
    expectSortsAtAllSizes(fewKeys, byAll);
    expectSortsAtAllSizes([](auto& random) { return std::to_string(random()); }, std::less<std::string>());
    expectSortsAtAllSizes([](auto& random) { return Point3(double(random() % 9), double(random() % 9), 0); },
                          std::less<Point3>());
    expectSortsAtAllSizes([](auto& random) { return random() % 1000; }, std::greater<>());
}

TEST(SortMT, AllKeysEqualOrInOrder)
{
    for (const int numCPU : cpuCounts)
    {
        const CpuCount cpus(numCPU);
        std::vector<Record> v(5000, Record{4, 4});
        expectSortedLikeStd(v, byAll);
        for (size_t i = 0; i < v.size(); ++i)
            v[i].cargo = static_cast<int>(i);
        expectSortedLikeStd(v, byAll);
        std::reverse(v.begin(), v.end());
        expectSortedLikeStd(v, byAll);
        sortMT(v.begin(), v.end(), byKey); // nothing may get lost where the order is open
        expectSortedLikeStd(v, byAll);
    }
}

TEST(SortMT, IntegerKeys)
{
    expectSortsAtAllSizes([](auto& random) { return (unsigned long long)(random()); }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return (unsigned long)(random()) & 0x8000000000000801; }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return int(random()); }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return int(random() % 5) - 2; }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return (random() % 4000) << 42 | (random() % 4000); }, std::less<>());
}

TEST(SortMT, PointerKeys)
{
    static const char text[5000] = {};
    expectSortsAtAllSizes([](auto& random) { return &text[random() % sizeof(text)]; }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return std::make_pair(&text[random() % 50], int(random() % 50)); },
                          std::less<>());
}

TEST(SortMT, DoubleKeys)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const std::vector<double> special = {0.0,     -0.0,  infinity, -infinity, std::numeric_limits<double>::denorm_min(),
                                         -1e-320, 1e308, -1e308};
    const auto make = [&special](auto& random)
    { return random() % 4 == 0 ? special[random() % special.size()] : double(int(random())) / 7; };
    expectSortsAtAllSizes(make, std::less<>());
    // Zeros of both signs are equal: the second member decides between them.
    expectSortsAtAllSizes([&](auto& random) { return std::make_pair(make(random), int(random() % 50)); },
                          std::less<>());
}

TEST(SortMT, PairsUnderTheFullOrder)
{
    using Pair = std::pair<unsigned long long, Point3>;
    const auto make = [](auto& random) { return Pair(random() % 300, Point3(0, double(random() % 9), 0)); };
    expectSortsAtAllSizes(make, std::less<Pair>());
    expectSortsAtAllSizes([](auto& random) { return std::make_pair(int(random() % 9) - 4, std::to_string(random())); },
                          std::less<>());
}

TEST(SortMT, PairsByFirstMember)
{
    std::mt19937_64 random(2);
    for (const int numCPU : cpuCounts)
    {
        const CpuCount cpus(numCPU);
        std::vector<std::pair<int, int>> v;
        for (int i = 0; i < 5000; ++i)
            v.emplace_back(int(random() % 100) - 50, i);
        auto w = v;
        sortByFirstMT(w.begin(), w.end());
        EXPECT_TRUE(std::is_sorted(w.begin(), w.end(), Func_ltFirstComponent()));
        expectSortedLikeStd(w, std::less<>());
        std::sort(w.begin(), w.end());
        std::sort(v.begin(), v.end());
        EXPECT_EQ(v, w);
    }
}

// The order of equal first members is open to callers, but must not depend on the number of CPUs where keys are radix
// sorted: a stable sort gives that.
TEST(RadixSort, IsStable)
{
    std::mt19937_64 random(3);
    std::vector<std::pair<unsigned long long, int>> v;
    for (int i = 0; i < 30000; ++i)
        v.emplace_back((random() % 100) << 42 | (random() % 3) << 21, i);
    auto expected = v;
    std::stable_sort(expected.begin(), expected.end(), Func_ltFirstComponent());
    radix::sortByKey(v.data(), v.data() + v.size());
    EXPECT_EQ(v, expected);
}

TEST(RadixSort, LeavesNotANumberAlone)
{
    std::vector<double> v(5000, 1.0);
    v[17] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(radix::sort(v.begin(), v.end(), std::less<>()));
    std::vector<std::pair<double, int>> pairs(5000, {1.0, 1});
    pairs[4999].first = v[17];
    EXPECT_FALSE(radix::sort(pairs.begin(), pairs.end(), std::less<>()));
}

TEST(EstimateMid, IsTheMiddleOfTheSample)
{
    std::vector<int> v;
    for (int i = 0; i < 999; ++i)
        v.push_back(998 - i);
    EXPECT_EQ(estimateMid2(v.begin(), v.end(), std::less<>()), 499);
    // 2500 elements: stride 2, and the 1250 samples are the even numbers.
    v.clear();
    for (int i = 0; i < 2500; ++i)
        v.push_back(i % 2 == 0 ? i : -1);
    EXPECT_EQ(estimateMid2(v.begin(), v.end(), std::less<>()), 1250);
    EXPECT_TRUE(test::hasBug("!vSample.empty()", [&] { estimateMid2(v.begin(), v.begin(), std::less<>()); }));
}

TEST(Pool, NestsWithoutDeadlock)
{
    const CpuCount cpus(2);
    ctpl::thread_pool::getLevelPool(true);
    EXPECT_EQ(ctpl::thread_pool::getLayer(), 0);
    std::vector<std::vector<Record>> lists(8);
    std::mt19937 random(4);
    for (auto& list : lists)
        for (int i = 0; i < 3000; ++i)
            list.push_back({int(random()), i});
    std::vector<int> layers(lists.size());
    const auto sortList = [&layers, &lists](std::vector<Record>& list)
    {
        layers[static_cast<size_t>(&list - lists.data())] = ctpl::thread_pool::getLayer();
        sortMT(list.begin(), list.end(), byKey);
    };
    forEachMT(lists, sortList, 1);
    for (const auto& list : lists)
        EXPECT_TRUE(std::is_sorted(list.begin(), list.end(), byKey));
    EXPECT_EQ(layers, std::vector<int>(lists.size(), 1));
}

TEST(Pool, KeepsItsThreadsUntilDestroyed)
{
    const CpuCount cpus(3);
    ctpl::thread_pool::getLevelPool(true);
    EXPECT_EQ(ctpl::thread_pool::getLevelPool(false)->size(), 3);
    getSetGlobalNumCPU(5);
    EXPECT_EQ(ctpl::thread_pool::getLevelPool(false)->size(), 3);
    EXPECT_EQ(ctpl::thread_pool::getLevelPool(true), nullptr);
    EXPECT_EQ(ctpl::thread_pool::getLevelPool(false)->size(), 5);
    ctpl::thread_pool::getLevelPool(true);
    std::vector<Record> v(2000, Record{1, 1});
    v.front().key = 2;
    expectSortedLikeStd(v, byAll);
}

TEST(Pool, PassesResultsAndExceptions)
{
    ctpl::thread_pool pool;
    pool.resize(2);
    auto result = pool.push([](int id) { return id; });
    auto failure = pool.push([](int) -> int { throw std::runtime_error("task"); });
    auto layer = pool.push([](int) { return ctpl::thread_pool::getLayer(); });
    EXPECT_LT(result.get(), 2);
    EXPECT_THROW(failure.get(), std::runtime_error);
    EXPECT_EQ(layer.get(), 0); // a pool without a level leaves its workers' layer alone
}

TEST(Pool, WaitsForAllTasksBeforeItThrows)
{
    const CpuCount cpus(4);
    std::atomic<int> numDone{0};
    std::vector<int> numbers(64);
    for (int i = 0; i < 64; ++i)
        numbers[size_t(i)] = i;
    const auto work = [&numDone](int n)
    {
        if (n == 0)
            ZAV_BUG("n!=0");
        std::this_thread::yield();
        ++numDone;
    };
    EXPECT_TRUE(test::hasBug("n!=0", [&] { forEachMT(numbers, work, 1); }));
    EXPECT_EQ(numDone, 63);
}

TEST(Pool, ResizesWhileJobsRun)
{
    for (int round = 0; round < 50; ++round)
    {
        ctpl::thread_pool pool;
        std::atomic<int> numDone{0};
        std::vector<std::future<void>> futures;
        for (const int n : {4, 1, 3, 0, 2})
        {
            pool.resize(n);
            EXPECT_EQ(pool.size(), std::max(1, n));
            for (int i = 0; i < 10; ++i)
                futures.push_back(pool.push([&numDone](int) { ++numDone; }));
        }
        if (round % 2 == 0)
            pool.stop(); // finishes the queue
        for (auto& future : futures)
            future.get();
        EXPECT_EQ(numDone, 50);
    }
}

TEST(Pool, ServesSeveralThreadsAtOnce)
{
    const CpuCount cpus(2);
    std::vector<std::thread> threads;
    std::vector<std::vector<Record>> lists(4);
    for (size_t t = 0; t < lists.size(); ++t)
        threads.emplace_back(
            [&list = lists[t], t]
            {
                std::mt19937 random(static_cast<unsigned>(t));
                for (int i = 0; i < 20000; ++i)
                    list.push_back({int(random() % 1000), i});
                sortMT(list.begin(), list.end(), byAll);
            });
    for (auto& thread : threads)
        thread.join();
    for (const auto& list : lists)
        EXPECT_TRUE(std::is_sorted(list.begin(), list.end(), byAll));
}

TEST(Loops, CoverEveryElementOnce)
{
    for (const int numCPU : {1, 3})
    {
        const CpuCount cpus(numCPU);
        for (const size_t n : {0, 1, 5, 1000})
        {
            std::vector<int> in(n, 1), once, twice;
            forEachMT(
                in, [](int& x) { ++x; }, 7);
            forEachMT(
                in, [](int& x) { ++x; }, 0); // chunks of at least one element
            transformMT(in, once, [](int x) { return 2 * x; });
            const auto pairUp = [](int x, int* out)
            {
                out[0] = x;
                out[1] = -x;
            };
            transformMT_N(in, 2, 2, twice, pairUp);
            EXPECT_EQ(in, std::vector<int>(n, 3));
            EXPECT_EQ(once, std::vector<int>(n, 6));
            ASSERT_EQ(twice.size(), 2 * n);
            for (size_t i = 0; i < n; ++i)
                ASSERT_TRUE(twice[2 * i] == 3 && twice[2 * i + 1] == -3);
        }
    }
}
