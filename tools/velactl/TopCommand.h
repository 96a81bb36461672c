// top: a live view of the values in force and of the service's active requests, redrawn when
// a listener hears a change and at a slow interval besides.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

struct TopOptions {
    std::vector<std::string> resources;  // empty: every resource the configuration names
    int32_t intervalMs = 1000;
    int32_t iterations = 0;  // 0: until q, Ctrl-C or the end of the input
    bool follow = false;     // a service that dies is waited for, and shown again
};
void bindTop(CLI::App& app, TopOptions& o);
int runTop(Context& ctx, TopOptions& o);

}  // namespace velactl
