// velactl's man page, written from the command table so that every command has its section:
// synopsis, options and examples, as --help would give them one command at a time.
#pragma once

#include <string>

#include "Commands.h"

namespace velactl {

// roff for man(1); `usage` and `environment` are the texts of velactl --help.
std::string manPage(Commands& commands, const std::string& usage, const std::string& environment);

}  // namespace velactl
