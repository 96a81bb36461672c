#include "Commands.h"

#include <iostream>

#include "Embedded.h"
#include "ResourceArgs.h"
#include "ToolCommands.h"

namespace velactl {

Commands::Commands(Context& ctx, Mode mode)
    : mCtx(ctx), mApp("velactl: drive the resource-control service", "velactl") {
    mApp.require_subcommand(1);
    mApp.fallthrough(false);
    const Where skipped = mode == Mode::kScript ? Where::kTopLevel : Where::kScript;
    for (const CommandDef& def : commandTable()) {
        if (def.where == skipped) continue;
        CLI::App* sub = mApp.add_subcommand(def.name, def.help);
        mBound[sub] = Bound{def.needs, def.attach(*sub, ctx)};
    }
}

std::vector<std::string> Commands::names() const {
    std::vector<std::string> out;
    for (const auto* sub : mApp.get_subcommands({})) out.push_back(sub->get_name());
    return out;
}

int Commands::execute(std::vector<std::string> args) {
    // An unknown first word gets the nearest command names, not a generic parse error.
    if (!args.empty() && !args[0].empty() && args[0][0] != '-') {
        const auto known = names();
        if (std::find(known.begin(), known.end(), args[0]) == known.end()) {
            mCtx.out.error("unknown command '" + args[0] + "'" + suggestion(args[0], known) +
                           " (velactl --help lists them)");
            return kExitUnknownName;
        }
    }
    std::reverse(args.begin(), args.end());
    try {
        mApp.parse(args);
    } catch (const CLI::CallForHelp&) {
        std::cout << mApp.help();
        return kExitOk;
    } catch (const CLI::CallForAllHelp&) {
        std::cout << mApp.help("", CLI::AppFormatMode::All);
        return kExitOk;
    } catch (const CLI::ParseError& e) {
        mCtx.out.error(e.what());
        return kExitUnknownName;
    }
    for (const CLI::App* sub : mApp.get_subcommands()) {
        auto it = mBound.find(sub);
        if (it == mBound.end()) continue;
        try {
            if (it->second.needs == Needs::kService && !mCtx.embedded) {
                if (int rc = requireService(mCtx); rc != kExitOk) return rc;
            }
            clearServiceLines();
            return it->second.run();
        } catch (const UsageError& e) {
            mCtx.out.error(e.message);
            return e.code;
        } catch (const std::exception& e) {
            // The library lets a few standard errors through (a non-numeric answer, say).
            mCtx.out.error(sub->get_name() + ": the library raised " + e.what());
            return kExitFailed;
        }
    }
    return kExitUnknownName;
}

}  // namespace velactl
