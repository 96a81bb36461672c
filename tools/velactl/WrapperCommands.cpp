#include "WrapperCommands.h"

#include <PaxWrapper.h>

#include "Reporting.h"

namespace velactl {

using PaxClient::Resource;

void bindNotifySource(CLI::App& app, NotifySourceOptions& o) {
    app.add_option("src", o.src, "source (1-131, 1000, 9000)")->required();
    app.add_option("type", o.type, "type (often 1 on, 0 off)")->required();
    app.add_option("--data", o.data, "data text (target loads, colocation, ...)");
    app.add_option("--level", o.level, "level (game upgrade)");
    app.add_option("--text", o.text, "game text");
}

int runNotifySource(Context& ctx, NotifySourceOptions& o) {
    const int32_t src = parseInt(o.src, "source");
    const int32_t type = parseInt(o.type, "type");
    PaxNotifyWapper(o.data, src, type, parseInt(o.level, "level"), 0, 0, o.text);
    ctx.out.result("notification from source " + o.src + " sent", Json::Value(0));
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
        list = getGameUpgradeList(0, 0, parseInt(o.level, "level"), 0, 0, o.text);
    } else {
        throw UsageError{"unknown list '" + o.kind + "'" +
                                 suggestion(o.kind, {"target-load", "colocation", "game-adp",
                                                     "game-upgrade"}),
                         kExitUnknownName};
    }
    ResourceListing listing(ctx);
    for (const auto& r : list) listing.add(r.id, "", r.value);
    ctx.out.result(listing.text.empty() ? "(empty list)" : listing.text, listing.items);
    return kExitOk;
}

void bindGameUpgradeClear(CLI::App& app, GameUpgradeClearOptions& o) {
    app.add_option("rule", o.rule, "rule id")->required();
    app.add_option("status", o.status, "status")->required();
}

int runGameUpgradeClear(Context& ctx, GameUpgradeClearOptions& o) {
    clrGameUpgradeMode(parseInt(o.rule, "rule id"), parseInt(o.status, "status"));
    ctx.out.result("game upgrade mode cleared", Json::Value(0));
    return kExitOk;
}

}  // namespace velactl
