// The wrapper's scenario texts: notifications turned into rules, and the lists they build.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Context.h"

namespace velactl {

struct NotifySourceOptions {
    std::string src;
    std::string type;
    std::string data;
    std::string level = "0";
    std::string text;
};
void bindNotifySource(CLI::App& app, NotifySourceOptions& o);
int runNotifySource(Context& ctx, NotifySourceOptions& o);

struct BuildOptions {
    std::string kind;
    std::string text;
    std::string level = "0";
};
void bindBuild(CLI::App& app, BuildOptions& o);
int runBuild(Context& ctx, BuildOptions& o);

struct GameUpgradeClearOptions {
    std::string rule;
    std::string status;
};
void bindGameUpgradeClear(CLI::App& app, GameUpgradeClearOptions& o);
int runGameUpgradeClear(Context& ctx, GameUpgradeClearOptions& o);

}  // namespace velactl
