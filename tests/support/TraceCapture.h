// Observes the system-trace calls of the code under test. Linking the object library
// `pax_trace_capture` into a test program defines atrace_get_enabled_tags, atrace_begin_body
// and atrace_end_body in the executable, where they take precedence over libcutils (and,
// exported with -rdynamic, reach shared objects too); this class scripts the enabled tags and
// reads back what was traced.
//
//   paxtest::TraceCapture trace(1);   // tag bit 0 enabled, events cleared
//   ... PaxEventAcquire(...) ...
//   EXPECT_EQ(trace.events(), (std::vector<std::string>{"PaxEventAcquire ...", "end"}));
//
// Without a TraceCapture alive the seam reports no tags enabled (as the host's libcutils does).
// The state is process-wide and thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace paxtest {

class TraceCapture {
public:
    // Clears the recorded events and sets the enabled tags.
    explicit TraceCapture(uint64_t enabledTags = 1);
    // Back to no tags enabled, events cleared.
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    static void setEnabledTags(uint64_t tags);
    static void clear();
    // In the order they happened: a begin as its section name, an end as "end".
    static std::vector<std::string> events();
};

}  // namespace paxtest
