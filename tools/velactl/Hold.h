// How a request made from the command line lives: a request without a duration is held for as
// long as velactl runs (the service drops what a gone process held), so velactl stays until
// Ctrl-C or SIGTERM and then releases it; `-- COMMAND ARGS...` holds it for the life of the
// command instead and leaves with the command's status. In a script the script's own process
// holds it, so nothing waits there.
#pragma once

#include <cstdint>
#include <string>

#include "Context.h"

namespace velactl {

// The commands that hold what they ask for, and so take `-- COMMAND ARGS...`.
bool holdsRequests(const std::string& command);

// After a granted request: holds `handle` as said above, releases it and answers the exit
// code (the command's status with a command). Returns at once with a duration and no command.
int holdRequest(Context& ctx, int32_t handle, int32_t durationMs);

// The footer of the holding commands' --help.
extern const char kHoldHelp[];

}  // namespace velactl
