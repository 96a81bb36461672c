// Resource and thermal listening by opcode.
#include <utility>

#include "guarded_call.h"
#include "listening_registry.h"
#include "parcels.h"
#include "velaHalclient.h"

namespace velaHalclient {

int velaResListeningRegister(ResourceList& resources, int param6,
                             const std::shared_ptr<IClientCallback>& callback) {
    // The failure line names the map registration; log readers know it by that name.
    return registerListener(
            "velaResListeningRegister", "vela_res_listening_register_map",
            [&](VelaRequestParcel& parcel, VelaCallbackGroup& candidate) {
                parcel.param6 = param6;
                parcel.requestDatas = buildRequestDatas(resources);
                candidate.ids = idsOf(resources);
            },
            callback);
}

int velaResListeningUnRegister(int handle) {
    int32_t result = -1;
    // Destroyed after the registry mutex is released: the last reference to a client takes the
    // caller's receiver with it, and the caller's destructor must not run under our lock.
    std::vector<VelaCallbackGroup> removed;
    guardedCall(
            "vela client velaResListeningUnRegister", "velaResListeningUnRegister",
            [&](IVela& hal) -> CallStatus { return hal.resListeningUnregister(handle, &result); },
            // The group goes whatever the service answered: a dead service forgot it anyway.
            [&](bool /*ok*/) {
                std::lock_guard<std::mutex> lock(listening_callback_mutex);
                for (auto it = listening_callbacks.begin(); it != listening_callbacks.end();) {
                    if (it->handle == handle) {
                        VELA_LOG(INFO, "a callback has been unregistered to Vela HAL handle %d",
                                 handle);
                        removed.push_back(std::move(*it));
                        it = listening_callbacks.erase(it);
                    } else {
                        ++it;
                    }
                }
                if (removed.empty()) VELA_LOG(ERROR, "The callback was not registered before");
            });
    return result;
}

int velaThermalListeningRegister(const std::vector<int32_t>& ids,
                                 const std::shared_ptr<IClientCallback>& callback) {
    int32_t handle = -1;
    std::shared_ptr<VelaCallbackClient> client;
    guardedCall(
            "velaThermalListeningRegister", "velaThermalListeningRegister",
            [&](IVela& hal) -> CallStatus {
                client = ndk::SharedRefBase::make<VelaCallbackClient>(callback, true, false);
                return hal.thermalListeningRegister(ids, client, &handle);
            },
            [&](bool ok) {
                if (!ok) return;
                // Taken although thermal groups are never checked for duplicates: the
                // registry is shared with the resource listeners running on other threads.
                std::lock_guard<std::mutex> lock(listening_callback_mutex);
                listening_callbacks.push_back(VelaCallbackGroup{ids, {}, handle, client});
                VELA_LOG(INFO, "subsys's callback has been registered to Vela HAL");
            });
    return handle;
}

int velaThermalListeningUnregister(int handle) {
    int32_t result = -1;
    guardedCall(
            "vela client velaThermalListeningUnregister", "velaThermalListeningUnregister",
            [&](IVela& hal) -> CallStatus {
                return hal.thermalListeningUnregister(handle, &result);
            },
            [](bool ok) {
                if (ok) VELA_LOG(INFO, "subsys's callback has been unRegistered to Vela HAL");
            });
    return result;
}

}  // namespace velaHalclient
