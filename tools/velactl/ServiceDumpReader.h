// Reading what the service writes through the binder dump hook: dumpsys prints it, top lists
// the active requests from it.
#pragma once

#include <android/binder_status.h>
#include <json/json.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace velactl {

// More than any real state makes; past it the rest is read and dropped, so that a service
// gone wrong cannot make velactl take all memory.
constexpr size_t kMaxDumpBytes = 16u << 20;

struct ServiceDump {
    bool found = false;                             // a service answers to the instance name
    binder_status_t status = STATUS_UNKNOWN_ERROR;  // the dump's own status, once found
    std::string text;                               // at most kMaxDumpBytes of what it wrote
    bool cut = false;                               // it wrote more than that
};

// Asks the service for a dump with `args`; nullopt, with *error saying why, only when velactl
// itself cannot make the pipe to read it through.
std::optional<ServiceDump> readServiceDump(const std::vector<std::string>& args,
                                           std::string* error);

// One table of the service's dump in its JSON form (`dumpsys --json TABLE`); nothing when the
// service is not there, does not know the table, or answers what is not JSON.
std::optional<Json::Value> readServiceTable(const std::string& table);

}  // namespace velactl
