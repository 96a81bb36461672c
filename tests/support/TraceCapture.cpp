// The trace seam. <cutils/trace.h> is deliberately not included: depending on its
// configuration it declares atrace_get_enabled_tags static inline, which would clash with the
// out-of-line definition that the code under test calls.
#include "TraceCapture.h"

#include <atomic>
#include <mutex>

namespace paxtest {
namespace {

struct TraceState {
    std::mutex mutex;
    std::vector<TraceEvent> events;
    std::atomic<uint64_t> tags{0};
};

TraceState& state() {
    // Never destroyed: the code under test may trace from binder threads during exit.
    static TraceState* s = new TraceState;
    return *s;
}

void record(TraceEvent::Kind kind, const char* name) {
    TraceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.events.push_back(TraceEvent{kind, name != nullptr ? name : ""});
}

}  // namespace

std::ostream& operator<<(std::ostream& os, const TraceEvent& event) {
    if (event.kind == TraceEvent::kBegin) return os << "begin(\"" << event.name << "\")";
    return os << "end";
}

TraceCapture::TraceCapture(uint64_t enabledTags) {
    clear();
    setEnabledTags(enabledTags);
}

TraceCapture::~TraceCapture() {
    setEnabledTags(0);
    clear();
}

void TraceCapture::setEnabledTags(uint64_t tags) {
    state().tags.store(tags);
}

std::vector<TraceEvent> TraceCapture::events() {
    TraceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.events;
}

std::vector<std::string> TraceCapture::beginNames() {
    std::vector<std::string> names;
    for (const auto& event : events()) {
        if (event.kind == TraceEvent::kBegin) names.push_back(event.name);
    }
    return names;
}

void TraceCapture::clear() {
    TraceState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.events.clear();
}

}  // namespace paxtest

extern "C" __attribute__((visibility("default"))) uint64_t atrace_get_enabled_tags() {
    return paxtest::state().tags.load();
}

extern "C" __attribute__((visibility("default"))) void atrace_begin_body(const char* name) {
    paxtest::record(paxtest::TraceEvent::kBegin, name);
}

extern "C" __attribute__((visibility("default"))) void atrace_end_body() {
    paxtest::record(paxtest::TraceEvent::kEnd, nullptr);
}
