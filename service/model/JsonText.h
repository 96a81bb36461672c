// Pieces of JSON text written by hand, for the timeline writer, which formats its events
// itself so that no document tree is built while the service holds its lock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace aidl::vendor::norvo::hardware::vela::impl {

// Appends `text` as a JSON string literal, quotes included. Any byte sequence gives valid
// JSON: quotes, backslashes and control characters are escaped, and a byte that does not
// belong to well-formed UTF-8 becomes U+FFFD.
void appendJsonString(std::string* out, std::string_view text);

// A whole integer as the service's values write it: decimal with an optional '-', or
// hexadecimal after "0x". Nothing when the text is anything else or does not fit.
std::optional<int64_t> parseIntegerValue(std::string_view text);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
