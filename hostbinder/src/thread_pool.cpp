#include "thread_pool.h"

#include <algorithm>
#include <thread>

namespace {
thread_local bool tOnBinderThread = false;
}

ThreadPool& ThreadPool::get() {
    // Never destroyed: binder threads may still be running while the process exits.
    static ThreadPool* pool = new ThreadPool;
    return *pool;
}

bool ThreadPool::onBinderThread() { return tOnBinderThread; }

void ThreadPool::setMaxThreads(uint32_t max) {
    std::lock_guard<std::mutex> lock(mMutex);
    mMaxThreads = std::max(max, kMinThreads);
}

void ThreadPool::post(std::function<void()> task) {
    bool spawn = false;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mTasks.push_back(std::move(task));
        if (mIdle < mTasks.size() && mThreads < mMaxThreads) {
            ++mThreads;
            spawn = true;
        }
    }
    if (spawn) {
        std::thread([this] { work(); }).detach();
    } else {
        mWake.notify_one();
    }
}

void ThreadPool::join() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mThreads;
    }
    for (;;) work();
}

void ThreadPool::work() {
    tOnBinderThread = true;
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        ++mIdle;
        mWake.wait(lock, [this] { return !mTasks.empty(); });
        --mIdle;
        std::function<void()> task = std::move(mTasks.front());
        mTasks.pop_front();
        lock.unlock();
        task();
        task = nullptr;  // drop what the task held before waiting again
        lock.lock();
    }
}
