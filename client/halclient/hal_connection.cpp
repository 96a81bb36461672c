#include "hal_connection.h"

#include <android/binder_manager.h>

#include <mutex>
#include <utility>

#include "client_log.h"

namespace velaHalclient {

// The lock is defined before the proxy it guards, so that it outlives the proxy at exit.
std::shared_timed_mutex halLock;
std::shared_ptr<IVela> g_vela_hal;
ndk::ScopedAIBinder_DeathRecipient deathRecipient;

namespace {
// Destroyed before the proxy. A death notification may still arrive on a binder thread while
// the process exits, so the proxy is released under the lock; a late handler finds it empty.
struct ReleaseHalAtExit {
    ~ReleaseHalAtExit() { dropVelaHal(); }
} releaseHalAtExit;
}  // namespace

void get_vela_hal_and_link_to_death() {
    {
        std::shared_lock<std::shared_timed_mutex> shared(halLock);
        if (g_vela_hal != nullptr) return;
    }

    // Declared before the lock so that it is freed after the lock is released: freeing a
    // recipient may have to wait for its callback, which itself waits for halLock.
    ndk::ScopedAIBinder_DeathRecipient superseded;
    std::unique_lock<std::shared_timed_mutex> exclusive(halLock);
    // The lock was dropped in between, so another thread may have connected meanwhile; that
    // case is reported with the same line as an undeclared service.
    const bool connected = g_vela_hal != nullptr;
    const bool declared = AServiceManager_isDeclared(protocol::instanceName().c_str());
    if (connected || !declared) {
        VELA_LOG(ERROR, "Vela is not declared, AServiceManager_isDeclared:%d", declared ? 1 : 0);
        return;
    }

    {
        ndk::SpAIBinder binder(AServiceManager_waitForService(protocol::instanceName().c_str()));
        g_vela_hal = IVela::fromBinder(binder);
    }
    if (g_vela_hal == nullptr) {
        VELA_LOG(ERROR, "Vela HAL Service not found");
        return;
    }

    // Free the previous recipient rather than keep one per reconnection: it may still be
    // linked to a live binder and would report a later death twice.
    superseded = std::move(deathRecipient);
    deathRecipient = ndk::ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient_new(onVelaHalDied));
    binder_status_t linked = AIBinder_linkToDeath(g_vela_hal->asBinder().get(),
                                                  deathRecipient.get(), g_vela_hal.get());
    if (linked != STATUS_OK) {
        std::shared_ptr<IVela> unlinked = std::move(g_vela_hal);
        VELA_LOG(ERROR, "Unable to link to g_vela_hal death notifications!");
        exclusive.unlock();
    }
}

void onVelaHalDied(void* /*cookie*/) {
    // Logged once the proxy is gone, so that whoever sees the line also sees no proxy.
    dropVelaHal();
    VELA_LOG(ERROR, "Vela HAL Service died");
}

void dropVelaHal() {
    std::shared_ptr<IVela> dropped;
    std::unique_lock<std::shared_timed_mutex> exclusive(halLock);
    dropped = std::move(g_vela_hal);
    // The last reference goes after the lock: releasing a proxy calls into the runtime.
    exclusive.unlock();
}

}  // namespace velaHalclient
