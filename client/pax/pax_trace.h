// Instant markers in the system trace.
#pragma once

namespace pax {

// When tracing is on, formats the marker into a 1024-byte buffer (longer text is cut) and
// emits it as a section that ends at once.
void paxTraceInstant(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace pax
