// The properties the reference service serves itself, and which keys a client may write. velactl
// reads the same rule, so that a key the service would refuse is refused where it was typed.
#pragma once

#include <string>

#include "ServiceLimits.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// Always "1": the version of the service's behaviour, for a client that wants to know.
inline constexpr char kVersionProperty[] = "ro.vendor.vela.version";
// "1" while the history is recording, else "0".
inline constexpr char kHistoryProperty[] = "vendor.vela.history";
// How many requests are active now.
inline constexpr char kActiveRequestsProperty[] = "vendor.vela.active_requests";
// The power mode last set; writable like any other property.
inline constexpr char kPowerModeProperty[] = "vendor.vela.power_mode";

// Keys starting "ro." and the ones the service computes cannot be written.
inline bool isWritablePropertyKey(const std::string& key) {
    return !key.empty() && key.size() <= ServiceLimits::kMaxPropertyKey &&
           key.rfind("ro.", 0) != 0 && key != kHistoryProperty && key != kActiveRequestsProperty;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
