#include "log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>

int64_t monotonicMillis() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void hostbinderLog(const char* format, ...) {
    char line[512];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    // Never through liblog, so that the library's own log stays exactly what it is.
    fprintf(stderr, "hostbinder[%d]: %s\n", getpid(), line);
}
