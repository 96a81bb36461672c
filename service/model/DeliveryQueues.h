// Delivers callbacks to clients with one queue per receiving process, each served by a thread
// of its own: a slow or silent receiver holds up only its own notifications. A binder call
// that changes a value returns before anyone hears of the change. A queue and its thread go
// once the receiver has had nothing for a while, so processes that are gone leave nothing.
//
// Each queue is bounded. When a receiver falls that far behind, what is queued for the same
// listener is merged (each resource keeps its latest value, so what it hears stays in order,
// only with fewer steps); when nothing can be merged the oldest delivery is dropped. Either is
// logged. A one-shot request answer is never merged.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

struct Delivery {
    int32_t listener = 0;  // 0 for a request's one-shot answer
    std::shared_ptr<IVelaCallback> callback;
    std::vector<VelaRequestData> items;
};

class DeliveryQueues {
public:
    static constexpr size_t kMaxQueued = 64;  // per receiving process
    static constexpr std::chrono::seconds kIdleLife{10};
    using Deliver = std::function<void(const Delivery&)>;

    explicit DeliveryQueues(Deliver deliver);
    ~DeliveryQueues();  // drops what is still queued and joins the threads
    DeliveryQueues(const DeliveryQueues&) = delete;
    DeliveryQueues& operator=(const DeliveryQueues&) = delete;

    void post(pid_t receiver, Delivery delivery);
    // Blocks until everything posted so far has been delivered (or has failed). Not from a
    // delivery, and not with a receiver that never answers.
    void drain();
    size_t pending() const;

private:
    struct Queue {
        uint64_t id = 0;  // tells a queue from a later one for the same pid
        std::deque<Delivery> waiting;
        bool busy = false;  // a delivery of this queue is in flight
        std::chrono::steady_clock::time_point lastUsed;
        std::thread thread;
    };
    void run(pid_t receiver, uint64_t id);
    // Makes room in a full queue for `delivery`; false when it was merged into what waits.
    bool makeRoomLocked(pid_t receiver, Queue& queue, Delivery& delivery);
    bool idleLocked() const;

    const Deliver mDeliver;
    mutable std::mutex mLock;
    std::condition_variable mWake;  // work was queued, or a thread is to leave
    std::condition_variable mIdle;
    std::map<pid_t, Queue> mQueues;
    uint64_t mNextId = 1;
    bool mStopping = false;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
