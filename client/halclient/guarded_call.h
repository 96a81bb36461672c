// The one way every velaHalclient function talks to the service: log the entry, connect if
// needed, use the proxy only under halLock held shared (so a death notification cannot drop
// it mid-call), and drop the proxy after a failed call so that the next call reconnects.
#pragma once

#include <cstdint>
#include <optional>
#include <shared_mutex>

#include "client_log.h"
#include "hal_connection.h"

namespace velaHalclient {

// What a request hands back to guardedCall: the call's status, or nothing when it decided not
// to send.
using CallStatus = std::optional<ndk::ScopedAStatus>;

struct NoAfterCall {
    void operator()(bool /*ok*/) const {}
};

// `invoke(IVela&)` builds the parcel and makes the call with halLock held shared and returns
// its status; nothing more happens when there is no proxy or it sent nothing. `afterCall(ok)`
// runs once the shared hold is released and before a failure is logged and the proxy dropped,
// so it may take locks that a reconnection must not wait on.
template <typename Invoke, typename AfterCall = NoAfterCall>
void guardedCall(const char* entryLine, const char* failName, Invoke&& invoke,
                 AfterCall&& afterCall = AfterCall{}) noexcept {
    VELA_LOG(INFO, "%s", entryLine);
    get_vela_hal_and_link_to_death();
    // Allocation is all that can throw here; the caller sees it as a request that was not
    // sent rather than an exception leaving the library.
    try {
        CallStatus status;
        {
            std::shared_lock<std::shared_timed_mutex> shared(halLock);
            if (g_vela_hal == nullptr) return;
            status = invoke(*g_vela_hal);
        }
        if (!status.has_value()) return;
        const bool ok = status->isOk();
        afterCall(ok);
        if (ok) return;
    } catch (...) {
        return;
    }
    VELA_LOG(ERROR, "%s() failed: vela HAL service not available", failName);
    dropVelaHal();
}

// For the many operations whose answer is one int32 out-parameter: returns what the service
// left there, which stays -1 when nothing was sent or the call failed.
template <typename Invoke>
int32_t guardedIntCall(const char* entryLine, const char* failName, Invoke&& invoke) noexcept {
    int32_t result = -1;
    guardedCall(entryLine, failName,
                [&](IVela& hal) -> CallStatus { return invoke(hal, &result); });
    return result;
}

}  // namespace velaHalclient
