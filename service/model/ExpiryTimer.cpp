#include "ExpiryTimer.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

ExpiryTimer::ExpiryTimer(Expired onExpired, bool ownThread) : mOnExpired(std::move(onExpired)) {
    if (ownThread) mThread = std::thread([this] { run(); });
}

ExpiryTimer::~ExpiryTimer() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
    }
    mWake.notify_all();
    if (mThread.joinable()) mThread.join();
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

std::optional<ExpiryTimer::Clock::time_point> ExpiryTimer::next() {
    std::lock_guard<std::mutex> lock(mLock);
    if (mDeadlines.empty()) return std::nullopt;
    return mDeadlines.begin()->first;
}

void ExpiryTimer::expireDue(Clock::time_point now) {
    std::unique_lock<std::mutex> lock(mLock);
    while (!mDeadlines.empty() && mDeadlines.begin()->first <= now) {
        const auto first = *mDeadlines.begin();
        mDeadlines.erase(mDeadlines.begin());
        lock.unlock();
        mOnExpired(first.second, first.first);
        lock.lock();
    }
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
