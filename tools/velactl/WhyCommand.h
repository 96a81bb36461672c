// `velactl why RESOURCE...`: the value in force, who holds it (process, package, identity,
// event or action, handle, since and until when) and what changed it lately, from the
// service's dumpsys table "why".
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

struct WhyOptions {
    std::vector<std::string> resources;
};
void bindWhy(CLI::App& app, WhyOptions& o);
int runWhy(Context& ctx, WhyOptions& o);

}  // namespace velactl
