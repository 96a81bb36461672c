#include "ReplayCommand.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <optional>

#include "Replay.h"
#include "ReplayReport.h"

namespace velactl {

using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;

namespace {

const char kReplayHelp[] =
        "\nPlays RECORD (vela-service --record, velactl --embedded --record) in a service inside\n"
        "velactl whose clock the record moves, with velactl's --config (the built-in\n"
        "configuration when not given), and prints per resource the time at each value, the\n"
        "time-weighted mean, the number of changes and the longest hold with its holder.\n"
        "With --against B, plays it with B too and prints where the values in force differ,\n"
        "with the calls behind each range. velactl's --trace FILE takes the replay's timeline\n"
        "(trace-event JSON, on the virtual clock); --json prints one object.\n";

// Configuration B, which the user named.
std::optional<ScenarioConfig> configFrom(Context& ctx, const std::string& file, int* code) {
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

int runReplay(Context& ctx, ReplayOptions& o) {
    ReplayTimeline a;
    std::string error;
    if (!replayRecord(o.record, ctx.config, &a, &error)) {
        ctx.out.error(error);
        return access(o.record.c_str(), R_OK) != 0 ? kExitNoInput : kExitData;
    }
    if (!ctx.traceFile.empty()) {
        std::ofstream trace(ctx.traceFile, std::ios::trunc);
        trace << replayTraceJson(a);
        if (!trace) {
            ctx.out.error("cannot write the timeline " + ctx.traceFile);
            return kExitNoInput;
        }
    }
    if (o.against.empty()) {
        if (ctx.out.json()) {
            printJson(replaySummaryJson(a));
        } else {
            fputs(replaySummaryText(a).c_str(), stdout);
        }
        return kExitOk;
    }
    int code = kExitOk;
    const auto configB = configFrom(ctx, o.against, &code);
    if (!configB) return code;
    ReplayTimeline b;
    if (!replayRecord(o.record, *configB, &b, &error)) {
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

void bindReplay(CLI::App& app, ReplayOptions& o) {
    app.footer(kReplayHelp);
    app.add_option("RECORD", o.record, "a record of calls")->required()->type_name("");
    app.add_option("--against", o.against, "configuration B, to compare with")->type_name("FILE");
}

}  // namespace velactl
