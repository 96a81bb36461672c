// Runs deliveries to clients, in the order they were posted, on a thread of its own: a binder
// call that changes a value returns before anyone hears of the change, and a slow client
// holds up only other deliveries, never the service's state.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace aidl::vendor::norvo::hardware::vela::impl {

class Notifier {
public:
    Notifier();
    ~Notifier();  // drops what is still queued and joins the thread
    Notifier(const Notifier&) = delete;
    Notifier& operator=(const Notifier&) = delete;

    void post(std::function<void()> task);
    // Blocks until everything posted so far has run. Not from a task.
    void drain();
    size_t pending() const;

private:
    void run();

    mutable std::mutex mLock;
    std::condition_variable mWake;
    std::condition_variable mIdle;
    std::deque<std::function<void()>> mQueue;
    bool mBusy = false;
    bool mStopping = false;
    std::thread mThread;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
