#include "StateCommands.h"

#include <PaxEvent.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "Limits.h"
#include "NumberOptions.h"
#include "Reporting.h"
#include "ServiceWatch.h"

namespace velactl {

using PaxClient::Resource;

namespace {

// Opcodes the scenario configuration knows, written as people type them, for suggestions.
std::vector<std::string> knownOpcodes(const Context& ctx) {
    std::vector<std::string> out;
    for (const auto& info : ctx.config.resources()) {
        if (!info.key.isPath()) out.push_back(info.key.toString());
    }
    return out;
}

// Says which asked-for resources came back without a value; the exit code.
int flagAbsent(Context& ctx, const ResourceListing& listing) {
    int absent = 0;
    for (const auto& item : listing.items) {
        if (!item["value"].isNull()) continue;
        ++absent;
        const std::string id =
                item.isMember("id") ? item["id"].asString() : item["path"].asString();
        std::string hint;
        if (!item.isMember("name") && item.isMember("id")) {
            hint = " (not a resource velactl's configuration names" +
                   suggestion(id, knownOpcodes(ctx)) + ")";
        }
        ctx.out.error("no value for " + id + hint);
    }
    return absent == 0 ? kExitOk : kExitNoValue;
}

int32_t registerListener(Context& ctx, const ListenOptions& o, std::shared_ptr<Printer> printer,
                         std::string* on) {
    on->clear();
    if (o.thermal) {
        std::vector<int32_t> ids;
        for (const auto& text : o.resources) {
            ids.push_back(parseInt(text, "thermal subsystem id"));
            *on += " " + text;
        }
        return velaHalclient::velaThermalListeningRegister(ids, printer);
    }
    const auto args = parseResources(o.resources, ctx.config,
                                     o.map ? ValueRule::kOptional : ValueRule::kForbidden);
    for (const auto& arg : args) *on += " " + describeResource(arg.opcode, arg.path, ctx.config);
    if (o.map) {
        return velaHalclient::vela_res_listening_register_map_by_path(pathMap(args), 0, printer);
    }
    if (allPaths(args)) {
        return velaHalclient::vela_res_listening_register_by_path(pathsOf(args), 0, printer);
    }
    auto list = toList(args);
    return velaHalclient::velaResListeningRegister(list, 0, printer);
}

void unregisterListener(const ListenOptions& o, int32_t handle) {
    // With the service gone the library would wait for it to come back, and then unregister a
    // handle the new service never gave: leave it.
    if (!serviceRunning()) return;
    if (o.thermal) {
        velaHalclient::velaThermalListeningUnregister(handle);
    } else {
        velaHalclient::velaResListeningUnRegister(handle);
    }
}

}  // namespace

void bindState(CLI::App& app, StateOptions& o) {
    app.add_option("RESOURCE", o.resources, "OPCODE, NAME or /PATH (/PATH=VALUE with --map)")
            ->required()
            ->type_name("");
    app.add_flag("--pax", o.pax, "ask through the Pax event interface");
    app.add_flag("--single", o.single, "one opcode through PaxResStateRequest");
    app.add_flag("--map", o.map, "paths as a path-to-value map");
}

int runState(Context& ctx, StateOptions& o) {
    const auto args = parseResources(o.resources, ctx.config,
                                     o.map ? ValueRule::kOptional : ValueRule::kForbidden);
    if (args.empty()) throw UsageError{"name at least one resource"};
    if (o.single && args.size() != 1) throw UsageError{"--single takes exactly one opcode"};
    ResourceListing listing(ctx);
    if (o.map) {
        std::map<std::string, std::string> out;
        const int rc = velaHalclient::vela_res_state_request_map_by_path(pathMap(args), 0, out);
        if (rc < 0) return failed(ctx, "state --map", rc);
        for (const auto& [path, value] : out) listing.add(0, path, value);
    } else if (allPaths(args)) {
        const std::vector<std::string> paths = pathsOf(args);
        std::vector<std::string> out;
        const int rc = velaHalclient::vela_res_state_request_by_path(paths, {}, 0, out);
        if (rc < 0) return failed(ctx, "state", rc);
        for (size_t i = 0; i < paths.size() && i < out.size(); ++i) {
            listing.add(0, paths[i], out[i]);
        }
    } else if (o.single) {
        std::string out = "\x01";  // tells "left alone" from an empty answer
        PaxResStateRequest(args[0].opcode, out);
        if (out == "\x01") return failed(ctx, "state --single", -1);
        listing.add(args[0].opcode, "", out);
    } else if (o.pax) {
        auto resources = toVector(args, "state --pax");
        const int32_t rc = PaxMutiResStateRequest(resources);
        if (rc < 0) return failed(ctx, "state --pax", rc);
        for (const auto& r : resources) listing.add(r.id, "", r.value);
    } else {
        auto request = toList(args);
        velaHalclient::ResourceList reply;
        const int rc = velaHalclient::velaResStateRequest(request, 0, reply);
        if (rc < 0) return failed(ctx, "state", rc);
        for (const auto& r : reply) listing.add(r.id, "", r.value);
    }
    Json::Value json;
    json["resources"] = listing.items;
    ctx.out.result(listing.text, json);
    return flagAbsent(ctx, listing);
}

void bindListen(CLI::App& app, ListenOptions& o) {
    app.add_option("RESOURCE", o.resources, "OPCODE, NAME or /PATH (subsystem ids with --thermal)")
            ->required()
            ->type_name("");
    app.add_flag("--thermal", o.thermal, "listen to thermal subsystem ids");
    app.add_flag("--map", o.map, "paths as a path-to-value map");
    app.add_flag("--follow", o.follow,
                 "when the service dies, wait for it and listen again (--count and --wait start "
                 "afresh); without it velactl exits 69");
    addNumber(app, "--count", o.count, "stop after this many callbacks", kPositive, "N");
    addNumber(app, "--wait", o.waitMs, "stop after this many ms", kTimeoutMs, "MS");
}

int runListen(Context& ctx, ListenOptions& o) {
    if (o.thermal) {
        checkItemCount(o.resources.size(), "thermal subsystem ids");
        for (const auto& text : o.resources) parseInt(text, "thermal subsystem id");
    }
    const bool bounded = o.count > 0 || o.waitMs >= 0;
    const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(o.waitMs >= 0 ? o.waitMs
                                                                         : o.count > 0 ? 10000
                                                                                       : INT32_MAX);
    if (o.follow && ctx.scriptMode) {
        throw UsageError{"--follow is for listen on velactl's own command line", kExitUsage};
    }
    InterruptScope scope;
    {
        DeathWatch death;
        auto printer = std::make_shared<Printer>(ctx, o.thermal ? "thermal" : "listener");
        std::string on;
        const int32_t handle = registerListener(ctx, o, printer, &on);
        if (handle < 1) return failed(ctx, "listen", handle);
        printer->setHandle(handle);
        ctx.lastListener = handle;
        Json::Value json;
        json["listener"] = handle;
        json["thermal"] = o.thermal;
        ctx.out.result(std::string(o.thermal ? "thermal listener " : "listener ") +
                               std::to_string(handle) + " on" + on,
                       json);
        if (ctx.scriptMode && !bounded) return kExitOk;  // stays in the background

        // In the foreground: until enough callbacks, the time is up, Ctrl-C or the death.
        const size_t count = o.count > 0 ? static_cast<size_t>(o.count) : SIZE_MAX;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
        const bool enough =
                waitFor([&] { return printer->heard() >= count || death.died(); }, left) &&
                !death.died();
        if (interrupted()) {
            unregisterListener(o, handle);
            return kExitInterrupted;
        }
        if (death.died()) {
            ctx.out.error("the service died; listener " + std::to_string(handle) + " went with it" +
                          (o.follow ? ", waiting for it to return" : ""));
            if (!o.follow) return kExitUnavailable;
            waitFor(serviceRunning, std::chrono::milliseconds(INT32_MAX));
            if (interrupted()) return kExitInterrupted;
            // The library still holds the dead listener and would refuse the same resources
            // again; unregistering it on the new service could remove another client's
            // listener that got the same handle. A fresh velactl starts clean.
            ctx.out.error("the service is back: listening again");
            return restartVelactl(ctx);
        }
        unregisterListener(o, handle);
        if (o.count > 0 && !enough) {
            ctx.out.error("heard " + std::to_string(printer->heard()) + " of " +
                          std::to_string(o.count) + " callbacks");
            return kExitNoValue;
        }
        return kExitOk;
    }
}

void bindThermal(CLI::App& app, ThermalOptions& o) {
    app.add_option("LEVEL", o.levels, "ID=LEVEL: a subsystem id and its level, both numbers")
            ->required()
            ->type_name("");
}

int runThermal(Context& ctx, ThermalOptions& o) {
    checkItemCount(o.levels.size(), "thermal levels");
    velaHalclient::ResourceList levels;
    for (const auto& text : o.levels) {
        const size_t equals = text.find('=');
        if (equals == std::string::npos || equals + 1 == text.size()) {
            throw UsageError{"'" + text + "': write ID=LEVEL"};
        }
        const int32_t id = parseInt(text.substr(0, equals), "thermal subsystem id");
        if (id < 0) throw UsageError{"thermal subsystem id " + std::to_string(id) + " is negative"};
        const std::string level = text.substr(equals + 1);
        const int32_t value = parseInt(level, "thermal level");
        levels.push_back(Resource{static_cast<uint32_t>(id), std::to_string(value)});
    }
    const int rc = velaHalclient::velaThermalNotify(levels, 0);
    if (rc != 0) return failed(ctx, "thermal", rc);
    Json::Value json;
    json["sent"] = static_cast<Json::UInt>(levels.size());
    ctx.out.result("thermal levels sent", json);
    return kExitOk;
}

}  // namespace velactl
