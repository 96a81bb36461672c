#include "RequestLease.h"

#include <algorithm>

namespace aidl::vendor::norvo::hardware::vela::impl {

std::optional<int64_t> leaseFor(const ScenarioConfig& config, const Request& request) {
    if (request.durationMs > 0) return std::nullopt;
    std::optional<int64_t> lease = config.leaseMs();
    for (const auto& [key, value] : request.resources) {
        const ResourceInfo* info = config.infoFor(key);
        if (info == nullptr || !info->leaseMs) continue;
        lease = lease ? std::min(*lease, *info->leaseMs) : *info->leaseMs;
    }
    return lease;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
