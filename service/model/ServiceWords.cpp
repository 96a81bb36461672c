#include "ServiceWords.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <sstream>

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

const char* requestKindName(int32_t kind) {
    switch (kind) {
        case kKindControl:
            return "control";
        case kKindSaControl:
            return "SA control";
        case kKindEvent:
            return "event";
        case kKindPlatform:
            return "platform";
        default:
            return "request";
    }
}

std::string orNone(const std::string& text) {
    return text.empty() ? "none" : text;
}

std::string counted(size_t n, const char* noun) {
    return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

int64_t msLeft(ServiceClock::time_point deadline, ServiceClock::time_point now) {
    return std::max<int64_t>(
            0, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count());
}

std::string timeOfDay(std::chrono::system_clock::time_point when) {
    const time_t seconds = std::chrono::system_clock::to_time_t(when);
    const auto ms =
            std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()) % 1000;
    struct tm parts {};
    localtime_r(&seconds, &parts);
    char text[32];
    snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
             static_cast<int>(ms.count()));
    return text;
}

const std::string* actionOf(const ServiceState& state, const Request& request) {
    if (!request.event) return nullptr;
    const Scenario* scenario = state.config.scenarioFor(*request.event);
    return scenario != nullptr && !scenario->action.empty() ? &scenario->action : nullptr;
}

std::string requestWhat(const ServiceState& state, const Request& request) {
    std::string what = requestKindName(request.kind);
    if (request.event) {
        what += " " + std::to_string(*request.event);
        if (const std::string* action = actionOf(state, request)) what += " (" + *action + ")";
    }
    return what;
}

std::string describeRequest(const ServiceState& state, const Request& request) {
    std::ostringstream text;
    text << "handle " << request.handle << " " << requestWhat(state, request);
    text << " pkg " << orNone(request.package) << " identity " << orNone(request.identity)
         << " pid " << request.pid;
    if (request.durationMs > 0) {
        text << " for " << request.durationMs << " ms";
    } else {
        text << " until released";
    }
    text << ", " << counted(request.resources.size(), "resource");
    return text.str();
}

std::string holderWords(const ServiceState& state, const Request& request) {
    std::string words = "request " + std::to_string(request.handle) + " " +
                        requestWhat(state, request) + " pid " + std::to_string(request.pid);
    if (!request.package.empty()) words += " pkg " + request.package;
    return words;
}

std::string requestTitle(const ServiceState& state, const Request& request) {
    if (const std::string* action = actionOf(state, request)) return *action;
    if (request.event) return "event " + std::to_string(*request.event);
    return requestKindName(request.kind);
}

TraceWriter::Args requestArgs(const Request& request) {
    TraceWriter::Args args{{"handle", std::to_string(request.handle)},
                           {"package", orNone(request.package)},
                           {"identity", orNone(request.identity)},
                           {"pid", std::to_string(request.pid)},
                           {"resources", std::to_string(request.resources.size())}};
    if (request.durationMs > 0)
        args.emplace_back("duration_ms", std::to_string(request.durationMs));
    return args;
}

std::string traceTrack(const ServiceState& state, const ResourceKey& key) {
    return state.config.shortNameOf(key);
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
