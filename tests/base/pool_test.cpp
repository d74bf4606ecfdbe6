#include "base/AscendingMemory.h"
#include "base/OrderedIndex.h"
#include "base/SimplePool.h"
#include "base/vectorHelpers.h"
#include "helpers/capture.h"
#include "zav/Point3.h"

#include <cstring>
#include <map>
#include <random>
#include <sys/resource.h>

using namespace MIRT_TOOLS;
using MIRT_ZAV::Point3;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool bSanitized = true; // sanitizers need the whole address space
#else
constexpr bool bSanitized = false;
#endif

namespace
{
void limitAddressSpace(size_t numBytes)
{
    const rlimit limit{numBytes, numBytes};
    setrlimit(RLIMIT_AS, &limit);
}
} // namespace

TEST(SimplePool, LaterObjectsLieHigher)
{
    SimplePool<Point3> pool;
    pool.init(10, -1);
    for (int round = 0; round < 2; ++round)
    {
        Point3* const first = pool.take();
        Point3* last = first;
        for (int i = 1; i < 300000; ++i)
        {
            Point3* const p = pool.take();
            ASSERT_GT(p, last);
            last = new (p) Point3(i, i, i);
        }
        pool.backToFirstContainer();
        EXPECT_EQ(pool.vSizes.size(), 1u);
        EXPECT_EQ(pool.take(), first);
        pool.backToFirstContainer();
    }
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
    memory.releaseFrom(top);
    EXPECT_EQ(memory.allocate(0), top);
    EXPECT_EQ(memory.allocate(~size_t(0)), nullptr);
    EXPECT_EQ(memory.allocate(~size_t(0) / 2), nullptr);
}

// A limit of the address space makes the ranges small, so that growth crosses many of them.
TEST(AscendingMemoryDeathTest, RisesAcrossRanges)
{
    const auto run = []
    {
        if (!bSanitized)
            limitAddressSpace(size_t(1) << 30); // ranges of 4 MB
        AscendingMemory memories[3];
        char *top[3] = {}, *released = nullptr;
        const auto take = [&](int m)
        {
            char* const block = static_cast<char*>(memories[m].allocate(500000));
            if (block == nullptr || block < top[m])
                std::exit(2);
            std::memset(block, m, 500000);
            top[m] = block + 500000;
        };
        for (int i = 0; i < 900; ++i)
        {
            take(i % 3);
            if (i == 180)
                released = top[0];
        }
        memories[0].releaseFrom(top[0] = released);
        for (int i = 0; i < 240; ++i)
            take(0);
        std::exit(0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

// Seven hashes for all keys make long runs in the table. Erasing in the middle of one must not hide what stands behind.
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
        const unsigned op = random() % 8;
        if (op < 4)
        {
            const auto [value, bNew] = index.insertOrFind(key, i);
            ASSERT_EQ(bNew, expected.emplace(key, i).second);
            ASSERT_EQ(*value, expected.at(key));
        }
        else if (op < 6)
            ASSERT_EQ(index.erase(key), expected.erase(key));
        else if (op == 6 && !expected.empty())
        {
            expected.erase(expected.begin());
            ASSERT_EQ(index.erase(index.begin()->first), 1u); // by a reference into the container
        }
        else if (int* const value = index.find(key))
        {
            ASSERT_EQ(*value, expected.at(key));
            *value = expected[key] = -i;
        }
        ASSERT_EQ(index.count(key), expected.count(key));
        const auto same = [](const auto& x, const auto& y) { return x.first == y.first && x.second == y.second; };
        if (random() % 500 == 0)
        {
            ASSERT_TRUE(std::equal(index.begin(), index.end(), expected.begin(), expected.end(), same));
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
