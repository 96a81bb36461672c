// The words the service describes what it holds with, in the log, the history, the dump tables
// and the timeline alike: a request's kind and action, its one-line description, "none" and
// counted nouns, the time left, and the names on the timeline.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "ServiceState.h"
#include "TraceWriter.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// "event", "control", ...
const char* requestKindName(int32_t kind);

// The small words every table and log line uses: "none" for an empty package or identity,
// "1 resource" / "2 resources", and the whole milliseconds from `now` to a deadline (never
// below 0: an expiry that is due shows as 0 until the timer has run).
std::string orNone(const std::string& text);
std::string counted(size_t n, const char* noun);
int64_t msLeft(ServiceClock::time_point deadline, ServiceClock::time_point now);
// The local time of day of a moment, to the millisecond: "14:03:07.250".
std::string timeOfDay(std::chrono::system_clock::time_point when);

// The action configured for a request's event, or null (no event, or none configured).
const std::string* actionOf(const ServiceState& state, const Request& request);
// "event 0 (ACTION_LAUNCH)", "event 5" when it has no action, else the kind: "control".
std::string requestWhat(const ServiceState& state, const Request& request);

// "handle 3 event 0 (ACTION_LAUNCH) pkg none identity none pid 12 until released, 6 resources"
std::string describeRequest(const ServiceState& state, const Request& request);

// Who holds a request, for the change log: "request 3 event 0 (ACTION_LAUNCH) pid 12 pkg x".
std::string holderWords(const ServiceState& state, const Request& request);

// The timeline's words: a request's slice title and arguments, a resource's counter track.
std::string requestTitle(const ServiceState& state, const Request& request);
TraceWriter::Args requestArgs(const Request& request);
std::string traceTrack(const ServiceState& state, const ResourceKey& key);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
