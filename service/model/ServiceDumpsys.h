// The tables the binder dump hook writes to whoever asked (`dumpsys`), as text or as one JSON
// object. Unlike the diagnostic dumps (ServiceDump.h), which go to the service's log, these
// go back to the asker, so they say everything a person debugging a device needs at once:
// each resource's claims and the one in force, the requests with their time left, listeners,
// rules, history and properties.
#pragma once

#include <android/binder_status.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

enum class DumpsysTable { kResources, kRequests, kListeners, kRules, kHistory, kProperties };

struct DumpsysTableName {
    DumpsysTable table;
    const char* name;
    const char* what;
};
inline constexpr DumpsysTableName kDumpsysTables[] = {
        {DumpsysTable::kResources, "resources",
         "every resource in force: its value, rule and claims (* marks the one in force)"},
        {DumpsysTable::kRequests, "requests", "active requests and the time each has left"},
        {DumpsysTable::kListeners, "listeners", "resource and thermal listeners"},
        {DumpsysTable::kRules, "rules", "rules that are on, with their resources"},
        {DumpsysTable::kHistory, "history", "the history records (unasked: only when recording)"},
        {DumpsysTable::kProperties, "properties", "properties that have been set"},
};
inline constexpr size_t kDumpsysTableCount = sizeof(kDumpsysTables) / sizeof(kDumpsysTables[0]);
static_assert(kDumpsysTableCount == static_cast<size_t>(DumpsysTable::kProperties) + 1,
              "every table has exactly one name");
constexpr bool dumpsysTablesInOrder() {
    for (size_t i = 0; i < kDumpsysTableCount; ++i) {
        if (static_cast<size_t>(kDumpsysTables[i].table) != i) return false;
    }
    return true;
}
static_assert(dumpsysTablesInOrder(), "rows follow the enum, so a table indexes its row");

// What the arguments of one dump asked for.
struct DumpsysRequest {
    bool help = false;
    bool json = false;
    // Indexed by DumpsysTable. All false once parsed means the default selection.
    bool tables[kDumpsysTableCount] = {};
    bool named = false;
};

// Nothing when an argument is neither a table nor an option; `error` is then one line that
// lists what is accepted.
std::optional<DumpsysRequest> parseDumpsysArgs(const char** args, uint32_t numArgs,
                                               std::string* error);

// The usage text for -h.
std::string dumpsysHelp();

// The selected tables, titled lines each (or one JSON object and a newline). Needs the
// service lock: it reads the whole state.
std::string dumpsysTextLocked(const ServiceState& state, const DumpsysRequest& request);

// Answers one dump: the tables `args` name, taken under `lock` and written to `fd` once it is
// released. STATUS_BAD_VALUE (and a line saying why on `fd`) for an unknown argument.
binder_status_t answerDumpsys(int fd, const char** args, uint32_t numArgs, std::mutex& lock,
                              const ServiceState& state);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
