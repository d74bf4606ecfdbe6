#include "base/ctpl.h"

#include "base/tools.h"

#include <algorithm>
#include <map>

namespace ctpl
{

thread_pool::~thread_pool()
{
    stop();
}

thread_pool* thread_pool::getLevelPool(bool bDestroy)
{
    // Never destroyed: at the end of the process threads may still wait in the pools.
    static std::mutex& mtx = *new std::mutex;
    static std::map<int, thread_pool*>& mLevelPool = *new std::map<int, thread_pool*>;

    std::lock_guard<std::mutex> lock(mtx);
    if (bDestroy)
    {
        for (auto& [poolLevel, pool] : mLevelPool)
            delete pool;
        mLevelPool.clear();
        return nullptr;
    }
    thread_pool*& pool = mLevelPool[threadLayer()];
    if (pool == nullptr)
    {
        auto newPool = std::make_unique<thread_pool>(threadLayer());
        newPool->resize(MIRT_ZAV::getGlobalNumCPU());
        pool = newPool.release();
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
    for (int id = size(); id < n; ++id)
        set_thread(id);
    if (n == size())
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
    for (std::thread& thread : threads)
        thread.join();
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
    {
        std::lock_guard<std::mutex> lock(shared->queueMutex);
        shared->jobs.push(std::move(job));
    }
    std::lock_guard<std::mutex> lock(shared->waitMutex);
    shared->wakeUp.notify_one();
}

void thread_pool::set_thread(int id)
{
    stopFlags.push_back(std::make_shared<std::atomic<bool>>(false));
    threads.emplace_back(work, id, level, shared, stopFlags.back());
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
