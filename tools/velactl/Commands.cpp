#include "Commands.h"

#include <algorithm>
#include <iostream>
#include <optional>

#include "CallDeadline.h"
#include "Embedded.h"
#include "Hold.h"
#include "ResourceArgs.h"
#include "ServiceNames.h"
#include "ServiceWatch.h"
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

std::string Commands::overview(size_t width) const {
    std::string text;
    for (const auto* sub : mApp.get_subcommands({})) {
        std::string line = "  " + sub->get_name();
        line.resize(22, ' ');
        // Wrapped at word boundaries under the description column.
        std::string word, words = sub->get_description() + " ";
        size_t column = line.size();
        for (char c : words) {
            if (c != ' ') {
                word += c;
                continue;
            }
            if (column + word.size() > width && column > 22) {
                line += "\n" + std::string(22, ' ');
                column = 22;
            }
            line += word + " ";
            column += word.size() + 1;
            word.clear();
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        text += line + "\n";
    }
    return text;
}

std::vector<std::string> Commands::names() const {
    std::vector<std::string> out;
    for (const auto* sub : mApp.get_subcommands({})) out.push_back(sub->get_name());
    return out;
}

int Commands::execute(std::vector<std::string> args) {
    if (!args.empty() && args[0].size() > 1 && args[0][0] == '-') {
        mCtx.out.error("unknown option '" + clip(args[0], kEchoLimit) +
                       "' before the command (velactl --help lists the options)");
        return kExitUsage;
    }
    // An unknown first word gets the nearest command names, not a generic parse error.
    if (!args.empty() && !args[0].empty() && args[0][0] != '-') {
        const auto known = names();
        if (std::find(known.begin(), known.end(), args[0]) == known.end()) {
            mCtx.out.error("unknown command '" + clip(args[0], kEchoLimit) + "'" +
                           suggestion(args[0], known) + " (velactl --help lists them)");
            return kExitUsage;
        }
    }
    const std::string name = args.empty() ? "" : args[0];
    // A holding command runs what follows `--` for as long as its request holds; elsewhere
    // `--` keeps the meaning the parser gives it.
    mCtx.heldCommand.clear();
    if (const auto dashes = std::find(args.begin(), args.end(), "--");
        dashes != args.end() && holdsRequests(name)) {
        mCtx.heldCommand.assign(dashes + 1, args.end());
        args.erase(dashes, args.end());
        if (mCtx.heldCommand.empty()) {
            mCtx.out.error(name + ": nothing to run after -- (velactl " + name + " --help)");
            return kExitUsage;
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
    } catch (const CLI::ValidationError& e) {
        mCtx.out.error(name + ": " + e.what());
        return kExitData;
    } catch (const CLI::ConversionError& e) {
        mCtx.out.error(name + ": " + e.what());
        return kExitData;
    } catch (const CLI::ParseError& e) {
        mCtx.out.error(name + ": " + e.what() + " (velactl " + name + " --help)");
        return kExitUsage;
    }
    for (const CLI::App* sub : mApp.get_subcommands()) {
        auto it = mBound.find(sub);
        if (it == mBound.end()) continue;
        try {
            std::optional<WaitNotice> notice;
            // Every call the command makes is bounded; its deliberate waits pause the clock.
            std::optional<CallDeadline> deadline;
            if (it->second.needs == Needs::kService) deadline.emplace(sub->get_name());
            if (it->second.needs == Needs::kService && !mCtx.embedded) {
                if (int rc = requireService(mCtx); rc != kExitOk) return rc;
                notice.emplace(mCtx);
                useServiceNames(mCtx);
            }
            clearServiceLines();
            return it->second.run();
        } catch (const UsageError& e) {
            mCtx.out.error(e.message);
            return e.code;
        } catch (const std::exception& e) {
            // The library lets a few standard errors through (a non-numeric answer, say).
            mCtx.out.error(sub->get_name() + ": the library raised " + e.what());
            return kExitSoftware;
        }
    }
    return kExitUsage;
}

}  // namespace velactl
