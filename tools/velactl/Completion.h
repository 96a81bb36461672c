// The bash completion script, made from the commands themselves so that it never lags them.
#pragma once

#include <string>

#include "Commands.h"

namespace velactl {

std::string bashCompletion(Commands& commands);

}  // namespace velactl
