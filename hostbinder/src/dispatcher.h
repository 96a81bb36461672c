// The process's binder threads. They wait together on one epoll set that watches every
// connection and listening socket; whichever wakes reads what is ready without blocking, and
// runs an incoming transaction itself. Nothing is delivered before the process starts (or
// joins) the pool, as on a device.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "log.h"

// Something on the epoll set. Registrations are one-shot: a handler re-arms when it is done.
class Watched {
public:
    virtual ~Watched() = default;
    virtual void onEvent(uint32_t events) = 0;
};

class Dispatcher {
public:
    static Dispatcher& get();

    // An id for add(), known before any event for it can arrive.
    uint64_t newId() { return mNextId.fetch_add(1); }
    // Watches `fd` for `events` (one-shot); the handler lives until remove().
    void add(int fd, uint64_t id, uint32_t events, std::shared_ptr<Watched> handler);
    void rearm(int fd, uint64_t id, uint32_t events);
    void remove(int fd, uint64_t id);

    // Runs `task` on a binder thread once the pool is started.
    void post(std::function<void()> task);
    // Called by a binder thread before it runs something that may take long, so that another
    // thread keeps watching.
    void ensureSpare();

    void start();
    [[noreturn]] void join();
    void setMaxThreads(uint32_t max);
    bool started() const { return mStarted.load(); }

    static bool onBinderThread();

private:
    Dispatcher();
    void spawn();
    void work();
    void runOneTask();
    void maybeSweep();
    // Runs `fn` unless the process is exiting, counted so that exit can wait for it.
    template <typename Fn>
    void deliver(Fn&& fn);
    static void onExit();

    const int mEpoll;
    const int mTaskFd;  // readable while tasks wait
    std::atomic<bool> mStarted{false};
    std::atomic<uint32_t> mIdle{0};
    std::atomic<int64_t> mNextSweep{0};
    // Once exit has begun nothing new is delivered: the process's static objects are being
    // destroyed, and a callback or death notice must not find them half gone.
    std::atomic<bool> mExiting{false};
    std::atomic<uint32_t> mDelivering{0};

    std::atomic<uint64_t> mNextId{1};
    std::mutex mMutex;  // guards everything below
    std::unordered_map<uint64_t, std::shared_ptr<Watched>> mWatched;
    std::deque<std::function<void()>> mTasks;
    uint32_t mThreads = 0;
    // Service and client share one pool per process on the host, and a nested call needs a
    // thread on each side, so the pool may always grow to this.
    static constexpr uint32_t kMinMaxThreads = 16;
    uint32_t mMaxThreads = 32;
};

// Closes connections whose peer stalls; run by a binder thread twice a second.
void sweepConnections(int64_t nowMs);
