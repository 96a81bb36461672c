#include "DeliveryQueues.h"

#include <android/log.h>

#include <algorithm>

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

bool sameResource(const VelaRequestData& a, const VelaRequestData& b) {
    return a.id == b.id && a.value2 == b.value2;
}

// `later`'s items over `earlier`'s: a resource named in both keeps its later value.
void mergeInto(Delivery& earlier, std::vector<VelaRequestData> later) {
    for (VelaRequestData& item : later) {
        auto same = std::find_if(earlier.items.begin(), earlier.items.end(),
                                 [&](const VelaRequestData& e) { return sameResource(e, item); });
        if (same != earlier.items.end()) {
            *same = std::move(item);
        } else {
            earlier.items.push_back(std::move(item));
        }
    }
}

}  // namespace

DeliveryQueues::DeliveryQueues(Deliver deliver) : mDeliver(std::move(deliver)) {}

DeliveryQueues::~DeliveryQueues() {
    std::map<pid_t, Queue> queues;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
        queues.swap(mQueues);
    }
    mWake.notify_all();
    mIdle.notify_all();
    // A thread still in a call finishes that call first: the owner's state outlives us.
    for (auto& [pid, queue] : queues) {
        if (queue.thread.joinable()) queue.thread.join();
    }
}

void DeliveryQueues::post(pid_t receiver, Delivery delivery) {
    std::vector<std::thread> leaving;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mStopping) return;
        const auto now = std::chrono::steady_clock::now();
        // Queues whose receivers have had nothing for a while go, so that processes that are
        // gone leave no thread behind; their threads see it and leave.
        for (auto it = mQueues.begin(); it != mQueues.end();) {
            const Queue& idle = it->second;
            if (it->first == receiver || idle.busy || !idle.waiting.empty() ||
                now - idle.lastUsed < kIdleLife) {
                ++it;
                continue;
            }
            leaving.push_back(std::move(it->second.thread));
            it = mQueues.erase(it);
        }
        auto [found, added] = mQueues.try_emplace(receiver);
        Queue& queue = found->second;
        if (added) {
            queue.id = mNextId++;
            queue.thread = std::thread([this, receiver, id = queue.id] { run(receiver, id); });
        }
        queue.lastUsed = now;
        if (queue.waiting.size() < kMaxQueued || makeRoomLocked(receiver, queue, delivery)) {
            queue.waiting.push_back(std::move(delivery));
        }
    }
    mWake.notify_all();
    // Not in a call (they were idle): each leaves as soon as it wakes.
    for (std::thread& thread : leaving) thread.join();
}

bool DeliveryQueues::makeRoomLocked(pid_t receiver, Queue& queue, Delivery& delivery) {
    if (delivery.listener != 0) {
        for (auto it = queue.waiting.rbegin(); it != queue.waiting.rend(); ++it) {
            if (it->listener != delivery.listener || it->callback != delivery.callback) continue;
            serviceLog(ANDROID_LOG_WARN,
                       "receiver pid %d is %zu deliveries behind: a change for listener %d "
                       "merged into the one still waiting",
                       receiver, queue.waiting.size(), delivery.listener);
            mergeInto(*it, std::move(delivery.items));
            return false;
        }
    }
    const Delivery& oldest = queue.waiting.front();
    serviceLog(ANDROID_LOG_WARN,
               "receiver pid %d is %zu deliveries behind: the oldest (%s %d, %zu items) dropped",
               receiver, queue.waiting.size(), oldest.listener != 0 ? "listener" : "request answer",
               oldest.listener, oldest.items.size());
    queue.waiting.pop_front();
    return true;
}

void DeliveryQueues::run(pid_t receiver, uint64_t id) {
    std::unique_lock<std::mutex> lock(mLock);
    while (true) {
        auto found = mQueues.find(receiver);
        if (mStopping || found == mQueues.end() || found->second.id != id) return;
        Queue& queue = found->second;
        if (queue.waiting.empty()) {
            mWake.wait(lock);
            continue;
        }
        Delivery delivery = std::move(queue.waiting.front());
        queue.waiting.pop_front();
        queue.busy = true;
        lock.unlock();
        mDeliver(delivery);
        // The callback proxy goes before the queue looks idle.
        delivery = Delivery{};
        lock.lock();
        if (auto again = mQueues.find(receiver); again != mQueues.end() && again->second.id == id) {
            again->second.busy = false;
            again->second.lastUsed = std::chrono::steady_clock::now();
        }
        if (idleLocked()) mIdle.notify_all();
    }
}

bool DeliveryQueues::idleLocked() const {
    return std::all_of(mQueues.begin(), mQueues.end(), [](const auto& entry) {
        return entry.second.waiting.empty() && !entry.second.busy;
    });
}

void DeliveryQueues::drain() {
    std::unique_lock<std::mutex> lock(mLock);
    mIdle.wait(lock, [this] { return mStopping || idleLocked(); });
}

size_t DeliveryQueues::pending() const {
    std::lock_guard<std::mutex> lock(mLock);
    size_t count = 0;
    for (const auto& [pid, queue] : mQueues) count += queue.waiting.size() + (queue.busy ? 1 : 0);
    return count;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
