#include "ExpiryTimer.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

ExpiryTimer::ExpiryTimer(Expired onExpired)
    : mOnExpired(std::move(onExpired)), mThread([this] { run(); }) {}

ExpiryTimer::~ExpiryTimer() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
    }
    mWake.notify_all();
    mThread.join();
}

void ExpiryTimer::arm(int32_t handle, Clock::time_point deadline) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mDeadlines.emplace(deadline, handle);
    }
    mWake.notify_all();
}

void ExpiryTimer::cancel(int32_t handle, Clock::time_point deadline) {
    std::lock_guard<std::mutex> lock(mLock);
    mDeadlines.erase({deadline, handle});
}

void ExpiryTimer::run() {
    std::unique_lock<std::mutex> lock(mLock);
    while (!mStopping) {
        if (mDeadlines.empty()) {
            mWake.wait(lock);
            continue;
        }
        auto first = *mDeadlines.begin();
        if (Clock::now() < first.first) {
            mWake.wait_until(lock, first.first);
            continue;
        }
        mDeadlines.erase(mDeadlines.begin());
        lock.unlock();
        mOnExpired(first.second, first.first);
        lock.lock();
    }
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
