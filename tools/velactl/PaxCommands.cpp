#include "PaxCommands.h"

#include <PaxEvent.h>
#include <PaxWrapper.h>

#include <cctype>

#include "ControlCommands.h"
#include "Hold.h"
#include "Limits.h"
#include "NumberOptions.h"
#include "Reporting.h"

namespace velactl {

using PaxClient::Resource;

void bindInit(CLI::App& app, InitOptions& o) {
    app.add_flag("--pax", o.pax, "use the Pax event interface (paxInit)");
}

int runInit(Context& ctx, InitOptions& o) {
    if (!o.pax) {
        velaHalclient::vela_init();
        Json::Value json;
        json["init"] = "sent";
        ctx.out.result("init sent", json);
        return kExitOk;
    }
    const int32_t rc = paxInit();
    if (rc != 0) return failed(ctx, "paxInit", rc);
    Json::Value json;
    json["init"] = "ok";
    ctx.out.result("paxInit: ok", json);
    return kExitOk;
}

void bindAcquire(CLI::App& app, AcquireOptions& o) {
    app.add_option("ACTION", o.action, "action name (ACTION_LAUNCH, launch) or event id")
            ->required()
            ->type_name("");
    app.add_option("RESOURCE", o.resources, "extra resources OPCODE=VALUE")->type_name("");
    addText(app, "--pkg", o.pkg, "package name");
    addText(app, "--identity", o.identity, "identity text");
    addDuration(app, o.durationMs);
    app.add_option("--via", o.via, "pax: send a name through PaxEventAcquire too")
            ->check(CLI::IsMember({"pax"}))
            ->type_name("pax");
}

int runAcquire(Context& ctx, AcquireOptions& o) {
    const auto args = parseResources(o.resources, ctx.config, ValueRule::kRequired);
    auto resources = toVector(args, "acquire");
    const int32_t duration = o.durationMs;
    int32_t event;
    std::string action;
    const bool numeric = !o.action.empty() &&
                         (isdigit(static_cast<unsigned char>(o.action[0])) || o.action[0] == '-');
    if (numeric) {
        event = parseInt(o.action, "event id");
        // The service reads event N as the N-th action: any other number names nothing.
        if (event < 0 || static_cast<size_t>(event) >= gActionList.size()) {
            throw UsageError{"event id " + o.action + " is not in the action table (0 to " +
                             std::to_string(gActionList.size() - 1) +
                             "; velactl actions lists them)"};
        }
        action = gActionList[event];
    } else {
        auto found = findAction(o.action);
        if (!found) {
            throw UsageError{"unknown action '" + o.action + "'" +
                                     suggestion(o.action, gActionList) +
                                     " (velactl actions lists them)",
                             kExitUsage};
        }
        event = *found;
        action = gActionList[event];
    }
    const bool viaWrapper = !numeric && resources.empty() && o.via != "pax";
    const int32_t handle =
            viaWrapper ? PaxEventAcquireWrapper("MIRDAL_" + action, o.pkg, o.identity, duration)
                       : PaxEventAcquire(event, o.pkg, o.identity, duration, resources);
    const std::string what = action + " (event " + std::to_string(event) + ")";
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
    return holdRequest(ctx, handle, duration);
}

void bindNotify(CLI::App& app, NotifyOptions& o) {
    addNumber(app, "CMD", o.cmd, "command id", kAnyInt32, "INT")->required();
    addNumber(app, "VALUE", o.values, "values", kAnyInt32, "INT");
    addNumber(app, "--param", o.param, "second integer of the items", kAnyInt32, "INT");
}

int runNotify(Context& ctx, NotifyOptions& o) {
    checkItemCount(o.values.size() + 2, "notification items");
    const int32_t rc = PaxNotify(o.cmd, o.param, o.values);
    if (rc < 0) return failed(ctx, "notify", rc);
    Json::Value json;
    json["result"] = rc;
    ctx.out.result("notification sent: " + std::to_string(rc), json);
    return kExitOk;
}

void bindRule(CLI::App& app, RuleOptions& o) {
    addNumber(app, "RULE", o.id, "rule id", kAnyInt32, "INT")->required();
    app.add_option("STATUS", o.status, "on, off or a status number")->required()->type_name("");
    app.add_option("RESOURCE", o.resources, "OPCODE[=VALUE] ...")->type_name("");
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
    const int32_t rc = paxRuleCtl(o.id, status, resources);
    const std::string rule = "rule " + std::to_string(o.id);
    if (rc != 0) return failed(ctx, rule, rc);
    Json::Value json;
    json["rule"] = o.id;
    json["status"] = status;
    ctx.out.result(rule + (status != 0 ? " on" : " off"), json);
    return kExitOk;
}

void bindSysinfo(CLI::App& app, SysinfoOptions& o) {
    addNumber(app, "INFO", o.info, "info id", kAnyInt32, "INT")->required();
    addNumber(app, "VALUE", o.value, "64-bit value", kAnyInt64, "INT")->required();
}

int runSysinfo(Context& ctx, SysinfoOptions& o) {
    const int32_t rc = setRelatedSysInfo(o.info, o.value);
    if (rc != 0) return failed(ctx, "sysinfo", rc);
    Json::Value json;
    json["info"] = o.info;
    json["value"] = static_cast<Json::Int64>(o.value);
    ctx.out.result("system info sent", json);
    return kExitOk;
}

void bindPm(CLI::App& app, PmOptions& o) {
    addNumber(app, "MODE", o.mode, "power mode", kAnyInt32, "INT")->required();
}

int runPm(Context& ctx, PmOptions& o) {
    const int32_t status = PaxGetPMStatus(o.mode);
    const std::string mode = std::to_string(o.mode);
    if (status < 0) return failed(ctx, "pm " + mode, status);
    Json::Value json;
    json["mode"] = o.mode;
    json["status"] = status;
    ctx.out.result("power mode " + mode + ": " + std::to_string(status), json);
    return kExitOk;
}

int runDataset(Context& ctx) {
    std::vector<Resource> out;
    const int32_t rc = Pax_fetch_dataset(out);
    if (rc < 0) return failed(ctx, "dataset", rc);
    ResourceListing listing(ctx);
    for (const auto& r : out) listing.add(r.id, "", r.value);
    Json::Value json;
    json["resources"] = listing.items;
    ctx.out.result(listing.text, json);
    return kExitOk;
}

int runPower(Context& ctx) {
    const int32_t mw = PaxGetPowerConsis();
    // The library answers -1 when the call fails: never a figure to print.
    if (mw < 0) return failed(ctx, "power", mw);
    Json::Value json;
    json["power"] = mw;
    ctx.out.result("power consumption: " + std::to_string(mw), json);
    return kExitOk;
}

}  // namespace velactl
