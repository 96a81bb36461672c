// velactl and vela-service when the service is stopped, stuck or ends: no command waits for
// ever, the timeline is a whole document after a signal, a second service on the same
// directory steps back, and the lines that report the service's doings carry their time.
#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ChildService.h"
#include "RunProgram.h"
#include "ServiceHarness.h"
#include "Waiter.h"

namespace {

using namespace paxtest;

Outcome velactl(std::vector<std::string> args, const std::string& input = "") {
    return finish(*launch(VELACTL_PATH, std::move(args), input));
}

// Each result line of a --json run, parsed.
std::vector<Json::Value> jsonLines(const std::string& out) {
    std::vector<Json::Value> lines;
    std::istringstream text(out);
    for (std::string line; std::getline(text, line);) {
        Json::Value doc;
        std::istringstream one(line);
        if (Json::parseFromStream(Json::CharReaderBuilder(), one, &doc, nullptr)) {
            lines.push_back(doc);
        }
    }
    return lines;
}

// Every command family against a service under SIGSTOP gives up (the runner would kill it
// after 30 s, which reads as 137) with 69 and names what did not answer. All run at once.
TEST(StuckServiceTest, EveryCommandGivesUpOnAStoppedServiceWith69) {
    ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH, {"-q"}));
    ASSERT_EQ(kill(service.pid(), SIGSTOP), 0);
    const std::vector<std::vector<std::string>> commands = {
            {"state", "cpu.little.freq_min"},
            {"dumpsys"},
            {"acquire", "ACTION_LAUNCH"},
            {"request", "cpu.little.freq_min=1500000"},
            {"release", "1"},
            {"listen", "cpu.little.freq_min"},
            {"history", "get"},
            {"prop", "get", "x"},
            {"power"},
            {"pm", "0"},
            {"dataset"},
            {"init", "--pax"},
            {"thermal", "1=1"},
            {"top", "--iterations", "1"},
            {"run", "-"},
    };
    std::vector<std::unique_ptr<Launch>> runs;
    for (auto args : commands) {
        args.insert(args.begin(), {"--timeout", "0.5"});
        runs.push_back(launch(VELACTL_PATH, args, "state cpu.little.freq_min\n"));
    }
    auto status = launch(VELACTL_PATH, {"status"}, "", {"VELACTL_TIMEOUT=0.5"});
    for (size_t i = 0; i < runs.size(); ++i) {
        const Outcome run = finish(*runs[i]);
        EXPECT_EQ(run.exitCode, 69) << commands[i][0] << "\n" << run;
        EXPECT_TRUE(run.says("did not answer within 0.5 s")) << run;
    }
    const Outcome said = finish(*status);
    EXPECT_EQ(said.exitCode, 69) << said;
    EXPECT_TRUE(said.says("yes, but not answering")) << said;
    kill(service.pid(), SIGCONT);
    EXPECT_EQ(velactl({"status"}).exitCode, 0);
}

// vela-service started apart, with a timeline; answers once it serves.
std::unique_ptr<Launch> startService(const std::string& trace) {
    EXPECT_TRUE(declareVela());
    auto child = launch(VELA_SERVICE_PATH, {"--trace", trace});
    EXPECT_TRUE(
            waitUntil([] { return velactl({"status"}).exitCode == 0; }, std::chrono::seconds(10)));
    return child;
}

TEST(StuckServiceTest, SignalsCloseTheTimelineAndASecondServiceStepsBack) {
    const std::string trace = ::testing::TempDir() + "stop-" + std::to_string(getpid()) + ".json";
    for (int signal : {SIGTERM, SIGINT}) {
        auto child = startService(trace);
        ASSERT_EQ(velactl({"acquire", "ACTION_LAUNCH", "--", "true"}).exitCode, 0);
        if (signal == SIGTERM) {
            const Outcome second = finish(*launch(VELA_SERVICE_PATH, {"--trace", trace + "2"}));
            EXPECT_EQ(second.exitCode, 69) << second;
            EXPECT_TRUE(second.says("already serves")) << second;
            EXPECT_FALSE(second.says("ready:")) << second;
        }
        kill(child->pid, signal);
        const Outcome end = finish(*child);
        EXPECT_EQ(end.exitCode, 0) << end;
        EXPECT_TRUE(end.says(signal == SIGTERM ? "stopping on SIGTERM" : "stopping on SIGINT"))
                << end;
        // Strict JSON, the request's slice ended, the time base anchored to the wall clock.
        Json::CharReaderBuilder builder;
        Json::CharReaderBuilder::strictMode(&builder.settings_);
        Json::Value events;
        std::ifstream in(trace);
        std::string error;
        ASSERT_TRUE(Json::parseFromStream(builder, in, &events, &error)) << error;
        EXPECT_EQ(events[1]["name"], "clock_anchor");
        EXPECT_EQ(events[events.size() - 1]["name"], "trace closed");
    }
    unlink(trace.c_str());
}

// listen lines and top frames carry their time, as text and (with --json) as a number that
// never goes back.
TEST(StuckServiceTest, ListenLinesAndTopFramesCarryTheirTime) {
    const std::string script =
            "listen cpu.little.freq_min\nrequest cpu.little.freq_min=1500000 -d 50\nawait 2\n";
    const Outcome listened = velactl({"--embedded", "run", "-"}, script);
    ASSERT_EQ(listened.exitCode, 0) << listened;
    EXPECT_NE(listened.out.find("Z [listener "), std::string::npos) << listened;

    const Outcome json = velactl({"--embedded", "--json", "run", "-"}, script);
    const Outcome top =
            velactl({"--embedded", "--json", "top", "--iterations", "3", "--interval", "10"});
    ASSERT_EQ(top.exitCode, 0) << top;
    for (const Outcome* run : {&json, &top}) {
        int64_t last = 0;
        int stamped = 0;
        for (const Json::Value& line : jsonLines(run->out)) {
            if (!line.isMember("time_ms")) continue;
            ++stamped;
            EXPECT_GE(line["time_ms"].asInt64(), last) << *run;
            last = line["time_ms"].asInt64();
            const std::string iso = line["time"].asString();
            EXPECT_EQ(iso.size(), 24u) << iso;  // 2026-11-24T02:31:05.123Z
        }
        EXPECT_GE(stamped, 2) << *run;
    }
}

}  // namespace
