// The parser for one velactl command line (or one line of a script), built from the command
// table, and the dispatch to the chosen command.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

#include "Command.h"
#include "Context.h"

namespace velactl {

// Every command velactl knows, in the order `--help` lists them.
const std::vector<CommandDef>& commandTable();

class Commands {
public:
    enum class Mode {
        kTopLevel,  // the process's own command line
        kScript,    // one line of `run` (and the demo's steps)
    };

    Commands(Context& ctx, Mode mode);

    CLI::App& app() { return mApp; }
    std::vector<std::string> names() const;
    // The commands and what each does, one (wrapped) entry each, for --help.
    std::string overview(size_t width = 100) const;

    // Parses `args` (without the program name) and runs the chosen command; the exit code.
    int execute(std::vector<std::string> args);

private:
    struct Bound {
        Needs needs;
        Runner run;
    };

    Context& mCtx;
    CLI::App mApp;
    std::map<const CLI::App*, Bound> mBound;
};

}  // namespace velactl
