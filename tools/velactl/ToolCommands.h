// velactl's own commands: the action table, where the service is, and the guided tour.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Context.h"

namespace velactl {

struct ActionsOptions {
    std::string filter;
};
void bindActions(CLI::App& app, ActionsOptions& o);
int runActions(Context& ctx, ActionsOptions& o);

int runStatus(Context& ctx);
int runDemo(Context& ctx);

// Requires the service to be reachable now (never waits); prints where velactl looked and
// returns kExitUnavailable when it is not.
int requireService(Context& ctx);

}  // namespace velactl
