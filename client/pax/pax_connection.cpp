// The Pax unit's own link to the service: lazy, non-blocking connection, death notification
// and dropping the handle after a failure.
#include <android/binder_manager.h>

#include "pax.h"

namespace pax {

// The lock is defined before the handle it guards, so that the handle is destroyed first at exit.
std::shared_timed_mutex g_pax_hal_mutex;
std::shared_ptr<IVela> g_pax_hal;
AIBinder_DeathRecipient* g_pax_death_recipient = nullptr;

namespace {

void releaseHal() {
    std::shared_ptr<IVela> released;
    std::unique_lock<std::shared_timed_mutex> lock(g_pax_hal_mutex);
    released = std::move(g_pax_hal);
    // The last reference goes after the lock: releasing a proxy calls into the runtime.
    lock.unlock();
}

// Destroyed before the handle. A death notification may still be arriving on a binder thread
// at exit, so the handle is released under the lock; a late handler then only finds it empty.
struct ReleaseHalAtExit {
    ~ReleaseHalAtExit() { releaseHal(); }
} releaseHalAtExit;

}  // namespace

int32_t pax_get_vela_hal_and_link_to_death() {
    {
        std::shared_lock<std::shared_timed_mutex> lock(g_pax_hal_mutex);
        if (g_pax_hal) return 0;
    }

    // Released only after the lock: destroying a proxy or a recipient calls into the runtime.
    std::shared_ptr<IVela> previous;
    std::shared_ptr<IVela> unlinked;
    AIBinder_DeathRecipient* superseded = nullptr;
    int32_t result = -1;
    {
        // Two callers that both found no handle both connect; the later handle wins.
        std::unique_lock<std::shared_timed_mutex> lock(g_pax_hal_mutex);
        if (!AServiceManager_isDeclared(protocol::instanceName().c_str())) {
            PAX_LOG(ERROR, "Vela is not declared, AServiceManager_isDeclared:0");
            return -1;
        }
        previous = std::move(g_pax_hal);
        g_pax_hal = IVela::fromBinder(
                ::ndk::SpAIBinder(AServiceManager_checkService(protocol::instanceName().c_str())));
        if (!g_pax_hal) {
            PAX_LOG(ERROR, "Vela HAL Service not found");
        } else {
            // The superseded recipient is freed rather than leaked once per reconnection.
            superseded = g_pax_death_recipient;
            g_pax_death_recipient = AIBinder_DeathRecipient_new(pax_vela_hal_died);
            binder_status_t linked = AIBinder_linkToDeath(g_pax_hal->asBinder().get(),
                                                          g_pax_death_recipient, g_pax_hal.get());
            if (linked != STATUS_OK) {
                unlinked = std::move(g_pax_hal);
                PAX_LOG(ERROR, "Unable to link to g_pax_hal death notifications!");
            } else {
                result = 0;
            }
        }
    }
    if (superseded != nullptr) AIBinder_DeathRecipient_delete(superseded);
    return result;
}

void pax_vela_hal_died(void* /*cookie*/) {
    // Logged once the handle is gone, so that whoever sees the line also sees no handle.
    releaseHal();
    PAX_LOG(ERROR, "Vela HAL Service died");
}

bool paxConnect() {
    if (pax_get_vela_hal_and_link_to_death() == 0) return true;
    PAX_LOG(ERROR, "pax_get_vela_hal_and_link_to_death error:%d", -1);
    return false;
}

void paxDropHal(const char* name) {
    PAX_LOG(ERROR, "%s() failed : vela HAL service not available", name);
    releaseHal();
}

}  // namespace pax
