#include "PaxCommands.h"

#include <PaxEvent.h>
#include <PaxWrapper.h>

#include <cctype>

#include "Reporting.h"

namespace velactl {

using PaxClient::Resource;

void bindInit(CLI::App& app, InitOptions& o) {
    app.add_flag("--pax", o.pax, "use the Pax event interface (paxInit)");
}

int runInit(Context& ctx, InitOptions& o) {
    if (!o.pax) {
        velaHalclient::vela_init();
        ctx.out.result("init sent", Json::Value("sent"));
        return kExitOk;
    }
    const int32_t rc = paxInit();
    if (rc != 0) return failed(ctx, "paxInit", rc);
    ctx.out.result("paxInit: ok", Json::Value(0));
    return kExitOk;
}

void bindAcquire(CLI::App& app, AcquireOptions& o) {
    app.add_option("action", o.action, "action name (ACTION_LAUNCH, launch) or event id")
            ->required();
    app.add_option("resources", o.resources, "extra resources OPCODE=VALUE");
    app.add_option("--pkg", o.pkg, "package name");
    app.add_option("--identity", o.identity, "identity text");
    app.add_option("-d,--duration", o.duration, "duration in ms (0: until released)");
    app.add_option("--via", o.via, "force 'pax' (PaxEventAcquire) for a name");
}

int runAcquire(Context& ctx, AcquireOptions& o) {
    const auto args = parseResources(o.resources, ctx.config, ValueRule::kRequired);
    auto resources = toVector(args, "acquire");
    const int32_t duration = parseInt(o.duration, "duration");
    int32_t event;
    std::string action;
    const bool numeric = !o.action.empty() &&
                         (isdigit(static_cast<unsigned char>(o.action[0])) || o.action[0] == '-');
    if (numeric) {
        event = parseInt(o.action, "event id");
        if (event >= 0 && static_cast<size_t>(event) < gActionList.size()) {
            action = gActionList[event];
        }
    } else {
        auto found = findAction(o.action);
        if (!found) {
            throw UsageError{"unknown action '" + o.action + "'" +
                                     suggestion(o.action, gActionList) +
                                     " (velactl actions lists them)",
                             kExitUnknownName};
        }
        event = *found;
        action = gActionList[event];
    }
    const bool viaWrapper = !numeric && resources.empty() && o.via != "pax";
    const int32_t handle =
            viaWrapper ? PaxEventAcquireWrapper("MIRDAL_" + action, o.pkg, o.identity, duration)
                       : PaxEventAcquire(event, o.pkg, o.identity, duration, resources);
    const std::string what = (action.empty() ? "event " + std::to_string(event)
                                             : action + " (event " + std::to_string(event) + ")");
    if (handle < 1) return failed(ctx, "acquire " + what, handle);
    ctx.lastHandle = handle;
    Json::Value json;
    json["action"] = action;
    json["event"] = event;
    json["handle"] = handle;
    json["via"] = viaWrapper ? "wrapper" : "pax";
    ctx.out.result(what + ": handle " + std::to_string(handle) +
                           (duration > 0 ? ", for " + std::to_string(duration) + " ms"
                                         : ", until released"),
                   json);
    return kExitOk;
}

void bindNotify(CLI::App& app, NotifyOptions& o) {
    app.add_option("cmd", o.cmd, "command id")->required();
    app.add_option("values", o.values, "values");
    app.add_option("--param", o.param, "second integer of the items");
}

int runNotify(Context& ctx, NotifyOptions& o) {
    std::vector<int32_t> values;
    for (const auto& text : o.values) values.push_back(parseInt(text, "value"));
    const int32_t rc = PaxNotify(parseInt(o.cmd, "command id"), parseInt(o.param, "param"), values);
    if (rc < 0) return failed(ctx, "notify", rc);
    ctx.out.result("notification sent: " + std::to_string(rc), Json::Value(rc));
    return kExitOk;
}

void bindRule(CLI::App& app, RuleOptions& o) {
    app.add_option("id", o.id, "rule id")->required();
    app.add_option("status", o.status, "on, off or a status number")->required();
    app.add_option("resources", o.resources, "OPCODE[=VALUE] ...");
}

int runRule(Context& ctx, RuleOptions& o) {
    int32_t status;
    if (o.status == "on") {
        status = 1;
    } else if (o.status == "off") {
        status = 0;
    } else {
        status = parseInt(o.status, "rule status (on, off or a number)");
    }
    auto resources =
            toVector(parseResources(o.resources, ctx.config, ValueRule::kOptional), "rule");
    const int32_t rc = paxRuleCtl(parseInt(o.id, "rule id"), status, resources);
    if (rc != 0) return failed(ctx, "rule " + o.id, rc);
    ctx.out.result("rule " + o.id + (status != 0 ? " on" : " off"), Json::Value(rc));
    return kExitOk;
}

void bindSysinfo(CLI::App& app, SysinfoOptions& o) {
    app.add_option("info", o.info, "info id")->required();
    app.add_option("value", o.value, "64-bit value")->required();
}

int runSysinfo(Context& ctx, SysinfoOptions& o) {
    const int32_t rc = setRelatedSysInfo(parseInt(o.info, "info"), parseLong(o.value, "value"));
    if (rc != 0) return failed(ctx, "sysinfo", rc);
    ctx.out.result("system info sent", Json::Value(rc));
    return kExitOk;
}

void bindPm(CLI::App& app, PmOptions& o) {
    app.add_option("mode", o.mode, "power mode")->required();
}

int runPm(Context& ctx, PmOptions& o) {
    const int32_t status = PaxGetPMStatus(parseInt(o.mode, "power mode"));
    if (status < 0) return failed(ctx, "pm " + o.mode, status);
    ctx.out.result("power mode " + o.mode + ": " + std::to_string(status), Json::Value(status));
    return kExitOk;
}

int runDataset(Context& ctx) {
    std::vector<Resource> out;
    const int32_t rc = Pax_fetch_dataset(out);
    if (rc < 0) return failed(ctx, "dataset", rc);
    ResourceListing listing(ctx);
    for (const auto& r : out) listing.add(r.id, "", r.value);
    ctx.out.result(listing.text, listing.items);
    return kExitOk;
}

int runPower(Context& ctx) {
    const int32_t mw = PaxGetPowerConsis();
    ctx.out.result("power consumption: " + std::to_string(mw), Json::Value(mw));
    return kExitOk;
}

}  // namespace velactl
