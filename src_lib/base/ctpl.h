// The thread pools. A task may hand out parallel work itself and wait for it. If that went to the pool that the task
// runs on, it could wait for ever: once all threads of a pool wait, none is left to work. So each level of nesting has
// a pool of its own.
//
//     application thread    level 0   gives work to   pool 0
//     thread of pool 0      level 1   gives work to   pool 1
//     thread of pool 1      level 2   ...
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

/// Jobs start in the order in which they were pushed, each on the first free thread, whose number it gets.
class thread_pool
{
public:
    static constexpr int levelNotSet = -100; // a pool beside the levels: its threads stay on level 0

    explicit thread_pool(int poolLevel = levelNotSet) : level(poolLevel) {}
    /// As stop().
    ~thread_pool();
    thread_pool(const thread_pool&) = delete;
    thread_pool& operator=(const thread_pool&) = delete;

    /// The pool for the work of the calling thread.
    /// \param bDestroy  true: the table of pools lets go of all of them, and the next call makes new ones. A pool ends
    ///                  with its last owner: here if nobody uses it, else when those who do are through.
    /// \return the pool of the caller's level, null with bDestroy. The caller owns it, too, and keeps it until its jobs
    ///         are done. It is made at first use with getGlobalNumCPU() threads, and a later change of that number
    ///         doesn't reach it.
    static std::shared_ptr<thread_pool> getLevelPool(bool bDestroy);

    /// The level of the calling thread: 0 for threads of the application, n + 1 for those of the pool of level n.
    static int getLayer();

    /// Queues a task, called with the number of its thread. The future gives its result or throws its exception. Where
    /// not one thread could be started, the task has been run when this returns, on the calling thread.
    template <class F>
    auto push(F&& task) -> std::future<std::invoke_result_t<std::decay_t<F>&, int>>
    {
        using Result = std::invoke_result_t<std::decay_t<F>&, int>;
        auto packaged = std::make_shared<std::packaged_task<Result(int)>>(std::forward<F>(task));
        auto future = packaged->get_future();
        enqueue([packaged](int id) { (*packaged)(id); });
        return future;
    }

    /// Sets the number of threads, at least 1. Nobody waits for those that are too many: they are detached and end
    /// after their present job. Where the system gives no more threads, the pool goes on with those that it got.
    void resize(int n);
    int size() const { return static_cast<int>(threads.size()); }

    /// Waits until the queued jobs are done and all threads have ended. Once stopped, a pool isn't to be used again.
    /// One of its own threads, which may let go of the pool last, can't wait for itself: it is left to finish the queue
    /// and to end alone.
    void stop();

private:
    using Job = std::function<void(int)>;

    /// What threads share with the pool. They own it, too, as detached ones may outlive the pool.
    struct Shared
    {
        std::queue<Job> jobs;
        std::mutex queueMutex;
        std::mutex waitMutex;
        std::condition_variable wakeUp;
        std::atomic<bool> isDone{false};

        bool pop(Job& job);
    };

    static int& threadLayer();
    static void setLayer(int layer);
    static void work(int id, int level, std::shared_ptr<Shared> shared, std::shared_ptr<std::atomic<bool>> stopFlag);

    void enqueue(Job job);
    void runHere(const Job& job) const;
    bool startThread();

    const int level;
    bool isStop = false;
    std::vector<std::thread> threads;
    std::vector<std::shared_ptr<std::atomic<bool>>> stopFlags;
    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
};

} // namespace ctpl
