// Internals shared by the Pax event functions: the unit's own link to the service (independent
// of the halclient one) and the guarded transaction every exported function goes through.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_ibinder.h>
#include <android/log.h>

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "PaxEvent.h"
#include "client_log.h"
#include "vela_protocol.h"

namespace pax {

using ::aidl::vendor::norvo::hardware::vela::IVela;
using ::aidl::vendor::norvo::hardware::vela::VelaRequestData;
using ::aidl::vendor::norvo::hardware::vela::VelaRequestParcel;
namespace protocol = ::aidl::vendor::norvo::hardware::vela::protocol;

extern std::shared_timed_mutex g_pax_hal_mutex;
extern std::shared_ptr<IVela> g_pax_hal;
extern AIBinder_DeathRecipient* g_pax_death_recipient;

// 0 when the unit holds a handle on return, -1 otherwise. Never waits for the service.
int32_t pax_get_vela_hal_and_link_to_death();
// Runs on a binder thread when the service goes away.
void pax_vela_hal_died(void* cookie);

// Connects, logging the failure the way every exported function reports it. True when connected.
bool paxConnect();

// Drops the handle after a failed transaction; `name` is the function named in the log.
void paxDropHal(const char* name);

// kNotConnected: connecting failed (and said so); kNoHandle: the handle went away between
// connecting and the call.
enum class PaxCallResult { kNotConnected, kNoHandle, kFailed, kOk };

// Runs `call(IVela&)` (returning a binder status) with the handle held shared, and applies the
// unit's failure rule to its status. Connects first, as every exported function does.
template <typename Call>
PaxCallResult paxCall(const char* name, Call&& call) {
    if (!paxConnect()) return PaxCallResult::kNotConnected;
    bool ok;
    {
        std::shared_lock<std::shared_timed_mutex> lock(g_pax_hal_mutex);
        if (!g_pax_hal) return PaxCallResult::kNoHandle;
        ::ndk::ScopedAStatus status = std::forward<Call>(call)(*g_pax_hal);
        ok = status.isOk();
    }
    if (ok) return PaxCallResult::kOk;
    // The lock is never upgraded: the shared hold ends before the handle is dropped.
    paxDropHal(name);
    return PaxCallResult::kFailed;
}

// Connects and runs one transaction whose integer answer is the function's result: the answer
// when the status is ok, -1 otherwise.
template <typename Call>
int32_t paxIntCall(const char* name, Call&& call) {
    int32_t out = -1;
    PaxCallResult result =
            paxCall(name, [&](IVela& hal) { return std::forward<Call>(call)(hal, &out); });
    return result == PaxCallResult::kOk ? out : -1;
}

}  // namespace pax
