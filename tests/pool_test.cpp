#include "AscendingMemory.h"
#include "OrderedIndex.h"
#include "Point3.h"
#include "SimplePool.h"
#include "SmallVec.h"
#include "capture.h"
#include "vectorHelpers.h"

#include <cstring>
#include <map>
#include <random>
#include <sys/resource.h>
#include <unistd.h>

using namespace MIRT_TOOLS;
using MIRT_ZAV::Point3;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool bSanitized = true; // sanitizers need the whole address space
#else
constexpr bool bSanitized = false;
#endif

namespace
{
void toStderr()
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

void limitAddressSpace(size_t numBytes)
{
    const rlimit limit{numBytes, numBytes};
    setrlimit(RLIMIT_AS, &limit);
}

template <class T>
void takeUntil(SimplePool<T>& pool, size_t numContainers)
{
    while (pool.vContainers.size() < numContainers)
        pool.take();
}
} // namespace

TEST(SimplePool, GrowsByItself)
{
    SimplePool<Point3> pool;
    pool.init(1000, -1);
    EXPECT_EQ(pool.maxContainer, 3125000);
    EXPECT_TRUE(pool.bSingleContainer);
    takeUntil(pool, 4);
    EXPECT_EQ(pool.vSizes, (std::vector<int>{1000, 500, 1000, 2000}));
    EXPECT_FALSE(pool.bSingleContainer);
    EXPECT_EQ(pool.index, 0);

    SimplePool<Point3> capped;
    capped.init(4, -1, 5);
    takeUntil(capped, 5);
    EXPECT_EQ(capped.vSizes, (std::vector<int>{4, 2, 4, 5, 5}));

    SimplePool<Point3> tiny; // half of 1 is 0: the same size again
    tiny.init(1, -1);
    takeUntil(tiny, 3);
    EXPECT_EQ(tiny.vSizes, (std::vector<int>{1, 1, 2}));
}

TEST(SimplePool, FixedSteps)
{
    SimplePool<int> pool;
    pool.init(0, 100);
    EXPECT_EQ(pool.vSizes, (std::vector<int>{0}));
    *pool.take() = 1;
    EXPECT_EQ(pool.vSizes, (std::vector<int>{0, 100}));

    SimplePool<int> still; // a growth step of 0, and an empty first container with automatic growth
    still.init(0, 0);
    *still.take() = 1;
    SimplePool<int> empty;
    empty.init(0, -1);
    *empty.take() = 1;
    EXPECT_EQ(empty.vSizes, (std::vector<int>{0, 1}));
}

TEST(SimplePool, LaterObjectsLieHigher)
{
    SimplePool<Point3> pool;
    pool.init(10, -1);
    for (int round = 0; round < 3; ++round)
    {
        Point3* const first = pool.take();
        Point3* last = first;
        for (int i = 1; i < 300000; ++i)
        {
            Point3* const p = pool.take();
            ASSERT_GT(p, last);
            last = new (p) Point3(i, i, i);
        }
        EXPECT_EQ(last->x(), 299999.0);
        pool.backToFirstContainer();
        EXPECT_EQ(pool.vSizes.size(), 1u);
        EXPECT_EQ(pool.take(), first);
        pool.backToFirstContainer();
    }
}

TEST(SimplePool, HintsAtManyContainers)
{
    const auto useContainers = [](size_t n)
    {
        SimplePool<int> pool;
        pool.init(1, 1);
        takeUntil(pool, n);
    };
    EXPECT_EQ(test::outputOf([&] { useContainers(500); }), "");
    EXPECT_EQ(test::outputOf([&] { useContainers(501); }),
              "SimplePool::~SimplePool: Number of containers to release: 501\n");
}

TEST(SimplePoolDeathTest, EndsTheProcess)
{
    const auto initTwice = []
    {
        toStderr();
        SimplePool<int> pool;
        pool.init(1, 1);
        pool.init(1, 1);
    };
    EXPECT_EXIT(initTwice(), testing::ExitedWithCode(1),
                "SimplePool::init\\(..\\), ERROR: This pool is already initialized\n");
    if (bSanitized)
        return;
    const auto exhaust = []
    {
        toStderr();
        limitAddressSpace(size_t(1) << 30);
        SimplePool<Point3> pool;
        pool.init(100000000, 1); // 3.2 GB
    };
    EXPECT_EXIT(exhaust(), testing::ExitedWithCode(1), "SimplePool::alloc\\(..\\), ERROR: Out of memory, sorry\n");
}

TEST(AscendingMemory, BlocksRiseAndAreUsable)
{
    AscendingMemory memory;
    std::mt19937 random(1);
    char* top = nullptr;
    for (int i = 0; i < 2000; ++i)
    {
        const size_t n = random() % (i % 100 == 0 ? 3000000 : 3000);
        char* const block = static_cast<char*>(memory.allocate(n));
        ASSERT_GE(block, top);
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u);
        std::memset(block, 1, n);
        top = block + n;
    }
    EXPECT_EQ(memory.allocate(~size_t(0)), nullptr);
    EXPECT_EQ(memory.allocate(~size_t(0) / 2), nullptr);
}

TEST(AscendingMemory, ReleasesFromABlockOn)
{
    AscendingMemory memory;
    char* const kept = static_cast<char*>(memory.allocate(100000));
    std::memset(kept, 7, 100000);
    char* const given = static_cast<char*>(memory.allocate(10000000));
    std::memset(given, 7, 10000000);
    memory.releaseFrom(given);
    EXPECT_EQ(kept[99999], 7);
    EXPECT_EQ(memory.allocate(5000000), given);
    std::memset(given, 1, 5000000);
    EXPECT_EQ(kept[0], 7);
}

// Small ranges, as under a limit of the address space, so that growth crosses many of them.
TEST(AscendingMemoryDeathTest, RisesAcrossRanges)
{
    const auto run = []
    {
        if (!bSanitized)
            limitAddressSpace(size_t(1) << 30); // ranges of 4 MB
        AscendingMemory memories[3];
        char* top[3] = {};
        char* released = nullptr;
        for (int i = 0; i < 300; ++i)
            for (int m = 0; m < 3; ++m)
            {
                char* const block = static_cast<char*>(memories[m].allocate(500000));
                if (block == nullptr || block < top[m])
                    std::exit(2);
                std::memset(block, m, 500000);
                top[m] = block + 500000;
                if (m == 0 && i == 60)
                    released = block;
            }
        memories[0].releaseFrom(released);
        for (int i = 60; i < 300; ++i)
        {
            char* const block = static_cast<char*>(memories[0].allocate(500000));
            if (block == nullptr || block < released)
                std::exit(3);
            released = block + 500000;
            std::memset(block, 1, 500000);
        }
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

TEST(SmallVec, BehavesLikeAVector)
{
    SmallVec<int, 2> v;
    std::vector<int> expected;
    const auto check = [&expected](const SmallVec<int, 2>& w)
    { EXPECT_TRUE(std::equal(w.begin(), w.end(), expected.begin(), expected.end())); };
    for (int i = 0; i < 40; ++i)
    {
        v.push_back(i);
        expected.push_back(i);
        check(v);
        check(SmallVec<int, 2>(v));
    }
    SmallVec<int, 2> w;
    w.push_back(99);
    w = v;
    v[0] = -1; // a copy of its own
    check(w);
    w.pop_back();
    expected.pop_back();
    EXPECT_EQ(w.back(), 38);
    w = *&w;
    check(w);
    w.clear();
    EXPECT_TRUE(w.empty());
    EXPECT_EQ(v.size(), 40u);
}

// Keys collide in all but their upper bits: long runs in the table, which erasing must keep searchable.
struct PoorHash
{
    std::uint64_t operator()(unsigned key) const { return key % 7; }
};

template <class Index>
void compareWithMap(unsigned numKeys, int numOperations)
{
    Index index;
    std::map<unsigned, int> expected;
    std::mt19937 random(3);
    for (int i = 0; i < numOperations; ++i)
    {
        const unsigned key = random() % numKeys;
        switch (random() % 4)
        {
        case 0:
        case 1:
            ASSERT_EQ(index.insert(key, i), expected.emplace(key, i).second);
            break;
        case 2:
            ASSERT_EQ(index.erase(key), expected.erase(key));
            break;
        default:
            ASSERT_EQ(index.count(key), expected.count(key));
            if (int* const value = index.find(key))
            {
                ASSERT_EQ(*value, expected[key]);
                *value = expected[key] = -i;
            }
        }
        if (random() % 500 == 0)
        {
            ASSERT_TRUE(std::equal(index.begin(), index.end(), expected.begin(), expected.end(),
                                   [](const auto& x, const auto& y)
                                   { return x.first == y.first && x.second == y.second; }));
        }
        if (random() % 5000 == 0)
        {
            index.clear();
            expected.clear();
            index.reserve(random() % 100);
        }
    }
}

TEST(OrderedIndex, BehavesLikeAMap)
{
    compareWithMap<OrderedIndex<unsigned, int>>(40, 20000);
    compareWithMap<OrderedIndex<unsigned, int>>(5000, 100000);
    compareWithMap<OrderedIndex<unsigned, int, PoorHash>>(60, 20000);
}

TEST(OrderedIndex, AppendedInOrderAndNot)
{
    OrderedIndex<std::pair<int, const char*>, int> index;
    const char* const text = "abcdefgh";
    for (int i : {1, 2, 3, 0, 5, 4})
        EXPECT_EQ(*index.insertOrFind({i, text + i}, i).first, i);
    EXPECT_FALSE(index.insertOrFind({3, text + 3}, 77).second);
    std::vector<int> order;
    for (const auto& [key, value] : index)
        order.push_back(value);
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(index.erase(index.begin()->first), 1u); // by a reference into the container
    EXPECT_EQ(index.size(), 5u);
    EXPECT_EQ(index.begin()->second, 1);
}

TEST(KeyedLists, BehaveLikeAMultimap)
{
    KeyedLists<unsigned, int> lists;
    std::multimap<unsigned, int> expected;
    std::mt19937 random(5);
    for (int i = 0; i < 60000; ++i)
    {
        const unsigned key = random() % 50;
        const int value = static_cast<int>(random() % 6);
        const unsigned kind = random() % 20;
        if (kind < 11)
        {
            lists.insert(key, value);
            expected.emplace(key, value);
        }
        else if (kind < 19)
            ASSERT_EQ(lists.erase(key, value), MIRT_ZAV::eraseCertainEntry(expected, key, value));
        else
            ASSERT_EQ(lists.erase(key), static_cast<int>(expected.erase(key)));
        ASSERT_EQ(lists.size(), expected.size());
        ASSERT_EQ(lists.count(key), expected.count(key));
        auto it = expected.lower_bound(key);
        lists.forEach(key, [&it](int listed) { ASSERT_EQ(listed, (it++)->second); });
    }
}

TEST(VectorHelpers, SetAlgebra)
{
    using namespace MIRT_ZAV;
    std::vector<int> v = {3, 1, 2, 3, 1};
    oneInstance(v);
    EXPECT_EQ(v, (std::vector<int>{1, 2, 3}));

    std::vector<std::pair<int, int>> pairs = {{2, 5}, {1, 4}, {2, 6}, {1, 4}};
    oneInstanceFirstComponent(pairs);
    ASSERT_EQ(pairs.size(), 2u);
    EXPECT_EQ(pairs[0], std::make_pair(1, 4));
    EXPECT_EQ(pairs[1].first, 2);

    std::vector<int> a = {1, 2, 3, 4, 7, 9};
    removeVec(a, {0, 2, 3, 5});
    EXPECT_EQ(a, (std::vector<int>{1, 4, 7, 9}));
    removeVec(a, {});
    EXPECT_EQ(a, (std::vector<int>{1, 4, 7, 9}));
    keepVec(a, {0, 4, 5, 9, 10});
    EXPECT_EQ(a, (std::vector<int>{4, 9}));
    keepVec(a, {});
    removeVec(a, {1, 2});
    EXPECT_TRUE(a.empty());

    std::set<int> once;
    filterN(std::vector<int>{1, 1, 2, 3, 3, 4}, 1, once);
    EXPECT_EQ(once, (std::set<int>{2, 4}));

    std::multimap<int, int> entries = {{1, 5}, {1, 6}, {1, 5}, {2, 5}};
    EXPECT_EQ(eraseCertainEntry(entries, 1, 7), 0);
    EXPECT_EQ(eraseCertainEntry(entries, 1, 5), 2);
    EXPECT_EQ(entries, (std::multimap<int, int>{{1, 6}, {2, 5}}));
}
