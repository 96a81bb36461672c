// The service's tables as a person debugging a device reads them: each resource's claims and
// the one in force, the requests with their time left, listeners, rules, history and
// properties. Each table is built once, as titled lines and as JSON side by side so that the
// two forms cannot drift apart; dumpsys sends them back to the asker and the diagnostic dumps
// write the same lines to the log.
#pragma once

#include <json/json.h>

#include <cstddef>
#include <string>
#include <vector>

#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

enum class DumpsysTable {
    kResources,
    kRequests,
    kListeners,
    kRules,
    kHistory,
    kProperties,
    kRefusals,
    kWhy,
    kDeclared,
};

struct DumpsysTableName {
    DumpsysTable table;
    const char* name;
    const char* what;
};
inline constexpr DumpsysTableName kDumpsysTables[] = {
        {DumpsysTable::kResources, "resources",
         "every resource in force: its value, rule and claims (* marks the one in force)"},
        {DumpsysTable::kRequests, "requests",
         "active requests, the time each has left and what each claims"},
        {DumpsysTable::kListeners, "listeners", "resource and thermal listeners"},
        {DumpsysTable::kRules, "rules", "rules that are on, with their resources"},
        {DumpsysTable::kHistory, "history", "the history records (unasked: only when recording)"},
        {DumpsysTable::kProperties, "properties", "properties that have been set"},
        {DumpsysTable::kRefusals, "refusals",
         "the recent refusals: when, the caller's pid, the call and the reason"},
        {DumpsysTable::kWhy, "why",
         "each resource's value, its holders (process, since, until) and its last changes with "
         "their causes (only when named)"},
        {DumpsysTable::kDeclared, "declared",
         "the resources the configuration declares: name, type, range, rule, default (only when "
         "named)"},
};
inline constexpr size_t kDumpsysTableCount = sizeof(kDumpsysTables) / sizeof(kDumpsysTables[0]);
static_assert(kDumpsysTableCount == static_cast<size_t>(DumpsysTable::kDeclared) + 1,
              "every table has exactly one name");
constexpr bool dumpsysTablesInOrder() {
    for (size_t i = 0; i < kDumpsysTableCount; ++i) {
        if (static_cast<size_t>(kDumpsysTables[i].table) != i) return false;
    }
    return true;
}
static_assert(dumpsysTablesInOrder(), "rows follow the enum, so a table indexes its row");

struct DumpTable {
    std::string title;               // "requests (2):"
    std::vector<std::string> lines;  // without the indent the text form gives them
    Json::Value json;

    // The title and the lines, indented under it, a line each.
    std::string text() const;
};

// Whether a dump that names no table shows it: history only while recording; why and declared,
// long and for tools, only when named.
bool shownUnasked(const ServiceState& state, DumpsysTable table);

// Needs the service lock: it reads the state.
DumpTable buildDumpsysTable(const ServiceState& state, DumpsysTable table);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
