// dumpsys: the service's own tables (resources with their claims, requests, listeners, rules,
// history, properties), written by the service through the binder dump hook and printed as
// they come.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

struct DumpsysOptions {
    std::vector<std::string> tables;
    bool json = false;  // also taken here, for scripts, where --json is no global option
};
void bindDumpsys(CLI::App& app, DumpsysOptions& o);
int runDumpsys(Context& ctx, DumpsysOptions& o);

}  // namespace velactl
