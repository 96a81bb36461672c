// A stand-in for a library that traces through libcutils: it is linked against libcutils
// and must still land in the test program's trace seam.
#include <cstdint>

extern "C" uint64_t atrace_get_enabled_tags();
extern "C" void atrace_begin_body(const char* name);
extern "C" void atrace_end_body();

extern "C" __attribute__((visibility("default"))) void paxtest_trace_probe(const char* name) {
    if (atrace_get_enabled_tags() & 1) {
        atrace_begin_body(name);
        atrace_end_body();
    }
}
