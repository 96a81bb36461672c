#include "WallClock.h"

#include <chrono>

#include "UtcText.h"

namespace velactl {

WallClock WallClock::now() {
    WallClock clock;
    clock.unixMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
    clock.iso = aidl::vendor::norvo::hardware::vela::impl::utcText(clock.unixMs * 1000, 3);
    return clock;
}

void WallClock::stamp(Json::Value* object) const {
    (*object)["time"] = iso;
    (*object)["time_ms"] = static_cast<Json::Int64>(unixMs);
}

}  // namespace velactl
