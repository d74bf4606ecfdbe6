// The thread pool: a job queue with a vector of threads, and one pool per nesting level, so that a task may itself run
// parallel work without waiting on its own pool.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <queue>
#include <thread>
#include <type_traits>
#include <vector>

namespace ctpl
{

/// Jobs run in the order in which they were pushed, each on the first free thread. A job receives its thread's number.
class thread_pool
{
public:
    static constexpr int levelNotSet = -100;

    explicit thread_pool(int poolLevel = levelNotSet) : level(poolLevel) {}
    /// Finishes the queued jobs and joins the threads.
    ~thread_pool();
    thread_pool(const thread_pool&) = delete;
    thread_pool& operator=(const thread_pool&) = delete;

    /// With bDestroy false: the pool of the calling thread's level, made with getGlobalNumCPU() threads at first use
    /// and never resized. With bDestroy true: ends all pools and returns null; pools come back on demand.
    static thread_pool* getLevelPool(bool bDestroy);

    /// The nesting level of the calling thread: 0 for application threads, n + 1 on a worker of the pool of level n.
    static int getLayer();

    /// Queues a task; its result or its exception comes through the future.
    template <class F>
    auto push(F&& task) -> std::future<std::invoke_result_t<std::decay_t<F>&, int>>
    {
        using Result = std::invoke_result_t<std::decay_t<F>&, int>;
        auto packaged = std::make_shared<std::packaged_task<Result(int)>>(std::forward<F>(task));
        auto future = packaged->get_future();
        enqueue([packaged](int id) { (*packaged)(id); });
        return future;
    }

    /// Sets the number of threads, at least 1. Threads beyond n end after their present job, detached.
    void resize(int n);
    int size() const { return static_cast<int>(threads.size()); }

    /// Lets the queued jobs finish, joins all threads and empties the pool.
    void stop();

private:
    using Job = std::function<void(int)>;

    /// What workers share with the pool; detached workers keep it alive.
    struct Shared
    {
        std::queue<Job> jobs;
        std::mutex queueMutex;
        std::mutex waitMutex;
        std::condition_variable wakeUp;
        std::atomic<int> numWaiting{0};
        std::atomic<bool> isDone{false};

        bool pop(Job& job);
    };

    static int& threadLayer();
    static void setLayer(int layer);
    static void work(int id, int level, std::shared_ptr<Shared> shared, std::shared_ptr<std::atomic<bool>> stopFlag);

    void enqueue(Job job);
    void set_thread(int id);

    const int level;
    bool isStop = false;
    std::vector<std::thread> threads;
    std::vector<std::shared_ptr<std::atomic<bool>>> stopFlags;
    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};

} // namespace ctpl
