#include "ServiceDumpsys.h"

#include <android/binder_ibinder.h>
#include <android/log.h>
#include <json/json.h>

#include <algorithm>
#include <chrono>

#include "BoundedWrite.h"
#include "ServiceDump.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

namespace {

// How long the asker may leave its end unread before the dump is given up.
constexpr std::chrono::seconds kDumpsysStall{5};

constexpr size_t index(DumpsysTable table) {
    return static_cast<size_t>(table);
}

std::string tableNames() {
    std::string names;
    for (const DumpsysTableName& row : kDumpsysTables) names += std::string(" ") + row.name;
    return names;
}

// {"id": "0x…"} or {"path": "…"}, with the configured name when there is one.
Json::Value keyJson(const ServiceState& state, const ResourceKey& key) {
    Json::Value json(Json::objectValue);
    if (key.isPath()) {
        json["path"] = key.path;
    } else {
        json["id"] = key.toString();
    }
    const std::string name = state.nameOf(key);
    if (!name.empty()) json["name"] = name;
    return json;
}

// Each table as readable lines (title first) and as its JSON member; built side by side so
// that the two forms cannot drift apart.
struct Table {
    std::string text;
    Json::Value json;

    void title(const std::string& line) { text += line + "\n"; }
    void line(const std::string& line) { text += "  " + line + "\n"; }
};

Table resourcesTable(const ServiceState& state) {
    Table t{{}, Json::Value(Json::arrayValue)};
    const auto inForce = state.table.inForce();
    t.title("resources (" + std::to_string(inForce.size()) + " in force):");
    for (const auto& [key, value] : inForce) {
        const auto winner = state.table.holderOf(key);
        const auto claims = state.table.claimsOf(key);
        const char* rule = arbitrationName(state.table.arbitrationOf(key));
        Json::Value row = keyJson(state, key);
        row["value"] = value;
        row["arbitration"] = rule;
        row["holder"] = winner ? Json::Value(winner->toString()) : Json::Value();
        row["claims"] = Json::Value(Json::arrayValue);
        t.line(state.labelOf(key) + " = " + value + " (" + rule + ", " +
               (winner ? counted(claims.size(), "claim") : std::string("default")) + ")");
        for (const ResourceTable::Claim& claim : claims) {
            const bool wins = winner && claim.holder == *winner;
            t.line(std::string(wins ? "  * " : "    ") + claim.holder.toString() + " = " +
                   claim.value);
            Json::Value item;
            item["holder"] = claim.holder.toString();
            item["value"] = claim.value;
            item["winner"] = wins;
            row["claims"].append(item);
        }
        t.json.append(row);
    }
    return t;
}

Table requestsTable(const ServiceState& state) {
    Table t{{}, Json::Value(Json::arrayValue)};
    const auto now = ServiceClock::now();
    t.title("requests (" + std::to_string(state.requests.size()) + "):");
    for (const auto& [handle, request] : state.requests) {
        Json::Value row;
        row["handle"] = handle;
        row["kind"] = requestKindName(request.kind);
        if (request.event) row["event"] = *request.event;
        if (const std::string* action = actionOf(state, request)) row["action"] = *action;
        row["package"] = request.package;
        row["identity"] = request.identity;
        row["pid"] = request.pid;
        std::string left = "until released";
        if (request.deadline) {
            const int64_t ms = msLeft(*request.deadline, now);
            row["ms_left"] = Json::Int64(ms);
            left = std::to_string(ms) + " ms left";
        } else {
            row["ms_left"] = Json::Value();  // until released
        }
        row["resources"] = Json::UInt64(request.resources.size());
        t.line("handle " + std::to_string(handle) + " " + requestWhat(state, request) + " pkg " +
               orNone(request.package) + " identity " + orNone(request.identity) + " pid " +
               std::to_string(request.pid) + ", " + left + ", " +
               counted(request.resources.size(), "resource"));
        t.json.append(row);
    }
    return t;
}

Table listenersTable(const ServiceState& state) {
    Table t{{}, Json::Value(Json::arrayValue)};
    t.title("listeners (" + std::to_string(state.listeners.size()) + "):");
    for (const auto& [handle, listener] : state.listeners) {
        Json::Value row;
        row["handle"] = handle;
        row["kind"] = listener.thermal ? "thermal" : "resource";
        row["pid"] = listener.pid;
        row["death_linked"] = listener.link != 0;
        row["delivered"] = Json::UInt64(listener.delivered);
        std::string on;
        Json::Value& what = row[listener.thermal ? "thermal_ids" : "resources"];
        what = Json::Value(Json::arrayValue);
        if (listener.thermal) {
            for (int32_t id : listener.thermalIds) {
                on += " " + std::to_string(id);
                what.append(id);
            }
        } else {
            for (const ResourceKey& key : listener.keys) {
                on += " " + state.labelOf(key);
                what.append(keyJson(state, key));
            }
        }
        t.line(std::string(listener.thermal ? "thermal" : "resource") + " listener " +
               std::to_string(handle) + " pid " + std::to_string(listener.pid) +
               (listener.link != 0 ? ", death linked, " : ", in process, ") +
               std::to_string(listener.delivered) + " delivered:" + (on.empty() ? " all" : on));
        t.json.append(row);
    }
    return t;
}

Table rulesTable(const ServiceState& state) {
    Table t{{}, Json::Value(Json::arrayValue)};
    t.title("rules (" + std::to_string(state.rules.size()) + "):");
    for (const auto& [id, rule] : state.rules) {
        Json::Value row;
        row["id"] = id;
        row["status"] = rule.status;
        row["resources"] = Json::Value(Json::arrayValue);
        t.line("rule " + std::to_string(id) + " status " + std::to_string(rule.status) + ":");
        for (const auto& [key, value] : rule.resources) {
            t.line("  " + state.labelOf(key) + " = " + value);
            Json::Value item = keyJson(state, key);
            item["value"] = value;
            row["resources"].append(item);
        }
        t.json.append(row);
    }
    return t;
}

Table historyTable(const ServiceState& state) {
    Table t{{}, Json::Value(Json::arrayValue)};
    t.title("history (" + std::to_string(state.history.size()) + " records, recording " +
            (state.recording ? "on" : "off") + "):");
    for (const std::string& record : state.history) {
        t.line(record);
        t.json.append(record);
    }
    return t;
}

Table propertiesTable(const ServiceState& state) {
    Table t{{}, Json::Value(Json::objectValue)};
    t.title("properties (" + std::to_string(state.properties.size()) + "):");
    for (const auto& [key, value] : state.properties) {
        t.line(key + " = " + value);
        t.json[key] = value;
    }
    return t;
}

Table build(const ServiceState& state, DumpsysTable table) {
    switch (table) {
        case DumpsysTable::kResources:
            return resourcesTable(state);
        case DumpsysTable::kRequests:
            return requestsTable(state);
        case DumpsysTable::kListeners:
            return listenersTable(state);
        case DumpsysTable::kRules:
            return rulesTable(state);
        case DumpsysTable::kHistory:
            return historyTable(state);
        case DumpsysTable::kProperties:
            return propertiesTable(state);
    }
    return {};
}

}  // namespace

std::optional<DumpsysRequest> parseDumpsysArgs(const char** args, uint32_t numArgs,
                                               std::string* error) {
    DumpsysRequest request;
    for (uint32_t i = 0; i < numArgs; ++i) {
        const std::string arg = args[i] == nullptr ? "" : args[i];
        if (arg == "-h" || arg == "--help") {
            request.help = true;
            continue;
        }
        if (arg == "--json") {
            request.json = true;
            continue;
        }
        // The platform's dump of every service passes -a; it means what no argument means.
        if (arg == "-a") continue;
        const auto row = std::find_if(std::begin(kDumpsysTables), std::end(kDumpsysTables),
                                      [&arg](const DumpsysTableName& r) { return arg == r.name; });
        if (row == std::end(kDumpsysTables)) {
            // Quoted in part only: an argument can be as long as the asker likes.
            *error = "dumpsys: unknown table '" + arg.substr(0, 64) + "'; tables:" + tableNames() +
                     " (and --json, -h)";
            return std::nullopt;
        }
        request.tables[index(row->table)] = true;
        request.named = true;
    }
    return request;
}

std::string dumpsysHelp() {
    std::string text =
            "dumpsys [--json] [TABLE...]: the service's tables, every one (history only while "
            "recording) when none is named\n";
    for (const DumpsysTableName& row : kDumpsysTables) {
        std::string name = row.name;
        name.resize(std::max<size_t>(name.size(), 12), ' ');
        text += "  " + name + row.what + "\n";
    }
    text += "  --json      one JSON object, a member per table\n";
    return text;
}

std::string dumpsysTextLocked(const ServiceState& state, const DumpsysRequest& request) {
    std::string text;
    Json::Value json(Json::objectValue);
    for (const DumpsysTableName& row : kDumpsysTables) {
        const bool wanted = request.named ? request.tables[index(row.table)]
                                          : row.table != DumpsysTable::kHistory || state.recording;
        if (!wanted) continue;
        Table table = build(state, row.table);
        text += table.text;
        json[row.name] = std::move(table.json);
    }
    if (!request.json) return text;
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return Json::writeString(writer, json) + "\n";
}

binder_status_t answerDumpsys(int fd, const char** args, uint32_t numArgs, std::mutex& lock,
                              const ServiceState& state) {
    std::string text;
    const auto request = parseDumpsysArgs(args, numArgs, &text);
    if (!request) {
        writeBounded(fd, text + "\n", kDumpsysStall);
        return STATUS_BAD_VALUE;
    }
    if (request->help) {
        text = dumpsysHelp();
    } else {
        std::lock_guard<std::mutex> locked(lock);
        text = dumpsysTextLocked(state, *request);
    }
    // Written unlocked: an asker that never reads must not hold up every other client.
    if (writeBounded(fd, text, kDumpsysStall)) return STATUS_OK;
    serviceLog(ANDROID_LOG_WARN, "dumpsys from pid %d: the reader went away or stopped reading",
               AIBinder_getCallingPid());
    return STATUS_FAILED_TRANSACTION;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
