#include "ServiceDump.h"

#include <algorithm>
#include <chrono>
#include <map>
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

std::vector<std::string> dumpLines(const ServiceState& state, int32_t code,
                                   size_t callbacksWaiting) {
    std::vector<std::string> lines;
    auto add = [&lines](const std::string& line) { lines.push_back("  " + line); };
    const auto now = ServiceClock::now();
    auto withName = [&state](const ResourceKey& key) { return state.labelOf(key); };

    switch (code) {
        case kDumpToDoQueue:
            lines.push_back("to-do queue:");
            add("callbacks waiting: " + std::to_string(callbacksWaiting));
            for (const auto& [handle, request] : state.requests) {
                if (request.deadline) {
                    add("expire handle " + std::to_string(handle) + " in " +
                        std::to_string(msLeft(*request.deadline, now)) + " ms");
                }
            }
            break;
        case kDumpRunMap:
            lines.push_back("run map (" + counted(state.requests.size(), "request") + ", " +
                            counted(state.rules.size(), "rule") + "):");
            for (const auto& [handle, request] : state.requests) {
                std::string line = describeRequest(state, request);
                if (request.deadline) {
                    line += ", " + std::to_string(msLeft(*request.deadline, now)) + " ms left";
                }
                add(line);
            }
            for (const auto& [id, rule] : state.rules) {
                add("rule " + std::to_string(id) + " status " + std::to_string(rule.status) + ", " +
                    counted(rule.resources.size(), "resource"));
            }
            break;
        case kDumpActiveResources:
            lines.push_back("resources in force:");
            for (const auto& [key, value] : state.table.inForce()) {
                const auto holder = state.table.holderOf(key);
                add(withName(key) + " = " + value + " (" +
                    (holder ? holder->toString() + ", depth " +
                                      std::to_string(state.table.depthOf(key))
                            : std::string("default")) +
                    ")");
            }
            break;
        case kDumpRequests:
            lines.push_back("requests:");
            for (const auto& [handle, request] : state.requests) {
                add(describeRequest(state, request));
                for (const auto& [key, value] : request.resources) {
                    add("  " + withName(key) + " = " + value);
                }
            }
            break;
        case kDumpResourceInfo:
            lines.push_back("resource info (" + std::to_string(state.config.resources().size()) +
                            " known):");
            for (const ResourceInfo& info : state.config.resources()) {
                add(withName(info.key) + " default " + info.defaultValue.value_or("(none)"));
            }
            break;
        case kDumpScenarios:
            lines.push_back("scenarios (" + std::to_string(state.config.scenarios().size()) + "):");
            for (const auto& [event, scenario] : state.config.scenarios()) {
                add("event " + std::to_string(event) + " " + scenario.action + ": " +
                    counted(scenario.resources.size(), "resource") +
                    (scenario.description.empty() ? "" : " - " + scenario.description));
            }
            break;
        case kDumpClients: {
            lines.push_back("clients:");
            std::map<pid_t, std::string> byPid;
            for (const auto& [handle, request] : state.requests) {
                byPid[request.pid] += " request " + std::to_string(handle);
            }
            for (const auto& [handle, listener] : state.listeners) {
                byPid[listener.pid] += " listener " + std::to_string(handle);
            }
            for (const auto& [pid, what] : byPid) add("pid " + std::to_string(pid) + ":" + what);
            break;
        }
        case kDumpClientMonitors:
            lines.push_back("listeners (" + std::to_string(state.listeners.size()) + "):");
            for (const auto& [handle, listener] : state.listeners) {
                add(std::string(listener.thermal ? "thermal" : "resource") + " listener " +
                    std::to_string(handle) + " pid " + std::to_string(listener.pid) +
                    (listener.link != 0 ? ", death linked" : ", in process") + ", " +
                    std::to_string(listener.delivered) + " callbacks delivered");
            }
            for (const auto& [id, level] : state.thermalLevels) {
                add("thermal subsystem " + std::to_string(id) + " level " + level);
            }
            break;
        case kDumpRecords:
            lines.push_back("history (" + std::to_string(state.history.size()) +
                            " records, recording " + (state.recording ? "on" : "off") + "):");
            for (const std::string& record : state.history) add(record);
            break;
        default:
            break;
    }
    return lines;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
