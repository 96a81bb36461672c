// How the service describes what it holds: the one-line description of a request (the log and
// the history use it), the tables of the diagnostic dumps, and the names on the timeline.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ServiceState.h"
#include "TraceWriter.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// "event", "control", ...
const char* requestKindName(int32_t kind);

// "handle 3 event 0 (ACTION_LAUNCH) pkg none identity none pid 12 until released, 6 resources"
std::string describeRequest(const ServiceState& state, const Request& request);

// The lines of one diagnostic dump (a code from the protocol's dump range), header first.
std::vector<std::string> dumpLines(const ServiceState& state, int32_t code,
                                   size_t callbacksWaiting);

// The timeline's words: a request's slice title and arguments, a resource's counter track.
std::string requestTitle(const ServiceState& state, const Request& request);
TraceWriter::Args requestArgs(const Request& request);
std::string traceTrack(const ServiceState& state, const ResourceKey& key);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
