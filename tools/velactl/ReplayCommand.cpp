#include "ReplayCommand.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>

#include "ReplayReport.h"

namespace velactl {

using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;

const char kReplayUsage[] =
        "Usage: velactl [--config A] [--trace FILE] [--json] replay RECORD [--against B]\n"
        "Plays RECORD (vela-service --record, velactl --embedded --record) in an embedded\n"
        "service on a virtual clock, with configuration A (the built-in one when not given),\n"
        "and prints per resource the time at each value, the time-weighted mean, the number\n"
        "of changes and the longest hold with its holder. With --against B, plays it with B\n"
        "too and prints where the values in force differ, with the calls behind each range.\n"
        "--trace writes the replay's timeline (trace-event JSON, on the virtual clock).\n";

namespace {

// A configuration named on the command line, or the built-in one.
std::optional<ScenarioConfig> configFrom(Context& ctx, const std::string& file, int* code) {
    if (file.empty()) return ScenarioConfig::builtIn();
    std::string error;
    auto config = ScenarioConfig::load(file, &error);
    if (!config) {
        ctx.out.error(error);
        *code = access(file.c_str(), R_OK) != 0 ? kExitNoInput : kExitData;
    }
    return config;
}

void printJson(const Json::Value& doc) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    fputs((Json::writeString(builder, doc) + "\n").c_str(), stdout);
}

}  // namespace

int replayCommand(Context& ctx, const std::vector<std::string>& args, const std::string& configFile,
                  const std::string& traceFile) {
    std::string record, against;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--help" || args[i] == "-h") {
            fputs(kReplayUsage, stdout);
            return kExitOk;
        } else if (args[i] == "--against" && i + 1 < args.size()) {
            against = args[++i];
        } else if (record.empty() && !args[i].empty() && args[i][0] != '-') {
            record = args[i];
        } else {
            ctx.out.error("replay: unexpected '" + args[i] + "'");
            fputs(kReplayUsage, stderr);
            return kExitUsage;
        }
    }
    if (record.empty()) {
        ctx.out.error("replay: which record? (velactl replay RECORD)");
        return kExitUsage;
    }
    int code = kExitOk;
    const auto configA = configFrom(ctx, configFile, &code);
    if (!configA) return code;
    ReplayTimeline a;
    std::string error;
    if (!replayRecord(record, *configA, &a, &error)) {
        ctx.out.error(error);
        return access(record.c_str(), R_OK) != 0 ? kExitNoInput : kExitData;
    }
    if (!traceFile.empty()) {
        std::ofstream trace(traceFile, std::ios::trunc);
        trace << replayTraceJson(a);
        if (!trace) {
            ctx.out.error("cannot write the timeline " + traceFile);
            return kExitNoInput;
        }
    }
    if (against.empty()) {
        if (ctx.out.json()) {
            printJson(replaySummaryJson(a));
        } else {
            fputs(replaySummaryText(a).c_str(), stdout);
        }
        return kExitOk;
    }
    const auto configB = configFrom(ctx, against, &code);
    if (!configB) return code;
    ReplayTimeline b;
    if (!replayRecord(record, *configB, &b, &error)) {
        ctx.out.error(error);
        return kExitData;
    }
    if (ctx.out.json()) {
        printJson(replayDiffJson(a, b));
    } else {
        fputs(replayDiffText(a, b).c_str(), stdout);
    }
    return kExitOk;
}

}  // namespace velactl
