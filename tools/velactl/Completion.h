// The bash completion script, made from the commands themselves so that it never lags them,
// and the candidates it asks velactl for while the user types.
#pragma once

#include <string>

#include "Commands.h"
#include "Context.h"

namespace velactl {

std::string bashCompletion(Commands& commands);

// `velactl --complete KIND` (not in --help: the completion script runs it): one candidate a
// line. KIND is actions, resources, handles, listeners, tables or dumps; the exit code.
int printCandidates(Context& ctx, const std::string& kind);

}  // namespace velactl
