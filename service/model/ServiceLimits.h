// Limits that keep one client from growing the service without bound. The tools check the same
// limits before they send, so that a refusal is explained where the mistake was typed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace aidl::vendor::norvo::hardware::vela::impl {

struct ServiceLimits {
    static constexpr size_t kMaxItems = 256;
    static constexpr size_t kMaxText = 1024;
    static constexpr size_t kMaxRequests = 4096;
    static constexpr size_t kMaxListeners = 1024;
    static constexpr size_t kMaxRules = 1024;
    static constexpr int64_t kMaxDurationMs = 7LL * 24 * 3600 * 1000;
    // propertyGet answers must fit the clients' 256-byte buffer, terminator included.
    static constexpr size_t kMaxPropertyValue = 255;
    static constexpr size_t kMaxPropertyKey = 128;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
