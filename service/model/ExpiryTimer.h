// Ends timed requests: calls back with (handle, deadline) once the deadline has passed, on a
// thread of its own. The deadline comes back so that the owner can tell a stale entry (the
// request was released, or its handle reused) from the one it armed.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>

namespace aidl::vendor::norvo::hardware::vela::impl {

class ExpiryTimer {
public:
    using Clock = std::chrono::steady_clock;
    using Expired = std::function<void(int32_t handle, Clock::time_point deadline)>;

    // Without a thread of its own, nothing expires until expireDue() says so: the time is then
    // a clock that the owner moves (a replay).
    explicit ExpiryTimer(Expired onExpired, bool ownThread = true);
    ~ExpiryTimer();
    ExpiryTimer(const ExpiryTimer&) = delete;
    ExpiryTimer& operator=(const ExpiryTimer&) = delete;

    void arm(int32_t handle, Clock::time_point deadline);
    void cancel(int32_t handle, Clock::time_point deadline);

    // The earliest deadline armed, if any.
    std::optional<Clock::time_point> next();
    // Calls back, in deadline order, for every deadline at or before `now`.
    void expireDue(Clock::time_point now);

private:
    void run();

    const Expired mOnExpired;
    std::mutex mLock;
    std::condition_variable mWake;
    std::set<std::pair<Clock::time_point, int32_t>> mDeadlines;
    bool mStopping = false;
    std::thread mThread;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
