#include "DiagnosticCommands.h"

#include <PaxEvent.h>
#include <android/log.h>
#include <velaHalclient.h>

#include <memory>
#include <sstream>

#include "Embedded.h"
#include "Limits.h"
#include "Reporting.h"
#include "ServiceDumpReader.h"

namespace velactl {

namespace {

struct DumpTable {
    const char* name;
    const char* title;
    int (*call)();
};

constexpr DumpTable kDumps[] = {
        {"todo", "to-do queue", velaHalclient::velaDumpToDoQueue},
        {"run-map", "run map", velaHalclient::velaDumpRunMap},
        {"active", "active resources", velaHalclient::velaDumpActiveResMap},
        {"requests", "requests", velaHalclient::velaDumpResRequest},
        {"res-info", "resource info", velaHalclient::velaDumpResInfo},
        {"sa-info", "SA info", velaHalclient::velaDumpSAInfo},
        {"pid-fd", "pid fd list", velaHalclient::velaDumpPidFdList},
        {"pidfd-monitor", "pidfd monitor map", velaHalclient::velaDumpPidfdMonitorMap},
        {"records", "record list", velaHalclient::velaDumpResRecordList},
};

// One of the service's own tables, read through the dump hook; null when it cannot be read (a
// service of another make, or one that does not answer). The library answers alike for
// "nothing there" and for a call that failed; the table tells them apart.
Json::Value serviceTable(const char* table) {
    return readServiceTable(table).value_or(Json::Value());
}

std::vector<std::string> dumpNames() {
    std::vector<std::string> names{"all"};
    for (const auto& dump : kDumps) names.push_back(dump.name);
    return names;
}

}  // namespace

void bindProp(CLI::App& app, PropOptions& o) {
    app.add_option("ACTION", o.action, "get or set")->required()->type_name("");
    app.add_option("KEY", o.args, "KEY, and for set its VALUE")->required()->type_name("");
}

int runProp(Context& ctx, PropOptions& o) {
    if (o.action == "get") {
        if (o.args.size() != 1) throw UsageError{"write: prop get KEY", kExitUsage};
        const std::string& key = o.args[0];
        std::unique_ptr<char[]> value(velaHalclient::velaPropertyGet(key));
        // The service answers an empty text for a property it does not hold, and the library
        // leaves the same when the call fails: the service's table says which it was.
        const bool absent = value == nullptr || value[0] == '\0';
        if (absent) {
            const Json::Value held = serviceTable("properties");
            const bool heldNonEmpty = held.isObject() && held.isMember(key) &&
                                      !(held[key].isString() && held[key].asString().empty());
            if (!held.isObject() || heldNonEmpty) return failed(ctx, "prop get " + key, -1);
        }
        Json::Value json;
        json["key"] = key;
        json["value"] = absent ? Json::Value() : Json::Value(value.get());
        ctx.out.result(key + " = " + (absent ? "(not set)" : value.get()), json);
        if (!absent) return kExitOk;
        ctx.out.error("no property " + key + " (or it is set to an empty text)");
        return kExitNoValue;
    }
    if (o.action == "set") {
        if (o.args.size() != 2) throw UsageError{"write: prop set KEY VALUE", kExitUsage};
        const std::string& key = o.args[0];
        const std::string& value = o.args[1];
        if (!aidl::vendor::norvo::hardware::vela::impl::isWritablePropertyKey(key)) {
            constexpr size_t kMaxKey = ServiceLimits::kMaxPropertyKey;
            throw UsageError{"property " + key.substr(0, kMaxKey) +
                             " cannot be set: keys are 1 to " + std::to_string(kMaxKey) +
                             " bytes, and ro. ones and those the service computes are read-only"};
        }
        if (value.size() > ServiceLimits::kMaxPropertyValue) {
            throw UsageError{"the value for " + key + " is " + std::to_string(value.size()) +
                             " bytes; the service keeps at most " +
                             std::to_string(ServiceLimits::kMaxPropertyValue)};
        }
        const int rc = velaHalclient::velaPropertySet(key, value);
        if (rc != 0) return failed(ctx, "prop set " + key, rc);
        Json::Value json;
        json["key"] = key;
        json["value"] = value;
        ctx.out.result(key + " set", json);
        return kExitOk;
    }
    throw UsageError{"prop takes get or set" + suggestion(o.action, {"get", "set"}), kExitUsage};
}

void bindHistory(CLI::App& app, HistoryOptions& o) {
    app.add_option("ACTION", o.action, "on, off or get")->required()->type_name("");
}

int runHistory(Context& ctx, HistoryOptions& o) {
    if (o.action == "on" || o.action == "off") {
        const int rc = o.action == "on" ? velaHalclient::velaHistoryRequestRecordOn()
                                        : velaHalclient::velaHistoryRequestRecordOff();
        if (rc != 0) return failed(ctx, "history " + o.action, rc);
        Json::Value json;
        json["recording"] = o.action == "on";
        ctx.out.result("history recording " + o.action, json);
        return kExitOk;
    }
    if (o.action != "get") {
        throw UsageError{
                "history takes on, off or get" + suggestion(o.action, {"on", "off", "get"}),
                kExitUsage};
    }
    std::string out;
    Json::Value records(Json::arrayValue);
    Json::Value json;
    if (PaxGetHistory(out) != 0) {
        json["records"] = records;
        // The library answers the same for "nothing recorded" and for a failure (a service
        // that turned the caller away); the service's own history table tells them apart.
        const Json::Value kept = serviceTable("history");
        if (!kept.isArray() || !kept.empty()) return failed(ctx, "history get", -1);
        ctx.out.result(
                "no history records (recording is off, or nothing happened since it was "
                "switched on)",
                json);
        return kExitOk;
    }
    // "start:<record>;<record>;end"
    std::string body = out;
    if (body.rfind("start:", 0) == 0) body = body.substr(6);
    if (body.size() >= 4 && body.compare(body.size() - 4, 4, ";end") == 0) {
        body.resize(body.size() - 4);
    }
    std::string text;
    std::stringstream split(body);
    for (std::string record; std::getline(split, record, ';');) {
        text += (text.empty() ? "" : "\n") + record;
        records.append(record);
    }
    json["records"] = records;
    ctx.out.result(text, json);
    return kExitOk;
}

void bindDump(CLI::App& app, DumpOptions& o) {
    app.add_option("TABLE", o.tables,
                   "all, todo, run-map, active, requests, res-info, sa-info, pid-fd, "
                   "pidfd-monitor, records")
            ->required()
            ->type_name("");
}

int runDump(Context& ctx, DumpOptions& o) {
    std::vector<const DumpTable*> chosen;
    for (const auto& name : o.tables) {
        bool found = false;
        for (const auto& d : kDumps) {
            if (name == d.name || name == "all") {
                chosen.push_back(&d);
                found = true;
            }
        }
        if (!found) {
            throw UsageError{"unknown dump '" + name + "'" + suggestion(name, dumpNames()),
                             kExitUsage};
        }
    }
    Json::Value json(Json::objectValue);
    for (const DumpTable* d : chosen) {
        clearServiceLines();
        if (d->call() != 0) return failed(ctx, std::string("dump ") + d->name, -1);
        // A service apart writes the table to its own log, out of velactl's reach: say so
        // rather than show an empty table.
        Json::Value table;
        std::string text;
        if (ctx.embedded) {
            Json::Value lines(Json::arrayValue);
            for (const auto& line : serviceLines(ANDROID_LOG_INFO)) {
                text += "\n" + line;
                lines.append(line);
            }
            table["written_to"] = "velactl";
            table["lines"] = lines;
        } else {
            text = std::string("\nthe service wrote its ") + d->title +
                   " to its log (vela-service logs to its standard error)";
            table["written_to"] = "service log";
        }
        json[d->name] = table;
        ctx.out.note(std::string("== ") + d->title + text);
    }
    if (ctx.out.json()) ctx.out.result("", json);
    return kExitOk;
}

}  // namespace velactl
