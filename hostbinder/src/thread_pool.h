// The process's binder threads: incoming transactions and death notifications run here,
// never on a thread of the caller's.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

class ThreadPool {
public:
    static ThreadPool& get();

    // Runs `task` on a binder thread, starting one when none is idle.
    void post(std::function<void()> task);
    // The calling thread serves tasks from now on; never returns.
    [[noreturn]] void join();
    void setMaxThreads(uint32_t max);

    static bool onBinderThread();

private:
    ThreadPool() = default;
    void work();

    std::mutex mMutex;
    std::condition_variable mWake;
    std::deque<std::function<void()>> mTasks;
    uint32_t mThreads = 0;
    uint32_t mIdle = 0;
    // Service and client share one pool per process on the host, and a nested call needs a
    // thread on each side, so the pool never goes below this.
    static constexpr uint32_t kMinThreads = 16;
    uint32_t mMaxThreads = 64;
};
