#include "WallClock.h"

#include <time.h>

#include <chrono>
#include <cstdio>

namespace velactl {

WallClock WallClock::now() {
    WallClock clock;
    clock.unixMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
    const time_t seconds = static_cast<time_t>(clock.unixMs / 1000);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    char text[64];
    snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
             utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
             static_cast<int>(clock.unixMs % 1000));
    clock.iso = text;
    return clock;
}

void WallClock::stamp(Json::Value* object) const {
    (*object)["time"] = iso;
    (*object)["time_ms"] = static_cast<Json::Int64>(unixMs);
}

}  // namespace velactl
