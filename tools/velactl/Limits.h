// The ranges velactl checks before it sends anything, from the limits the service documents:
// a value it would refuse or quietly cut is refused here, with the reason.
#pragma once

#include "NumberOptions.h"
#include "ServiceLimits.h"
#include "ServiceProperties.h"

namespace velactl {

using aidl::vendor::norvo::hardware::vela::impl::ServiceLimits;

inline constexpr Range kDurationMs{0, ServiceLimits::kMaxDurationMs,
                                   "0 (until released) to 604800000 ms (7 days, the longest the "
                                   "service holds a request)"};
static_assert(ServiceLimits::kMaxDurationMs == 604800000, "say the new limit in kDurationMs");
inline constexpr Range kTimeoutMs{0, INT32_MAX, "0 to 2147483647 ms"};
inline constexpr Range kHandle{1, INT32_MAX, "a handle velactl printed (1 or more)"};

}  // namespace velactl
