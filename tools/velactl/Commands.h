// The subcommands: one per library entry point (grouped where only a flag tells variants
// apart), plus the tool's own (actions, status, run, demo).
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

class Commands {
public:
    enum class Mode {
        kTopLevel,  // the process's own command line
        kScript,    // one line of `run` (and the demo's steps)
    };

    Commands(Context& ctx, Mode mode);

    CLI::App& app() { return mApp; }
    std::vector<std::string> names() const;

    // Parses `args` (without the program name) and runs the chosen command; the exit code.
    int execute(std::vector<std::string> args);

private:
    struct Handler {
        bool needsService = true;
        std::function<int()> run;
    };
    CLI::App* add(const std::string& name, const std::string& help, bool needsService,
                  std::function<int()> run);
    void defineLibraryCommands();
    void defineToolCommands();

    Context& mCtx;
    const Mode mMode;
    CLI::App mApp;
    std::map<const CLI::App*, Handler> mHandlers;

    // Option storage; each command binds the fields it uses.
    struct Args {
        std::string target;  // action name, handle, key, ...
        std::string second;  // on/off, value, level, ...
        std::vector<std::string> items;
        std::string pkg;
        std::string identity;
        std::string duration = "0";
        std::string param = "0";
        std::string count;
        std::string waitMs;
        std::string via;
        std::string data;
        std::string level = "0";
        std::string text;
        std::string timeout = "5000";
        bool callback = false;
        bool thermal = false;
        bool map = false;
        bool pax = false;
        bool single = false;
        bool keepGoing = false;
    } mArgs;
};

// Requires the service to be reachable now (never waits); prints where velactl looked and
// returns kExitNoService when it is not.
int requireService(Context& ctx);

// Splits one line of a script into words: blanks separate, quotes ('...' or "...") group,
// a backslash escapes the next character. Throws UsageError on an unterminated quote.
std::vector<std::string> splitWords(const std::string& line);

int runScript(Context& ctx, std::istream& in, const std::string& name, bool keepGoing);
int runDemo(Context& ctx);

}  // namespace velactl
