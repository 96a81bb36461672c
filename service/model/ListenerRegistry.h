// Listeners: registration with a death link to the client, unregistration, and delivery of
// what each listener is owed, on the delivery thread of the listener's process.
//
// Locking. Everything here runs under the service lock except the parts that must not:
// linking and unlinking a death recipient (the runtime may run a death notification meanwhile,
// which takes the link registry and then the service lock) and the callback into a client
// (a slow or dead client must not hold up the service). The link registry, a process-wide map
// from token to registry, is therefore always taken before the service lock, never under it.
#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "DeliveryQueues.h"
#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

class ListenerRegistry {
public:
    ListenerRegistry(ServiceState& state, std::mutex& lock);
    ~ListenerRegistry();  // stops deliveries and unlinks from every client first
    ListenerRegistry(const ListenerRegistry&) = delete;
    ListenerRegistry& operator=(const ListenerRegistry&) = delete;

    // Take the service lock themselves (see above).
    int32_t add(Listener listener, const char* what);
    int32_t remove(int32_t handle, bool thermal, const char* what);

    // Queues, for every resource listener, the changes it listens to.
    void notifyLocked(const std::vector<Change>& changes);
    // Queues, for every thermal listener, the levels of the subsystems it listens to.
    void notifyThermalLocked(const std::vector<VelaRequestData>& levels);
    // A request's one-shot answer (listener 0).
    void answerLocked(std::shared_ptr<IVelaCallback> callback, std::vector<VelaRequestData> items);

    // Blocks until every callback queued so far has been delivered (or has failed).
    void waitForDeliveries() { mDeliveries->drain(); }
    size_t pendingDeliveries() const { return mDeliveries->pending(); }

private:
    void deliver(const Delivery& delivery);
    void unlink(const std::shared_ptr<IVelaCallback>& callback, uint64_t link);
    static void forgetLink(uint64_t link);
    static void onClientDied(void* cookie);

    ServiceState& mState;
    std::mutex& mLock;
    ::ndk::ScopedAIBinder_DeathRecipient mDeathRecipient;
    // Its threads call deliver(), which uses everything above: stopped first.
    std::unique_ptr<DeliveryQueues> mDeliveries;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
