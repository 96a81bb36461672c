#include "DiagnosticDumps.h"

#include <map>

#include "DumpsysTables.h"
#include "ServiceWords.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

namespace {

class DumpLines {
public:
    void title(const std::string& line) { mLines.push_back(line); }
    void row(const std::string& line) { mLines.push_back("  " + line); }
    void table(const ServiceState& state, DumpsysTable which) {
        const DumpTable table = buildDumpsysTable(state, which);
        title(table.title);
        for (const std::string& line : table.lines) row(line);
    }
    std::vector<std::string> take() { return std::move(mLines); }

private:
    std::vector<std::string> mLines;
};

}  // namespace

std::vector<std::string> dumpLines(const ServiceState& state, int32_t code,
                                   size_t callbacksWaiting) {
    DumpLines out;
    switch (code) {
        case kDumpToDoQueue: {
            const auto now = ServiceClock::now();
            out.title("to-do queue:");
            out.row("callbacks waiting: " + std::to_string(callbacksWaiting));
            for (const auto& [handle, request] : state.requests) {
                if (request.deadline) {
                    out.row("expire handle " + std::to_string(handle) + " in " +
                            std::to_string(msLeft(*request.deadline, now)) + " ms");
                }
            }
            break;
        }
        case kDumpRunMap:
            // What runs: the requests and the rules that are on.
            out.table(state, DumpsysTable::kRequests);
            out.table(state, DumpsysTable::kRules);
            break;
        case kDumpActiveResources:
            out.table(state, DumpsysTable::kResources);
            break;
        case kDumpRequests:
            out.table(state, DumpsysTable::kRequests);
            break;
        case kDumpResourceInfo:
            out.title("resource info (" + std::to_string(state.config.resources().size()) +
                      " known):");
            for (const ResourceInfo& info : state.config.resources()) {
                out.row(state.labelOf(info.key) + " default " +
                        info.defaultValue.value_or("(none)"));
            }
            break;
        case kDumpScenarios:
            out.title("scenarios (" + std::to_string(state.config.scenarios().size()) + "):");
            for (const auto& [event, scenario] : state.config.scenarios()) {
                out.row("event " + std::to_string(event) + " " + scenario.action + ": " +
                        counted(scenario.resources.size(), "resource") +
                        (scenario.description.empty() ? "" : " - " + scenario.description));
            }
            break;
        case kDumpClients: {
            out.title("clients:");
            std::map<pid_t, std::string> byPid;
            for (const auto& [handle, request] : state.requests) {
                byPid[request.pid] += " request " + std::to_string(handle);
            }
            for (const auto& [handle, listener] : state.listeners) {
                byPid[listener.pid] += " listener " + std::to_string(handle);
            }
            for (const auto& [pid, what] : byPid)
                out.row("pid " + std::to_string(pid) + ":" + what);
            break;
        }
        case kDumpClientMonitors:
            out.table(state, DumpsysTable::kListeners);
            for (const auto& [id, level] : state.thermalLevels) {
                out.row("thermal subsystem " + std::to_string(id) + " level " + level);
            }
            break;
        case kDumpRecords:
            out.table(state, DumpsysTable::kHistory);
            break;
        default:
            break;
    }
    return out.take();
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
