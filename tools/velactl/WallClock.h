// The wall-clock time printed on lines that report what the service did (listen, top), so that
// they can be lined up with a log or a trace: ISO 8601 in UTC with milliseconds for people, and
// milliseconds since the epoch for programs.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

namespace velactl {

struct WallClock {
    int64_t unixMs = 0;
    std::string iso;  // "2026-11-24T02:31:05.123Z"

    static WallClock now();
    // Adds "time" (the ISO text) and "time_ms" (the number) to a JSON object.
    void stamp(Json::Value* object) const;
};

}  // namespace velactl
