// Small helpers for waiting on things that happen on other threads (binder threads, death
// notifications, callbacks) without sleeping for fixed times.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

namespace paxtest {

inline constexpr std::chrono::milliseconds kWaitTimeout{5000};

// Polls `pred` until it is true or `timeout` passes; returns its last value.
template <typename Pred>
bool waitUntil(Pred&& pred, std::chrono::milliseconds timeout = kWaitTimeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!pred()) {
        if (std::chrono::steady_clock::now() >= deadline) return pred();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Counts events signalled from any thread and lets a test wait for a number of them.
class Counter {
public:
    void increment() {
        std::lock_guard<std::mutex> lock(mMutex);
        ++mCount;
        mChanged.notify_all();
    }
    bool waitFor(size_t n, std::chrono::milliseconds timeout = kWaitTimeout) const {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, timeout, [&] { return mCount >= n; });
    }

private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    size_t mCount = 0;
};

// Holds every thread that calls pass() until open(); `arrived` counts them. A fake's action
// that passes a gate keeps a call in flight for as long as a test needs.
class Gate {
public:
    void pass() {
        arrived.increment();
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [&] { return mOpen; });
    }
    void open() {
        std::lock_guard<std::mutex> lock(mMutex);
        mOpen = true;
        mChanged.notify_all();
    }
    Counter arrived;

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mOpen = false;
};

}  // namespace paxtest
