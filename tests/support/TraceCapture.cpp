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
    std::vector<std::string> events;
    std::atomic<uint64_t> tags{0};
};

TraceState& state() {
    // Never destroyed: the code under test may trace from binder threads during exit.
    static TraceState* s = new TraceState;
    return *s;
}

void record(const char* event) {
    std::lock_guard<std::mutex> lock(state().mutex);
    state().events.emplace_back(event != nullptr ? event : "");
}

}  // namespace

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

std::vector<std::string> TraceCapture::events() {
    std::lock_guard<std::mutex> lock(state().mutex);
    return state().events;
}

void TraceCapture::clear() {
    std::lock_guard<std::mutex> lock(state().mutex);
    state().events.clear();
}

}  // namespace paxtest

extern "C" __attribute__((visibility("default"))) uint64_t atrace_get_enabled_tags() {
    return paxtest::state().tags.load();
}

extern "C" __attribute__((visibility("default"))) void atrace_begin_body(const char* name) {
    paxtest::record(name);
}

extern "C" __attribute__((visibility("default"))) void atrace_end_body() {
    paxtest::record("end");
}
