// Ending what a request or a listener started.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Context.h"

namespace velactl {

struct ReleaseOptions {
    std::string handle;
    std::string via;
};
void bindRelease(CLI::App& app, ReleaseOptions& o);
int runRelease(Context& ctx, ReleaseOptions& o);

struct UnlistenOptions {
    std::string handle;
    bool thermal = false;
};
void bindUnlisten(CLI::App& app, UnlistenOptions& o);
int runUnlisten(Context& ctx, UnlistenOptions& o);

}  // namespace velactl
