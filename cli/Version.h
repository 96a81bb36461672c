// The version both programs print for --version; the build defines VELA_VERSION from the
// project's own.
#pragma once

#ifndef VELA_VERSION
#define VELA_VERSION "unknown"
#endif

namespace vela_version {
inline constexpr const char kVersion[] = VELA_VERSION;
}  // namespace vela_version
