// velactl against a service in another process, on what outlives one command: a request held
// while velactl (or the command after --) runs, the service's reason for a refusal, who holds a
// resource and what changed it, and resource names taken from the service itself.
#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "ChildService.h"
#include "RunProgram.h"
#include "Waiter.h"

namespace {

using namespace paxtest;

Outcome velactl(std::vector<std::string> args) {
    return finish(*launch(VELACTL_PATH, std::move(args)));
}

std::string littleFloor() {
    return velactl({"state", "cpu.little.freq_min"}).out;
}

// A velactl holding a request until a signal: started, and seen to say so.
std::unique_ptr<Launch> holding(std::vector<std::string> args) {
    auto child = launch(VELACTL_PATH, std::move(args));
    EXPECT_TRUE(
            waitUntil([&] { return child->read(2).find("holding handle") != std::string::npos; },
                      std::chrono::seconds(10)))
            << child->read(2);
    return child;
}

class VelactlHoldTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH, {"-q"})); }
    ChildService service;
};

TEST_F(VelactlHoldTest, ARequestHoldsWhileVelactlOrItsCommandRuns) {
    const std::string raised = "0x01010010 cpu.little.freq_min = 2000000\n";
    const std::string idle = "0x01010010 cpu.little.freq_min = 300000\n";
    for (int signal : {SIGINT, SIGTERM}) {
        auto child = holding({"request", "cpu.little.freq_min=2000000"});
        EXPECT_EQ(littleFloor(), raised);
        kill(child->pid, signal);
        const Outcome run = finish(*child);
        EXPECT_EQ(run.exitCode, 0) << run;
        EXPECT_TRUE(run.says("released handle")) << run;
        EXPECT_EQ(littleFloor(), idle);
    }
    // The command sees the request in force, and its status is velactl's.
    Outcome run = velactl({"request", "cpu.little.freq_min=2000000", "--",
                           kernelRunnable(VELACTL_PATH), "state", "cpu.little.freq_min"});
    EXPECT_EQ(run.exitCode, 0) << run;
    EXPECT_TRUE(run.says(raised)) << run;
    EXPECT_EQ(velactl({"acquire", "launch", "--", "sh", "-c", "exit 3"}).exitCode, 3);
    run = velactl({"request", "cpu.little.freq_min=1", "--", "/nonexistent/command"});
    EXPECT_EQ(run.exitCode, 127) << run;
    EXPECT_TRUE(run.says("cannot run /nonexistent/command")) << run;
    EXPECT_EQ(littleFloor(), idle);
}

TEST_F(VelactlHoldTest, TheServicesReasonForARefusalReachesVelactl) {
    const Outcome run = velactl({"request", "sched.little.target_load=1500000", "-d", "100"});
    EXPECT_EQ(run.exitCode, 1) << run;
    EXPECT_TRUE(
            run.says("reason: control request: item 0: sched.little.target_load: 1500000 is "
                     "outside [0, 100]"))
            << run;
}

TEST_F(VelactlHoldTest, WhyNamesTheHoldersAndTheCauseOfEachChange) {
    auto holder = holding({"acquire", "launch", "--pkg", "com.example.why"});
    ASSERT_EQ(velactl({"request", "cpu.little.freq_min=2000000", "-d", "50"}).exitCode, 0);
    ASSERT_EQ(velactl({"rule", "7", "on", "sched.little.target_load=33"}).exitCode, 0);
    EXPECT_TRUE(waitUntil(
            [] {
                return velactl({"why", "cpu.little.freq_min"}).says("expiry:");
            },
            std::chrono::seconds(10)));

    Outcome run = velactl({"--json", "why", "sched.little.target_load"});
    Json::Value doc;
    ASSERT_TRUE(Json::Reader().parse(run.out, doc)) << run;
    const Json::Value& row = doc["why"][0];
    EXPECT_EQ(row["value"], "33") << row;
    EXPECT_EQ(row["holder"], "rule 7") << row;
    const Json::Value& launch = row["claims"][0];
    EXPECT_EQ(launch["pid"].asInt(), holder->pid) << row;
    // The name the kernel gives the holder: in a cross build, the emulator that runs velactl.
    const std::string emulator = PAX_TEST_EMULATOR;
    const std::string process =
            emulator.empty() ? "velactl" : emulator.substr(emulator.rfind('/') + 1);
    EXPECT_EQ(launch["process"], process) << row;
    EXPECT_EQ(launch["package"], "com.example.why") << row;
    EXPECT_EQ(launch["action"], "ACTION_LAUNCH") << row;
    EXPECT_TRUE(launch["until"].isNull()) << row;
    std::vector<std::string> causes;
    for (const Json::Value& change : row["changes"]) causes.push_back(change["cause"].asString());
    EXPECT_EQ(causes, (std::vector<std::string>{"acquire", "rule"})) << row;

    kill(holder->pid, SIGINT);
    EXPECT_EQ(finish(*holder).exitCode, 0);
    run = velactl({"why", "cpu.little.freq_min"});
    EXPECT_TRUE(run.says(" -> 2000000 acquire: request ")) << run;
    EXPECT_TRUE(run.says("2000000 -> 1804800 expiry: request ")) << run;
    EXPECT_TRUE(run.says("1804800 -> 300000 release: request ")) << run;
    EXPECT_EQ(velactl({"why", "/nothing/here"}).exitCode, 2);
}

TEST(VelactlNamesTest, NamesComeFromTheServiceVelactlTalksTo) {
    char file[] = "/tmp/velactl-names-XXXXXX";
    const int fd = mkstemp(file);
    ASSERT_GE(fd, 0);
    close(fd);
    std::ofstream(file) << R"({"resources": [{"opcode": "0x01990010", "name": "test.knob",
        "default": "1", "type": "integer", "range": [0, 9]}]})";
    ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH, {"-q", "--config", file}));
    // Hex, as the help says: the service reads decimal, velactl converts.
    const Outcome held = velactl(
            {"request", "test.knob=0x5", "--", kernelRunnable(VELACTL_PATH), "state", "test.knob"});
    EXPECT_EQ(held.exitCode, 0) << held;
    EXPECT_TRUE(held.says("0x01990010 test.knob = 5\n")) << held;
    // Not the service's: velactl's own built-in table does not speak for it.
    EXPECT_EQ(velactl({"state", "cpu.little.freq_min"}).exitCode, 64);
    unlink(file);
}

}  // namespace
