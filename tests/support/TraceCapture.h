// Observes the system-trace calls of the code under test. Linking the object library
// `pax_trace_capture` into a test program defines atrace_get_enabled_tags, atrace_begin_body
// and atrace_end_body in the executable, where they take precedence over libcutils; the
// functions below script the enabled tags and read back what was traced.
//
//   paxtest::TraceCapture trace(1);   // tag bit 0 enabled, events cleared
//   ... PaxEventAcquire(...) ...
//   EXPECT_EQ(trace.events(), (std::vector<paxtest::TraceEvent>{
//           {paxtest::TraceEvent::kBegin, "PaxEventAcquire ..."}, {paxtest::TraceEvent::kEnd,
//           ""}}));
//
// Without a TraceCapture alive the seam reports no tags enabled (as the host's libcutils does)
// and still records whatever is traced. The state is process-wide and thread-safe.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace paxtest {

struct TraceEvent {
    enum Kind { kBegin, kEnd };
    Kind kind = kBegin;
    std::string name;  // the section name of a begin; empty for an end

    bool operator==(const TraceEvent& o) const { return kind == o.kind && name == o.name; }
};
std::ostream& operator<<(std::ostream& os, const TraceEvent& event);

class TraceCapture {
public:
    // Clears the recorded events and sets the enabled tags.
    explicit TraceCapture(uint64_t enabledTags = 1);
    // Back to no tags enabled, events cleared.
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    static void setEnabledTags(uint64_t tags);
    // Begin and end events in the order they happened.
    static std::vector<TraceEvent> events();
    // The names of the begin events only.
    static std::vector<std::string> beginNames();
    static void clear();
};

}  // namespace paxtest
