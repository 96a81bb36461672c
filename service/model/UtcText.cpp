#include "UtcText.h"

#include <time.h>

#include <cstdio>

namespace aidl::vendor::norvo::hardware::vela::impl {

std::string utcText(int64_t unixUs, int fractionDigits) {
    const time_t seconds = static_cast<time_t>(unixUs / 1000000);
    struct tm utc {};
    gmtime_r(&seconds, &utc);
    const bool micros = fractionDigits == 6;
    const int fraction = static_cast<int>(micros ? unixUs % 1000000 : unixUs % 1000000 / 1000);
    char text[64];
    snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%0*dZ", utc.tm_year + 1900,
             utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, micros ? 6 : 3,
             fraction);
    return text;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
