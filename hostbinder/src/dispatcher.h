// The process's binder threads. They wait together on one epoll set that watches every
// connection and listening socket; whichever wakes reads what is ready without blocking, and
// runs an incoming transaction itself. Nothing is delivered before the process starts (or
// joins) the pool, as on a device.
//
// How many there are follows the device (libbinder's ProcessState.cpp): startThreadPool starts
// one, and only then may up to setThreadPoolMaxThreadCount(n) more be started on demand (the
// driver asks for them; n is 15 when never set); each joinThreadPool adds the thread that
// joins. A call that finds them all busy waits.
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

    // Runs `task` on a binder thread once there is one.
    void post(std::function<void()> task);
    // Bracket a binder thread's running of the process's own code (a transaction, a task).
    // Entering asks for one more thread when no other would be left free to take the next
    // call, as the driver asks when it finds no thread waiting.
    void enterBusy();
    void leaveBusy() { mBusy.fetch_sub(1); }

    void start();
    [[noreturn]] void join();
    // False (and nothing changes) when it would shrink a started pool, which aborts a device
    // process.
    bool setMaxThreads(uint32_t max);
    // The process has binder threads: it started or joined the pool.
    bool hasThreads() const { return mThreads.load() > 0; }

    static bool onBinderThread();

private:
    Dispatcher();
    void spawn();
    // One more thread, if the pool is started and below its maximum.
    void spawnIfAllowed();
    void work();
    void runOneTask();
    void maybeSweep();
    // Runs `fn` unless the process is exiting, counted so that exit can wait for it.
    template <typename Fn>
    void deliver(Fn&& fn);
    static void onExit();

    const int mEpoll;
    const int mTaskFd;                  // readable while tasks wait
    std::atomic<bool> mStarted{false};  // startThreadPool was called
    std::atomic<uint32_t> mThreads{0};
    // Threads running the process's code. A thread that is accepting a connection or reading
    // a message is not counted: on a device that work is the driver's, and the thread would
    // still be waiting there, so it must not make the pool grow.
    std::atomic<uint32_t> mBusy{0};
    std::atomic<int64_t> mNextSweep{0};
    // Once exit has begun nothing new is delivered: the process's static objects are being
    // destroyed, and a callback or death notice must not find them half gone.
    std::atomic<bool> mExiting{false};
    std::atomic<uint32_t> mDelivering{0};

    std::atomic<uint64_t> mNextId{1};
    std::mutex mMutex;  // guards everything below
    std::unordered_map<uint64_t, std::shared_ptr<Watched>> mWatched;
    std::deque<std::function<void()>> mTasks;
    // DEFAULT_MAX_BINDER_THREADS in ProcessState.cpp.
    static constexpr uint32_t kDefaultMaxThreads = 15;
    uint32_t mMaxThreads = kDefaultMaxThreads;
    uint32_t mSpawned = 0;  // started on demand, beyond the one startThreadPool starts
};

// Closes connections whose peer stalls; run by a binder thread twice a second.
void sweepConnections(int64_t nowMs);
