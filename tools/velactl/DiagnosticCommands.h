// The service's properties, its history recording, and the tables it dumps to its log.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

struct PropOptions {
    std::string action;
    std::vector<std::string> args;
};
void bindProp(CLI::App& app, PropOptions& o);
int runProp(Context& ctx, PropOptions& o);

struct HistoryOptions {
    std::string action;
};
void bindHistory(CLI::App& app, HistoryOptions& o);
int runHistory(Context& ctx, HistoryOptions& o);

struct DumpOptions {
    std::vector<std::string> tables;
};
void bindDump(CLI::App& app, DumpOptions& o);
int runDump(Context& ctx, DumpOptions& o);

}  // namespace velactl
