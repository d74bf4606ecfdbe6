#include "base/sortMT.h"
#include "base/vectorHelpers.h"
#include "helpers/capture.h"
#include "zav/Point3.h"

#include <array>
#include <cfloat>
#include <limits>
#include <random>
#include <string>

using namespace MIRT_ZAV;
using test::CpuCount;

namespace
{
const std::vector<int> cpuCounts = {1, 2, 3, 6, 7};

/// Sorts lists of elements that make(random) gives, of sizes on both sides of every limit, with every number of CPUs.
template <class Make, class Compare>
void expectSortsAtAllSizes(Make make, const Compare& comp)
{
    std::mt19937_64 random(1);
    for (const int numCPU : cpuCounts)
    {
        const CpuCount cpus(numCPU);
        for (const size_t n : {0, 1, 2, 999, 1000, 1001, 1023, 1024, 1025, 20000})
        {
            std::vector<std::decay_t<decltype(make(random))>> v;
            for (size_t i = 0; i < n; ++i)
                v.push_back(make(random));
            auto expected = v;
            std::sort(expected.begin(), expected.end(), comp);
            sortMT(v.begin(), v.end(), comp);
            ASSERT_TRUE(v == expected) << n << " elements, " << numCPU << " CPUs";
        }
    }
}
} // namespace

TEST(SortMT, LikeTheStandardLibrary)
{
    // By partitions.
    using Record = std::pair<short, int>;
    expectSortsAtAllSizes([](auto& random) { return Record(random(), int(random() % 10)); }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return Record(random() % 3, int(random() % 3)); }, std::less<>());
    expectSortsAtAllSizes([n = 0](auto&) mutable { return Record(4, -++n); }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return std::to_string(random()); }, std::less<std::string>());
    expectSortsAtAllSizes([](auto& random) { return random() % 1000; }, std::greater<>());
    // By digits: integers, pointers, doubles, and pairs of these with something else.
    static const char text[5000] = {};
    const double infinity = std::numeric_limits<double>::infinity();
    const std::array special = {0.0, -0.0, infinity, -infinity, DBL_TRUE_MIN, -1e-320, 1e308, -1e308};
    const auto makeDouble = [&special](auto& random)
    { return random() % 4 == 0 ? special[random() % special.size()] : double(int(random())) / 7; };
    expectSortsAtAllSizes([](auto& random) { return (unsigned long)(random()) & 0x8000000000000801; }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return int(random()); }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return (random() % 4000) << 42 | (random() % 4000); }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return &text[random() % sizeof(text)]; }, std::less<>());
    expectSortsAtAllSizes([](auto& random) { return std::make_pair(&text[random() % 50], int(random() % 50)); },
                          std::less<>());
    expectSortsAtAllSizes(makeDouble, std::less<>());
    // Zeros of both signs are equal: the second member decides between them.
    expectSortsAtAllSizes([&](auto& random) { return std::make_pair(makeDouble(random), int(random() % 50)); },
                          std::less<>());
    expectSortsAtAllSizes(
        [](auto& random) { return std::make_pair(random() % 300, Point3(0, double(random() % 9), 0)); }, std::less<>());
}

// Callers may not count on an order of pairs with equal keys, but with any number of CPUs it has to be the same one. A
// stable sort makes it so.
TEST(RadixSort, IsStable)
{
    std::mt19937_64 random(3);
    for (const int n : {40, 30000})
    {
        std::vector<std::pair<unsigned long long, int>> v;
        for (int i = 0; i < n; ++i)
            v.emplace_back((random() % 100) << 42 | (random() % 3) << 21, i);
        auto expected = v;
        std::stable_sort(expected.begin(), expected.end(), Func_ltFirstComponent());
        radix::sortByKey(v.data(), v.data() + v.size());
        EXPECT_EQ(v, expected);
    }
}

TEST(Pool, NestsAndServesSeveralThreadsAtOnce)
{
    const CpuCount cpus(2);
    ctpl::thread_pool::getLevelPool(true);
    const auto work = [](unsigned seed)
    {
        std::mt19937 random(seed);
        std::vector<std::vector<unsigned>> lists(8, std::vector<unsigned>(3000));
        std::vector<int> layers(lists.size());
        for (auto& list : lists)
            std::generate(list.begin(), list.end(), random);
        const auto sortList = [&layers, &lists](std::vector<unsigned>& list)
        {
            layers[size_t(&list - lists.data())] = ctpl::thread_pool::getLayer();
            sortMT(list.begin(), list.end(), std::greater<>());
        };
        forEachMT(lists, sortList, 1);
        for (const auto& list : lists)
            EXPECT_TRUE(std::is_sorted(list.begin(), list.end(), std::greater<>()));
        EXPECT_EQ(layers, std::vector<int>(lists.size(), 1));
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 4; ++seed)
        threads.emplace_back(work, seed);
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(ctpl::thread_pool::getLayer(), 0);
}

TEST(Pool, WaitsForAllTasksBeforeItThrows)
{
    const CpuCount cpus(4);
    std::atomic<int> numDone{0};
    std::vector<int> numbers(64);
    const auto work = [&](const int& n)
    {
        ZAV_ASSERT(&n != &numbers[0], "n!=0");
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
