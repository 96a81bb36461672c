#include "DumpsysTables.h"

#include <chrono>
#include <fstream>
#include <set>

#include "ServiceWords.h"
#include "vela_protocol.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace protocol = ::aidl::vendor::norvo::hardware::vela::protocol;

std::string DumpTable::text() const {
    std::string text = title + "\n";
    for (const std::string& line : lines) text += "  " + line + "\n";
    return text;
}

namespace {

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

// A floor whose claims exceed its ceiling: both holders, and which one is in force.
void markConflict(const ServiceState& state, const ResourceTable::Conflict& conflict, DumpTable* t,
                  Json::Value* row) {
    auto by = [](const std::optional<Holder>& holder) {
        return holder ? holder->toString() : std::string("default");
    };
    t->lines.push_back("  ! floor " + conflict.floorClaimed + " (" + by(conflict.floorHolder) +
                       ") exceeds ceiling " + state.labelOf(conflict.ceiling) + " = " +
                       conflict.ceilingValue + " (" + by(conflict.ceilingHolder) +
                       "): the ceiling wins");
    Json::Value json;
    json["floor_claimed"] = conflict.floorClaimed;
    json["floor_holder"] = by(conflict.floorHolder);
    json["ceiling"] = keyJson(state, conflict.ceiling);
    json["ceiling_value"] = conflict.ceilingValue;
    json["ceiling_holder"] = by(conflict.ceilingHolder);
    (*row)["conflict"] = json;
}

DumpTable resourcesTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::arrayValue)};
    const auto inForce = state.table.inForce();
    t.title = "resources (" + std::to_string(inForce.size()) + " in force):";
    for (const auto& [key, value] : inForce) {
        const auto winner = state.table.holderOf(key);
        const auto claims = state.table.claimsOf(key);
        const char* rule = arbitrationName(state.table.arbitrationOf(key));
        Json::Value row = keyJson(state, key);
        row["value"] = value;
        row["arbitration"] = rule;
        row["holder"] = winner ? Json::Value(winner->toString()) : Json::Value();
        row["claims"] = Json::Value(Json::arrayValue);
        t.lines.push_back(state.labelOf(key) + " = " + value + " (" + rule + ", " +
                          (winner ? counted(claims.size(), "claim") : std::string("default")) +
                          ")");
        for (const ResourceTable::Claim& claim : claims) {
            const bool wins = winner && claim.holder == *winner;
            t.lines.push_back(std::string(wins ? "  * " : "    ") + claim.holder.toString() +
                              " = " + claim.value);
            Json::Value item;
            item["holder"] = claim.holder.toString();
            item["value"] = claim.value;
            item["winner"] = wins;
            row["claims"].append(item);
        }
        if (const auto conflict = state.table.conflictOn(key))
            markConflict(state, *conflict, &t, &row);
        t.json.append(row);
    }
    return t;
}

DumpTable requestsTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::arrayValue)};
    const auto now = ServiceClock::now();
    t.title = "requests (" + std::to_string(state.requests.size()) + "):";
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
        t.lines.push_back("handle " + std::to_string(handle) + " " + requestWhat(state, request) +
                          " pkg " + orNone(request.package) + " identity " +
                          orNone(request.identity) + " pid " + std::to_string(request.pid) + ", " +
                          left + ", " + counted(request.resources.size(), "resource"));
        row["claims"] = Json::Value(Json::arrayValue);
        for (const auto& [key, value] : request.resources) {
            t.lines.push_back("  " + state.labelOf(key) + " = " + value);
            Json::Value item = keyJson(state, key);
            item["value"] = value;
            row["claims"].append(item);
        }
        t.json.append(row);
    }
    return t;
}

DumpTable listenersTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::arrayValue)};
    t.title = "listeners (" + std::to_string(state.listeners.size()) + "):";
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
        t.lines.push_back(std::string(listener.thermal ? "thermal" : "resource") + " listener " +
                          std::to_string(handle) + " pid " + std::to_string(listener.pid) +
                          (listener.link != 0 ? ", death linked, " : ", in process, ") +
                          std::to_string(listener.delivered) +
                          " delivered:" + (on.empty() ? " all" : on));
        t.json.append(row);
    }
    return t;
}

DumpTable rulesTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::arrayValue)};
    t.title = "rules (" + std::to_string(state.rules.size()) + "):";
    for (const auto& [id, rule] : state.rules) {
        Json::Value row;
        row["id"] = id;
        row["status"] = rule.status;
        row["resources"] = Json::Value(Json::arrayValue);
        t.lines.push_back("rule " + std::to_string(id) + " status " + std::to_string(rule.status) +
                          ":");
        for (const auto& [key, value] : rule.resources) {
            t.lines.push_back("  " + state.labelOf(key) + " = " + value);
            Json::Value item = keyJson(state, key);
            item["value"] = value;
            row["resources"].append(item);
        }
        t.json.append(row);
    }
    return t;
}

DumpTable historyTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::arrayValue)};
    t.title = "history (" + std::to_string(state.history.size()) + " records, recording " +
              (state.recording ? "on" : "off") + "):";
    for (const std::string& record : state.history) {
        t.lines.push_back(record);
        t.json.append(record);
    }
    return t;
}

DumpTable propertiesTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::objectValue)};
    t.title = "properties (" + std::to_string(state.properties.size()) + "):";
    for (const auto& [key, value] : state.properties) {
        t.lines.push_back(key + " = " + value);
        t.json[key] = value;
    }
    return t;
}

DumpTable refusalsTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::arrayValue)};
    const auto& entries = state.refusals.entries();
    t.title = "refusals (" + std::to_string(entries.size()) + ", the latest " +
              std::to_string(RefusalLog::kKept) + " kept):";
    for (const Refusal& refusal : entries) {
        const char* name = protocol::resultName(refusal.result);
        Json::Value row;
        row["sequence"] = Json::UInt64(refusal.sequence);
        row["time"] = timeOfDay(refusal.when);
        // How long ago, so that a tool can tell its own refusal from an older process's that
        // had the same pid.
        row["age_ms"] = Json::Int64(std::chrono::duration_cast<std::chrono::milliseconds>(
                                            std::chrono::steady_clock::now() - refusal.at)
                                            .count());
        row["pid"] = refusal.pid;
        row["call"] = refusal.call;
        row["result"] = refusal.result;
        row["result_name"] = name != nullptr ? name : "";
        row["reason"] = refusal.reason;
        t.lines.push_back(timeOfDay(refusal.when) + " pid " + std::to_string(refusal.pid) + " " +
                          orNone(refusal.call) + ": " + (name != nullptr ? name : "result") + " (" +
                          std::to_string(refusal.result) + "): " + refusal.reason);
        t.json.append(row);
    }
    return t;
}

// What the process calls itself, where the service may read it; empty otherwise (gone, or
// not ours to see).
std::string processName(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(in, name);
    return name;
}

// The wall-clock moment of a point on the service's clock, `now` being the same moment on both.
std::chrono::system_clock::time_point wallTime(ServiceClock::time_point at,
                                               ServiceClock::time_point now,
                                               std::chrono::system_clock::time_point wallNow) {
    return wallNow - std::chrono::duration_cast<std::chrono::system_clock::duration>(now - at);
}

// One claim, in words and as JSON, with who is behind it.
void addClaim(const ServiceState& state, const ResourceTable::Claim& claim, bool wins, DumpTable* t,
              Json::Value* claims) {
    const auto now = ServiceClock::now();
    const auto wallNow = std::chrono::system_clock::now();
    Json::Value item;
    item["holder"] = claim.holder.toString();
    item["value"] = claim.value;
    item["winner"] = wins;
    std::string line =
            std::string(wins ? "* " : "  ") + claim.holder.toString() + " = " + claim.value;
    if (claim.holder.kind == Holder::Kind::kRule) {
        auto rule = state.rules.find(claim.holder.id);
        if (rule != state.rules.end()) {
            item["status"] = rule->second.status;
            line += ": status " + std::to_string(rule->second.status);
        }
    } else if (auto found = state.requests.find(claim.holder.id); found != state.requests.end()) {
        const Request& request = found->second;
        const std::string process = processName(request.pid);
        item["handle"] = request.handle;
        item["pid"] = request.pid;
        item["process"] = process;
        item["package"] = request.package;
        item["identity"] = request.identity;
        item["kind"] = requestKindName(request.kind);
        if (request.event) item["event"] = *request.event;
        if (const std::string* action = actionOf(state, request)) item["action"] = *action;
        const std::string since = timeOfDay(wallTime(request.made, now, wallNow));
        item["since"] = since;
        line += ": pid " + std::to_string(request.pid) + " (" + orNone(process) + ") pkg " +
                orNone(request.package) + " identity " + orNone(request.identity) + " " +
                requestWhat(state, request) + ", since " + since;
        if (request.deadline) {
            const std::string until = timeOfDay(wallTime(*request.deadline, now, wallNow));
            item["until"] = until;
            item["ms_left"] = Json::Int64(msLeft(*request.deadline, now));
            line += ", until " + until + " (" + std::to_string(msLeft(*request.deadline, now)) +
                    " ms left)";
        } else {
            item["until"] = Json::Value();  // until released
            line += ", until released";
        }
    }
    t->lines.push_back("  " + line);
    claims->append(item);
}

DumpTable whyTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::arrayValue)};
    std::set<ResourceKey> keys;
    for (const ResourceKey& key : state.table.keys()) keys.insert(key);
    for (const ResourceKey& key : state.changeLog.keys()) keys.insert(key);
    t.title = "why (" + std::to_string(keys.size()) + " resources):";
    for (const ResourceKey& key : keys) {
        const auto value = state.table.valueOf(key);
        const auto winner = state.table.holderOf(key);
        Json::Value row = keyJson(state, key);
        row["value"] = value ? Json::Value(*value) : Json::Value();
        row["arbitration"] = arbitrationName(state.table.arbitrationOf(key));
        row["holder"] = winner ? Json::Value(winner->toString()) : Json::Value();
        t.lines.push_back(state.labelOf(key) + " = " + value.value_or("(no value)") + " (" +
                          arbitrationName(state.table.arbitrationOf(key)) + ", " +
                          (winner ? "held by " + winner->toString() : std::string("default")) +
                          ")");
        row["claims"] = Json::Value(Json::arrayValue);
        for (const ResourceTable::Claim& claim : state.table.claimsOf(key)) {
            addClaim(state, claim, winner && claim.holder == *winner, &t, &row["claims"]);
        }
        row["changes"] = Json::Value(Json::arrayValue);
        const auto changes = state.changeLog.changesOf(key);
        if (!changes.empty()) t.lines.push_back("  changes:");
        for (const LoggedChange& change : changes) {
            Json::Value item;
            item["time"] = timeOfDay(change.when);
            item["before"] = change.before ? Json::Value(*change.before) : Json::Value();
            item["after"] = change.after ? Json::Value(*change.after) : Json::Value();
            item["cause"] = changeCauseName(change.cause);
            item["by"] = change.by;
            t.lines.push_back(
                    "    " + timeOfDay(change.when) + " " + change.before.value_or("(no value)") +
                    " -> " + change.after.value_or("(no value)") + " " +
                    changeCauseName(change.cause) + (change.by.empty() ? "" : ": " + change.by));
            row["changes"].append(item);
        }
        t.json.append(row);
    }
    return t;
}

// Each row is a resource as the configuration file declares one, so a tool can read the
// service's own names and types with the configuration's reader.
DumpTable declaredTable(const ServiceState& state) {
    DumpTable t{{}, {}, Json::Value(Json::arrayValue)};
    const auto& resources = state.config.resources();
    t.title = "declared (" + std::to_string(resources.size()) + " resources):";
    for (const ResourceInfo& info : resources) {
        Json::Value row(Json::objectValue);
        if (info.key.isPath()) {
            row["path"] = info.key.path;
        } else {
            row["opcode"] = info.key.toString();
        }
        row["name"] = info.name;
        row["type"] = valueTypeName(info.type);
        row["arbitration"] = arbitrationName(info.arbitration);
        std::string line = info.key.toString() + " " + info.name + " " + valueTypeName(info.type);
        if (info.range) {
            row["range"].append(Json::Int64(info.range->lo));
            row["range"].append(Json::Int64(info.range->hi));
            line += " [" + std::to_string(info.range->lo) + ", " + std::to_string(info.range->hi) +
                    "]";
        }
        line += std::string(" ") + arbitrationName(info.arbitration);
        if (info.defaultValue) {
            row["default"] = *info.defaultValue;
            line += " default " + *info.defaultValue;
        }
        t.lines.push_back(line);
        t.json.append(row);
    }
    return t;
}

}  // namespace

bool shownUnasked(const ServiceState& state, DumpsysTable table) {
    switch (table) {
        case DumpsysTable::kHistory:
            return state.recording;
        case DumpsysTable::kWhy:
        case DumpsysTable::kDeclared:
            return false;
        default:
            return true;
    }
}

DumpTable buildDumpsysTable(const ServiceState& state, DumpsysTable table) {
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
        case DumpsysTable::kRefusals:
            return refusalsTable(state);
        case DumpsysTable::kWhy:
            return whyTable(state);
        case DumpsysTable::kDeclared:
            return declaredTable(state);
    }
    return {};
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
