// The process-wide connection to the resource-control service shared by every velaHalclient
// function: the proxy, the lock that guards it, and its death link.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_auto_utils.h>

#include <memory>
#include <shared_mutex>

#include "vela_protocol.h"

namespace velaHalclient {

using ::aidl::vendor::norvo::hardware::vela::IVela;
namespace protocol = ::aidl::vendor::norvo::hardware::vela::protocol;

// Empty while not connected. Read under halLock held shared for the whole use of the proxy;
// replaced or cleared only with halLock held exclusively.
extern std::shared_ptr<IVela> g_vela_hal;
extern std::shared_timed_mutex halLock;
// Linked to the current proxy's binder; made anew at every connection.
extern ndk::ScopedAIBinder_DeathRecipient deathRecipient;

// Connects g_vela_hal unless it is connected already. Blocks while a declared service is down.
void get_vela_hal_and_link_to_death();

// Runs on a binder thread when the service dies; `cookie` is the raw proxy and is not used.
void onVelaHalDied(void* cookie);

// Clears g_vela_hal (whatever proxy it holds now) so that the next call reconnects.
void dropVelaHal();

}  // namespace velaHalclient
