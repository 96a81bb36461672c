#include "StateCommands.h"

#include <PaxEvent.h>
#include <velaHalclient.h>

#include <climits>

#include "Reporting.h"

namespace velactl {

using PaxClient::Resource;

void bindState(CLI::App& app, StateOptions& o) {
    app.add_option("resources", o.resources, "OPCODE, NAME or /PATH (PATH=VALUE with --map)")
            ->required();
    app.add_flag("--pax", o.pax, "ask through the Pax event interface");
    app.add_flag("--single", o.single, "one opcode through PaxResStateRequest");
    app.add_flag("--map", o.map, "paths as a path-to-value map");
}

int runState(Context& ctx, StateOptions& o) {
    const auto args = parseResources(o.resources, ctx.config,
                                     o.map ? ValueRule::kOptional : ValueRule::kForbidden);
    if (args.empty()) throw UsageError{"name at least one resource"};
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
        if (args.size() != 1) throw UsageError{"--single takes exactly one opcode"};
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
    ctx.out.result(listing.text, listing.items);
    return kExitOk;
}

void bindListen(CLI::App& app, ListenOptions& o) {
    app.add_option("resources", o.resources, "OPCODE, NAME or /PATH ... (ids with --thermal)")
            ->required();
    app.add_flag("--thermal", o.thermal, "thermal subsystem ids");
    app.add_flag("--map", o.map, "paths as a path-to-value map");
    app.add_option("--count", o.count, "stop after this many callbacks");
    app.add_option("--wait", o.waitMs, "stop after this many ms");
}

int runListen(Context& ctx, ListenOptions& o) {
    auto printer = std::make_shared<Printer>(ctx, o.thermal ? "thermal" : "listener");
    int32_t handle;
    std::string on;
    if (o.thermal) {
        std::vector<int32_t> ids;
        for (const auto& text : o.resources) {
            ids.push_back(parseInt(text, "thermal subsystem id"));
            on += " " + text;
        }
        handle = velaHalclient::velaThermalListeningRegister(ids, printer);
    } else {
        const auto args = parseResources(o.resources, ctx.config,
                                         o.map ? ValueRule::kOptional : ValueRule::kForbidden);
        for (const auto& arg : args) {
            on += " " + describeResource(arg.opcode, arg.path, ctx.config);
        }
        if (o.map) {
            handle = velaHalclient::vela_res_listening_register_map_by_path(pathMap(args), 0,
                                                                            printer);
        } else if (allPaths(args)) {
            handle = velaHalclient::vela_res_listening_register_by_path(pathsOf(args), 0, printer);
        } else {
            auto list = toList(args);
            handle = velaHalclient::velaResListeningRegister(list, 0, printer);
        }
    }
    if (handle < 1) return failed(ctx, "listen", handle);
    printer->setHandle(handle);
    ctx.lastListener = handle;
    Json::Value json;
    json["listener"] = handle;
    json["thermal"] = o.thermal;
    ctx.out.result(std::string(o.thermal ? "thermal listener " : "listener ") +
                           std::to_string(handle) + " on" + on,
                   json);
    const bool bounded = !o.count.empty() || !o.waitMs.empty();
    if (ctx.scriptMode && !bounded) return kExitOk;  // stays in the background

    // In the foreground: until enough callbacks, the time is up, or Ctrl-C.
    const size_t count = o.count.empty() ? SIZE_MAX : parseInt(o.count, "count");
    const auto wait = std::chrono::milliseconds(
            o.waitMs.empty() ? (o.count.empty() ? INT32_MAX : 10000) : parseInt(o.waitMs, "wait"));
    bool enough;
    {
        InterruptScope scope;
        enough = waitFor([&] { return printer->heard() >= count; }, wait);
    }
    if (o.thermal) {
        velaHalclient::velaThermalListeningUnregister(handle);
    } else {
        velaHalclient::velaResListeningUnRegister(handle);
    }
    if (!o.count.empty() && !enough) {
        ctx.out.error("heard " + std::to_string(printer->heard()) + " of " + o.count +
                      " callbacks");
        return kExitFailed;
    }
    return kExitOk;
}

void bindThermal(CLI::App& app, ThermalOptions& o) {
    app.add_option("levels", o.levels, "ID=LEVEL ...")->required();
}

int runThermal(Context& ctx, ThermalOptions& o) {
    velaHalclient::ResourceList levels;
    for (const auto& text : o.levels) {
        const size_t equals = text.find('=');
        if (equals == std::string::npos || equals + 1 == text.size()) {
            throw UsageError{"'" + text + "': write ID=LEVEL"};
        }
        const int32_t id = parseInt(text.substr(0, equals), "thermal subsystem id");
        levels.push_back(Resource{static_cast<uint32_t>(id), text.substr(equals + 1)});
    }
    const int rc = velaHalclient::velaThermalNotify(levels, 0);
    if (rc != 0) return failed(ctx, "thermal", rc);
    ctx.out.result("thermal levels sent", Json::Value(0));
    return kExitOk;
}

}  // namespace velactl
