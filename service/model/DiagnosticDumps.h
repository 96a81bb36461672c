// The diagnostic dumps a client asks for by code: lines the service writes to its own log.
// Where a dump shows what a dumpsys table shows, its lines are that table's, so that the log and
// dumpsys never tell a reader two different stories.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// The lines of one diagnostic dump (a code from the protocol's dump range), titles unindented
// and rows under them. Needs the service lock.
std::vector<std::string> dumpLines(const ServiceState& state, int32_t code,
                                   size_t callbacksWaiting);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
