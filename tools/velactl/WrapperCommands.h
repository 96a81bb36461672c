// The wrapper's scenario texts: notifications turned into rules, and the lists they build.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "Context.h"

namespace velactl {

struct NotifySourceOptions {
    int32_t src = 0;
    int32_t type = 0;
    std::string data;
    int32_t level = 0;
    std::string text;
};
void bindNotifySource(CLI::App& app, NotifySourceOptions& o);
int runNotifySource(Context& ctx, NotifySourceOptions& o);

struct BuildOptions {
    std::string kind;
    std::string text;
    int32_t level = 0;
};
void bindBuild(CLI::App& app, BuildOptions& o);
int runBuild(Context& ctx, BuildOptions& o);

struct GameUpgradeClearOptions {
    int32_t rule = 0;
    int32_t status = 0;
};
void bindGameUpgradeClear(CLI::App& app, GameUpgradeClearOptions& o);
int runGameUpgradeClear(Context& ctx, GameUpgradeClearOptions& o);

}  // namespace velactl
