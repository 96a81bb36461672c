#include "listening_registry.h"

#include <type_traits>
#include <utility>

#include "guarded_call.h"
#include "parcels.h"

namespace velaHalclient {

std::mutex listening_callback_mutex;
std::vector<VelaCallbackGroup> listening_callbacks;

namespace {

bool isRegistered(const VelaCallbackGroup& candidate, bool byPath) {
    for (const VelaCallbackGroup& group : listening_callbacks) {
        if (byPath ? group.paths == candidate.paths : group.ids == candidate.ids) return true;
    }
    return false;
}

template <typename Receiver>
int registerFor(const char* entryLine, const char* failName, const PrepareListener& prepare,
                const std::shared_ptr<Receiver>& receiver) {
    constexpr bool byPath = std::is_same_v<Receiver, IClientCallbackByPath>;
    int32_t handle = -1;
    VelaCallbackGroup candidate;
    std::shared_ptr<VelaCallbackClient> client;
    // Held from the duplicate check until the group is stored, so that two threads registering
    // the same key cannot both pass the check. Declared after `client` so that a client nobody
    // keeps is destroyed only after the mutex is released.
    std::unique_lock<std::mutex> registry(listening_callback_mutex, std::defer_lock);
    guardedCall(
            entryLine, failName,
            [&](IVela& hal) -> CallStatus {
                VelaRequestParcel parcel{};
                prepare(parcel, candidate);
                registry.lock();
                if (isRegistered(candidate, byPath)) {
                    VELA_LOG(ERROR, "Same callback interface registered already");
                    return std::nullopt;
                }
                client = ndk::SharedRefBase::make<VelaCallbackClient>(receiver, true, false);
                return hal.resListeningRegister(parcel, client, &handle);
            },
            // Released before a failure drops the proxy: a registration waits for this mutex
            // while holding halLock shared, so dropping under it could deadlock.
            [&](bool ok) {
                if (ok) {
                    candidate.handle = handle;
                    candidate.client = client;
                    listening_callbacks.push_back(std::move(candidate));
                    VELA_LOG(INFO, "A callback has been registered to Vela HAL ");
                }
                registry.unlock();
            });
    return handle;
}

}  // namespace

int registerListener(const char* entryLine, const char* failName, const PrepareListener& prepare,
                     const std::shared_ptr<IClientCallback>& receiver) {
    return registerFor(entryLine, failName, prepare, receiver);
}

int registerListener(const char* entryLine, const char* failName, const PrepareListener& prepare,
                     const std::shared_ptr<IClientCallbackByPath>& receiver) {
    return registerFor(entryLine, failName, prepare, receiver);
}

}  // namespace velaHalclient
