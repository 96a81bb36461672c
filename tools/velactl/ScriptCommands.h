// `run`: velactl commands read from a file, one per line, and the commands only scripts have.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <istream>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

// Splits one line of a script into words: blanks separate, quotes ('...' or "...") group,
// a backslash escapes the next character. Throws UsageError on an unterminated quote.
std::vector<std::string> splitWords(const std::string& line);

// A script whose service dies while its listeners are in the background stops there with 69,
// saying so, unless `keepListening`: the listeners are gone and what it awaits never comes.
int runScript(Context& ctx, std::istream& in, const std::string& name, bool keepGoing,
              bool keepListening = false);

struct RunOptions {
    std::string file;
    bool keepGoing = false;
    bool keepListening = false;  // go on when the service dies and takes the listeners along
};
void bindRun(CLI::App& app, RunOptions& o);
int runRun(Context& ctx, RunOptions& o);

struct SleepOptions {
    int32_t ms = 0;
};
void bindSleep(CLI::App& app, SleepOptions& o);
int runSleep(Context& ctx, SleepOptions& o);

struct AwaitOptions {
    int32_t count = 0;
    int32_t timeoutMs = 5000;
};
void bindAwait(CLI::App& app, AwaitOptions& o);
int runAwait(Context& ctx, AwaitOptions& o);

struct EchoOptions {
    std::vector<std::string> words;
};
void bindEcho(CLI::App& app, EchoOptions& o);
int runEcho(Context& ctx, EchoOptions& o);

}  // namespace velactl
