#include "pax_trace.h"

#include <cutils/trace.h>

#include <cstdarg>
#include <cstdio>

// The header only declares these inside its inline helpers; calling the out-of-line bodies
// directly keeps one call per step, which is also what lets a test binary observe them.
extern "C" void atrace_begin_body(const char* name);
extern "C" void atrace_end_body();

namespace pax {

void paxTraceInstant(const char* format, ...) {
    // Checked first: callers are on request paths, and with tracing off the text is not needed.
    if ((atrace_get_enabled_tags() & ATRACE_TAG_ALWAYS) == 0) return;
    char name[1024] = {};
    va_list args;
    va_start(args, format);
    vsnprintf(name, sizeof(name), format, args);
    va_end(args);
    atrace_begin_body(name);
    atrace_end_body();
}

}  // namespace pax
