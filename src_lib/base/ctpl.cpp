#include "base/ctpl.h"

#include "base/tools.h"

#include <algorithm>
#include <map>
#include <system_error>
#include <utility>

namespace ctpl
{

thread_pool::~thread_pool()
{
    stop();
}

std::shared_ptr<thread_pool> thread_pool::getLevelPool(bool bDestroy)
{
    using Pools = std::map<int, std::shared_ptr<thread_pool>>;
    // Never destroyed: at the end of the process threads may still wait in the pools.
    static std::mutex& mtx = *new std::mutex;
    static Pools& mLevelPool = *new Pools;

    Pools dropped; // destroyed without the lock: a pool's end waits for jobs, and these may ask for a pool
    const std::lock_guard<std::mutex> lock(mtx);
    if (bDestroy)
    {
        dropped.swap(mLevelPool);
        return nullptr;
    }
    std::shared_ptr<thread_pool>& pool = mLevelPool[threadLayer()];
    if (pool == nullptr)
    {
        auto newPool = std::make_shared<thread_pool>(threadLayer());
        newPool->resize(MIRT_ZAV::getGlobalNumCPU());
        pool = std::move(newPool);
    }
    return pool;
}

int& thread_pool::threadLayer()
{
    thread_local int layer = 0;
    return layer;
}

int thread_pool::getLayer()
{
    return threadLayer();
}

void thread_pool::setLayer(int layer)
{
    threadLayer() = layer;
}

void thread_pool::resize(int n)
{
    n = std::max(1, n);
    while (size() < n && startThread())
        continue;
    if (n >= size())
        return;
    for (int id = n; id < size(); ++id)
    {
        *stopFlags[id] = true;
        threads[id].detach();
    }
    {
        // Without the mutex a thread that has looked at its flag but doesn't wait yet would sleep through the call.
        std::lock_guard<std::mutex> lock(shared->waitMutex);
        shared->wakeUp.notify_all();
    }
    threads.resize(n);
    stopFlags.resize(n);
}

void thread_pool::stop()
{
    if (isStop)
        return;
    isStop = true;
    {
        std::lock_guard<std::mutex> lock(shared->waitMutex);
        shared->isDone = true;
        shared->wakeUp.notify_all();
    }
    bool bOwnThread = false;
    for (std::thread& thread : threads)
        if (thread.get_id() == std::this_thread::get_id())
        {
            bOwnThread = true;
            thread.detach();
        }
        else
            thread.join();
    if (!bOwnThread)
    {
        // Threads that a resize has detached may still look into the queue.
        std::lock_guard<std::mutex> lock(shared->queueMutex);
        shared->jobs = {};
    }
    threads.clear();
    stopFlags.clear();
}

void thread_pool::enqueue(Job job)
{
    if (threads.empty())
    {
        runHere(job);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(shared->queueMutex);
        shared->jobs.push(std::move(job));
    }
    std::lock_guard<std::mutex> lock(shared->waitMutex);
    shared->wakeUp.notify_one();
}

/// As a thread of the pool would run it: what the job hands out itself goes to the next level.
void thread_pool::runHere(const Job& job) const
{
    const int before = getLayer();
    if (level != levelNotSet)
        setLayer(level + 1);
    job(0); // its exceptions go to the future
    setLayer(before);
}

/// False where the system has no more threads to give.
bool thread_pool::startThread()
{
    stopFlags.push_back(std::make_shared<std::atomic<bool>>(false));
    try
    {
        threads.emplace_back(work, size(), level, shared, stopFlags.back());
    }
    catch (const std::system_error&)
    {
        stopFlags.pop_back();
        return false;
    }
    return true;
}

bool thread_pool::Shared::pop(Job& job)
{
    std::lock_guard<std::mutex> lock(queueMutex);
    if (jobs.empty())
        return false;
    job = std::move(jobs.front());
    jobs.pop();
    return true;
}

void thread_pool::work(int id, int level, std::shared_ptr<Shared> shared, std::shared_ptr<std::atomic<bool>> stopFlag)
{
    if (level != levelNotSet)
        setLayer(level + 1);
    Job job;
    while (!*stopFlag)
    {
        if (shared->pop(job))
        {
            job(id);
            job = nullptr; // or what the job holds would live on while the thread has nothing to do
            continue;
        }
        std::unique_lock<std::mutex> lock(shared->waitMutex);
        shared->wakeUp.wait(lock,
                            [&]
                            {
                                const bool hasJob = shared->pop(job);
                                return hasJob || shared->isDone || *stopFlag;
                            });
        lock.unlock();
        if (!job)
            return; // the pool is done, or a resize has dropped this thread
        job(id);
        job = nullptr;
    }
}

} // namespace ctpl
