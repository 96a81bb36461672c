// A moment as people and log tools read it: ISO 8601 in UTC, "2026-11-24T02:31:05.123Z".
#pragma once

#include <cstdint>
#include <string>

namespace aidl::vendor::norvo::hardware::vela::impl {

// `fractionDigits` is 3 (milliseconds) or 6 (microseconds); the time is truncated, not rounded,
// so that the text never names a moment later than the one it stands for.
std::string utcText(int64_t unixUs, int fractionDigits);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
