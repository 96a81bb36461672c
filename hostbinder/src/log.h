// The runtime's clock and its log: the two things every layer of it uses.
#pragma once

#include <cstdint>

// Milliseconds on the monotonic clock; the time base of the runtime's deadlines.
int64_t monotonicMillis();
// Writes one line to stderr, prefixed with the runtime's name.
void hostbinderLog(const char* format, ...) __attribute__((format(printf, 1, 2)));
