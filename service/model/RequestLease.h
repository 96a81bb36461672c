// Leases: the configuration may cap how long a request made "until released" holds, overall and
// per resource, so that a holder that forgets to release (and lives on) cannot pin a value for
// ever. Off unless configured.
#pragma once

#include <cstdint>
#include <optional>

#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// The shortest cap among the overall one and those of the resources `request` holds; none for
// a timed request, or when nothing caps it.
std::optional<int64_t> leaseFor(const ScenarioConfig& config, const Request& request);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
