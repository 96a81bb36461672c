// velactl replay RECORD [--against B]: a record played on a virtual clock (Replay.h).
#pragma once

#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

extern const char kReplayUsage[];

// `args` follow the word "replay"; `configFile` and `traceFile` are velactl's --config and
// --trace. Returns the exit code.
int replayCommand(Context& ctx, const std::vector<std::string>& args, const std::string& configFile,
                  const std::string& traceFile);

}  // namespace velactl
