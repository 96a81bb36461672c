// Listeners registered with the service, kept here so that their callback clients live as
// long as the registration.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/VelaRequestParcel.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vela_callback_client.h"

namespace velaHalclient {

struct VelaCallbackGroup {
    std::vector<int32_t> ids;        // listeners by opcode (or thermal subsystem)
    std::vector<std::string> paths;  // listeners by path
    int32_t handle = -1;
    std::shared_ptr<VelaCallbackClient> client;
};

// In order of registration. Lock order: halLock (shared) before listening_callback_mutex;
// halLock is never taken exclusively while this mutex is held.
extern std::mutex listening_callback_mutex;
extern std::vector<VelaCallbackGroup> listening_callbacks;

// Fills the request and the new group's key (its ids, or its paths for a listener by path).
using PrepareListener =
        std::function<void(::aidl::vendor::norvo::hardware::vela::VelaRequestParcel& parcel,
                           VelaCallbackGroup& candidate)>;

// Registers a resource listener for `receiver` unless a group with the same key exists
// already; the key is the ids for a receiver by opcode and the paths for one by path. The
// client is only made once the key is known to be new. Returns the service's handle, or -1.
int registerListener(const char* entryLine, const char* failName, const PrepareListener& prepare,
                     const std::shared_ptr<IClientCallback>& receiver);
int registerListener(const char* entryLine, const char* failName, const PrepareListener& prepare,
                     const std::shared_ptr<IClientCallbackByPath>& receiver);

}  // namespace velaHalclient
