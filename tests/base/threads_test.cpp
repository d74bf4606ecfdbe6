// Pools that lose their owner, callbacks that throw, and systems that give no threads.
#include "base/sortMT.h"
#include "helpers/capture.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <sys/resource.h>

using namespace MIRT_ZAV;
using test::CpuCount;

namespace
{
struct SlowTask
{
    std::atomic<int>* numDone;
    void operator()(int) const
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ++*numDone;
    }
};

/// Leaves room for this many bytes more than the process has now.
void limitMemoryGrowth(size_t numBytes)
{
    size_t numPages = 0;
    std::FILE* const file = std::fopen("/proc/self/statm", "r");
    if (file == nullptr || std::fscanf(file, "%zu", &numPages) != 1)
        std::exit(3);
    std::fclose(file);
    const size_t limit = numPages * 4096 + numBytes;
    const rlimit limits{limit, limit};
    setrlimit(RLIMIT_AS, &limits);
}
} // namespace

TEST(RunTasks, WaitsForAllTasksWhenCountingThem)
{
    const CpuCount cpus(4);
    ctpl::thread_pool::getLevelPool(true);
    std::atomic<int> numDone{0};
    int numCounted = 0;
    {
        std::vector<SlowTask> tasks(12, SlowTask{&numDone});
        const auto onDone = [&numCounted]
        {
            if (++numCounted == 2)
                throw 7;
        };
        EXPECT_THROW(runTasks(tasks, onDone), int);
    } // a task that still ran would read what has gone
    EXPECT_EQ(numDone, 12);
    EXPECT_EQ(numCounted, 2);
}

TEST(Pool, LivesOnForThoseWhoUseIt)
{
    const CpuCount cpus(2);
    for (int round = 0; round < 100; ++round)
    {
        std::atomic<int> numDone{0};
        const auto work = [&numDone](const int&)
        {
            std::vector<int> inner(3);
            forEachMT(
                inner,
                [&numDone](const int&)
                {
                    ctpl::thread_pool::getLevelPool(true); // from the pool's own threads, too
                    ++numDone;
                },
                1);
        };
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back(
                [&work]
                {
                    std::vector<int> outer(4);
                    forEachMT(outer, work, 1);
                    ctpl::thread_pool::getLevelPool(true);
                });
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(numDone, 3 * 4 * 3);
    }
}

TEST(Pool, MayEndOnItsOwnThread)
{
    for (const int numThreads : {1, 3})
    {
        std::promise<void> go;
        std::vector<std::future<void>> futures;
        {
            auto pool = std::make_shared<ctpl::thread_pool>();
            pool->resize(numThreads);
            pool->push([pool, start = go.get_future().share()](int)
                       { start.wait(); }); // a kept future would own it, too
            for (int i = 0; i < 5; ++i)
                futures.push_back(pool->push([](int) {}));
        }
        go.set_value(); // now the first job is the owner
        for (auto& future : futures)
            EXPECT_EQ(future.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    }
}

TEST(CpuCount, StopsAtFourTimesTheHardware)
{
    const CpuCount cpus(1);
    const int limit = 4 * std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    std::string text = test::outputOf([limit] { EXPECT_EQ(getSetGlobalNumCPU(limit), limit); });
    EXPECT_EQ(text, "");
    text = test::outputOf(
        [limit]
        {
            for (const int numCPU : {limit + 1, 30000})
            {
                EXPECT_EQ(getSetGlobalNumCPU(numCPU), limit);
                EXPECT_EQ(getGlobalNumCPU(), limit);
            }
        });
    const std::string sentence = "no more than " + toString(limit) + " are used";
    const size_t place = text.find(sentence);
    // Another test of this process may have heard it.
    EXPECT_TRUE(text.empty() || (place != std::string::npos && text.find(sentence, place + 1) == std::string::npos));
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // they need the whole address space
TEST(PoolDeathTest, WorksWithTheThreadsItGets)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // stacks of threads that have ended would be used again
    const auto run = [](size_t numMegabytes)
    {
        const CpuCount cpus(4);
        limitMemoryGrowth(numMegabytes << 20);
        std::atomic<int> numDone{0}, numNested{0};
        std::vector<int> outer(8);
        const auto work = [&](const int&)
        {
            ++numDone;
            std::vector<int> inner(4);
            forEachMT(
                inner, [&](const int&) { ++numNested; }, 1);
        };
        forEachMT(outer, work, 1);
        const int size = ctpl::thread_pool::getLevelPool(false)->size();
        const bool bFew = numMegabytes < 8 ? size == 0 : size > 0;
        const bool bBug = test::hasBug("0>1",
                                       [&]
                                       {
                                           forEachMT(
                                               outer, [](const int&) { ZAV_ASSERT(false, "0>1"); }, 1);
                                       });
        std::exit(
            bFew && size < 4 && bBug && numDone == 8 && numNested == 32 && ctpl::thread_pool::getLayer() == 0 ? 0 : 1);
    };
    EXPECT_EXIT(run(4), testing::ExitedWithCode(0), ""); // less than a stack
    EXPECT_EXIT(run(20), testing::ExitedWithCode(0), "");
}
#endif
