#include "Notifier.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

Notifier::Notifier() : mThread([this] { run(); }) {}

Notifier::~Notifier() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
        mQueue.clear();
    }
    mWake.notify_all();
    mIdle.notify_all();
    mThread.join();
}

void Notifier::post(std::function<void()> task) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mStopping) return;
        mQueue.push_back(std::move(task));
    }
    mWake.notify_one();
}

void Notifier::drain() {
    std::unique_lock<std::mutex> lock(mLock);
    mIdle.wait(lock, [this] { return mStopping || (mQueue.empty() && !mBusy); });
}

size_t Notifier::pending() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mQueue.size() + (mBusy ? 1 : 0);
}

void Notifier::run() {
    std::unique_lock<std::mutex> lock(mLock);
    while (true) {
        mWake.wait(lock, [this] { return mStopping || !mQueue.empty(); });
        if (mStopping) return;
        std::function<void()> task = std::move(mQueue.front());
        mQueue.pop_front();
        mBusy = true;
        lock.unlock();
        task();
        // The task's captures (callback proxies among them) go before the queue looks idle.
        task = nullptr;
        lock.lock();
        mBusy = false;
        if (mQueue.empty()) mIdle.notify_all();
    }
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
