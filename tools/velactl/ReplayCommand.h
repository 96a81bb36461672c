// velactl replay RECORD [--against B]: a record played on a virtual clock (Replay.h).
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Context.h"

namespace velactl {

// Configuration A is velactl's own --config (the built-in one without it); the timeline goes
// to velactl's --trace (Context::traceFile).
struct ReplayOptions {
    std::string record;
    std::string against;  // configuration B, when the two are compared
};
void bindReplay(CLI::App& app, ReplayOptions& o);
int runReplay(Context& ctx, ReplayOptions& o);

}  // namespace velactl
