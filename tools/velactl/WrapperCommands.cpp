#include "WrapperCommands.h"

#include <PaxWrapper.h>

#include "ControlCommands.h"
#include "NumberOptions.h"
#include "Reporting.h"

namespace velactl {

using PaxClient::Resource;

void bindNotifySource(CLI::App& app, NotifySourceOptions& o) {
    addNumber(app, "SOURCE", o.src, "source (1-131, 1000, 9000)", kAnyInt32, "INT")->required();
    addNumber(app, "TYPE", o.type, "type (often 1 on, 0 off)", kAnyInt32, "INT")->required();
    addText(app, "--data", o.data, "data text (target loads, colocation, ...)");
    addNumber(app, "--level", o.level, "level (game upgrade)", kAnyInt32, "INT");
    addText(app, "--text", o.text, "game text");
}

int runNotifySource(Context& ctx, NotifySourceOptions& o) {
    // The wrapper returns nothing: what the service made of it is not told.
    PaxNotifyWapper(o.data, o.src, o.type, o.level, 0, 0, o.text);
    Json::Value json;
    json["notification"] = "sent";
    json["source"] = o.src;
    json["type"] = o.type;
    ctx.out.result("notification from source " + std::to_string(o.src) + " sent", json);
    return kExitOk;
}

void bindBuild(CLI::App& app, BuildOptions& o) {
    app.add_option("kind", o.kind, "target-load, colocation, game-adp or game-upgrade")->required();
    app.add_option("text", o.text, "the scenario text");
    app.add_option("--level", o.level, "level (game-upgrade)");
}

int runBuild(Context& ctx, BuildOptions& o) {
    std::vector<Resource> list;
    if (o.kind == "target-load") {
        list = getTargetLoadList(o.text);
    } else if (o.kind == "colocation") {
        list = getColocationList(o.text);
    } else if (o.kind == "game-adp") {
        list = getGameAdpList(o.text);
    } else if (o.kind == "game-upgrade") {
        list = getGameUpgradeList(0, 0, o.level, 0, 0, o.text);
    } else {
        throw UsageError{"unknown list '" + o.kind + "'" +
                                 suggestion(o.kind, {"target-load", "colocation", "game-adp",
                                                     "game-upgrade"}),
                         kExitUsage};
    }
    ResourceListing listing(ctx);
    for (const auto& r : list) listing.add(r.id, "", r.value);
    Json::Value json;
    json["resources"] = listing.items;
    ctx.out.result(listing.text.empty() ? "(empty list)" : listing.text, json);
    return kExitOk;
}

void bindGameUpgradeClear(CLI::App& app, GameUpgradeClearOptions& o) {
    addNumber(app, "RULE", o.rule, "rule id", kAnyInt32, "INT")->required();
    addNumber(app, "STATUS", o.status, "status", kAnyInt32, "INT")->required();
}

int runGameUpgradeClear(Context& ctx, GameUpgradeClearOptions& o) {
    clrGameUpgradeMode(o.rule, o.status);
    Json::Value json;
    json["game_upgrade_mode"] = "clear sent";
    ctx.out.result("game upgrade mode clear sent", json);
    return kExitOk;
}

}  // namespace velactl
