#include "DumpsysTables.h"

#include <chrono>

#include "ServiceWords.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

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

}  // namespace

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
    }
    return {};
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
