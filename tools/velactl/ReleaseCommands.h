// Ending what a request or a listener started.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "Context.h"

namespace velactl {

struct ReleaseOptions {
    int32_t handle = 0;
    std::string via = "hal";
};
void bindRelease(CLI::App& app, ReleaseOptions& o);
int runRelease(Context& ctx, ReleaseOptions& o);

struct UnlistenOptions {
    int32_t handle = 0;
    bool thermal = false;
};
void bindUnlisten(CLI::App& app, UnlistenOptions& o);
int runUnlisten(Context& ctx, UnlistenOptions& o);

}  // namespace velactl
