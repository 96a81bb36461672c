#include "DiagnosticCommands.h"

#include <PaxEvent.h>
#include <android/log.h>
#include <velaHalclient.h>

#include <memory>
#include <sstream>

#include "Embedded.h"
#include "Reporting.h"

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

std::vector<std::string> dumpNames() {
    std::vector<std::string> names{"all"};
    for (const auto& dump : kDumps) names.push_back(dump.name);
    return names;
}

}  // namespace

void bindProp(CLI::App& app, PropOptions& o) {
    app.add_option("action", o.action, "get or set")->required();
    app.add_option("args", o.args, "KEY [VALUE]")->required();
}

int runProp(Context& ctx, PropOptions& o) {
    if (o.action == "get") {
        if (o.args.size() != 1) throw UsageError{"prop get KEY", kExitUnknownName};
        std::unique_ptr<char[]> value(velaHalclient::velaPropertyGet(o.args[0]));
        Json::Value json;
        json[o.args[0]] = value.get();
        ctx.out.result(o.args[0] + " = " + value.get(), json);
        return kExitOk;
    }
    if (o.action == "set") {
        if (o.args.size() != 2) throw UsageError{"prop set KEY VALUE", kExitUnknownName};
        const int rc = velaHalclient::velaPropertySet(o.args[0], o.args[1]);
        if (rc != 0) return failed(ctx, "prop set " + o.args[0], rc);
        ctx.out.result(o.args[0] + " set", Json::Value(rc));
        return kExitOk;
    }
    throw UsageError{"prop takes get or set" + suggestion(o.action, {"get", "set"}),
                     kExitUnknownName};
}

void bindHistory(CLI::App& app, HistoryOptions& o) {
    app.add_option("action", o.action, "on, off or get")->required();
}

int runHistory(Context& ctx, HistoryOptions& o) {
    if (o.action == "on" || o.action == "off") {
        const int rc = o.action == "on" ? velaHalclient::velaHistoryRequestRecordOn()
                                        : velaHalclient::velaHistoryRequestRecordOff();
        if (rc != 0) return failed(ctx, "history " + o.action, rc);
        ctx.out.result("history recording " + o.action, Json::Value(o.action));
        return kExitOk;
    }
    if (o.action != "get") {
        throw UsageError{
                "history takes on, off or get" + suggestion(o.action, {"on", "off", "get"}),
                kExitUnknownName};
    }
    std::string out;
    Json::Value records(Json::arrayValue);
    if (PaxGetHistory(out) != 0) {
        // The library answers the same for "nothing recorded" and for a failure; the service
        // was reachable a moment ago, so it is most likely the former.
        ctx.out.result(
                "no history records (recording is off, or nothing happened since it was "
                "switched on)",
                records);
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
    ctx.out.result(text, records);
    return kExitOk;
}

void bindDump(CLI::App& app, DumpOptions& o) {
    app.add_option("tables", o.tables,
                   "all, todo, run-map, active, requests, res-info, sa-info, pid-fd, "
                   "pidfd-monitor, records")
            ->required();
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
                             kExitUnknownName};
        }
    }
    Json::Value json(Json::objectValue);
    for (const DumpTable* d : chosen) {
        clearServiceLines();
        if (d->call() != 0) return failed(ctx, std::string("dump ") + d->name, -1);
        Json::Value lines(Json::arrayValue);
        std::string text;
        if (ctx.embedded) {
            for (const auto& line : serviceLines(ANDROID_LOG_INFO)) {
                text += "\n" + line;
                lines.append(line);
            }
        } else {
            text = std::string("\nthe service wrote its ") + d->title +
                   " to its log (vela-service logs to its standard error)";
        }
        json[d->name] = lines;
        ctx.out.note(std::string("== ") + d->title + text);
    }
    if (ctx.out.json()) ctx.out.result("", json);
    return kExitOk;
}

}  // namespace velactl
