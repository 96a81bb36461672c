// velactl and vela-service as a user runs them: scripts through `run -` against an embedded
// service, the exit code and first words for each kind of mistake, and velactl against a
// service in another process that dies or is interrupted.
#include <gtest/gtest.h>
#include <json/json.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ChildService.h"
#include "RunProgram.h"
#include "Waiter.h"

namespace {

using namespace paxtest;

// Runs velactl with `args`, feeding `input` on its standard input.
Outcome velactl(std::vector<std::string> args, const std::string& input = "") {
    return finish(*launch(VELACTL_PATH, std::move(args), input));
}

// The run ended with `exitCode` and said every one of `fragments` (on either stream).
testing::AssertionResult endsWith(const Outcome& run, int exitCode,
                                  std::initializer_list<std::string> fragments = {}) {
    std::string missing = run.exitCode != exitCode ? "exit " + std::to_string(exitCode) : "";
    for (const auto& fragment : fragments) {
        if (!run.says(fragment)) missing += "\n'" + fragment + "'";
    }
    if (missing.empty()) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "expected " << missing << "\ngot " << run;
}

// velactl holding what `script` asks for while it runs (a request lives no longer than the
// process that made it); ready once it has printed `requests` handles.
struct Holding {
    Holding(const std::string& script, size_t requests)
        : child(launch(VELACTL_PATH, {"run", "-"}, script + "await 1 --timeout 600000\n")) {
        EXPECT_TRUE(waitUntil([&] {
            const std::string out = child->read(1);
            handles.clear();
            for (size_t at = out.find("handle "); at != std::string::npos;
                 at = out.find("handle ", at + 1)) {
                handles.push_back(std::to_string(std::atol(out.c_str() + at + 7)));
            }
            return handles.size() >= requests;
        })) << finish(*child);
    }
    ~Holding() {
        kill(child->pid, SIGKILL);
        exitCodeOf(child->pid);
    }
    std::unique_ptr<Launch> child;
    std::vector<std::string> handles;
};

TEST(VelactlTest, ScriptDrivesTheServiceThroughEveryLayer) {
    const Outcome run = velactl({"--embedded", "run", "-"}, R"(
# the wrapper by name, then its resources in force
acquire launch --pkg com.example.mail
acquire touch_boost -d 0500      # decimal: a leading zero makes no octal
release $handle
state cpu.little.freq_min sched.little.target_load
listen cpu.little.freq_min
request cpu.little.freq_min=2000000 --duration 150
await 2 --timeout 3000     # the request, then its expiry
release $handle --via pax
rule 7 on sched.little.target_load=33
state --pax sched.little.target_load
state /dev/cpuctl/top-app/cpu.uclamp.min
history on
notify 3 1 2
history get
)");
    EXPECT_TRUE(endsWith(
            run, 0,
            {"ACTION_LAUNCH (event 0): handle ", ", until released", "for 500 ms",
             "0x01010010 cpu.little.freq_min = 1804800\n"
             "0x010108a0 sched.little.target_load = 60",
             "  0x01010010 cpu.little.freq_min = 2000000",
             "0x010108a0 sched.little.target_load = 33", "/dev/cpuctl/top-app/cpu.uclamp.min = 30",
             "notify cmd 3 param 0 values 1 2"}));
    EXPECT_EQ(run.err, "") << run;
}

// Every result of every command, as a script (every-command.vela) runs them with --json, is one
// JSON object.
TEST(VelactlTest, EveryJsonResultIsOneObject) {
    const Outcome run = velactl({"--embedded", "--json", "run", VELACTL_EVERY_COMMAND_PATH});
    ASSERT_EQ(run.exitCode, 0) << run;
    std::vector<Json::Value> docs;
    std::istringstream lines(run.out);
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    for (std::string line; std::getline(lines, line);) {
        Json::Value doc;
        ASSERT_TRUE(reader->parse(line.data(), line.data() + line.size(), &doc, nullptr)) << line;
        ASSERT_TRUE(doc.isObject()) << line;
        docs.push_back(doc);
    }
    ASSERT_GE(docs.size(), 33u) << run;
    // docs[i] answers the script's line i + 1.
    EXPECT_EQ(docs[2]["action"].asString(), "ACTION_CAMERA_PREVIEW");
    EXPECT_EQ(docs[2]["via"].asString(), "pax");  // an id goes straight to PaxEventAcquire
    EXPECT_EQ(docs[3]["resources"][0]["name"].asString(), "cpu.prime.freq_max");
    EXPECT_EQ(docs[3]["resources"][0]["value"].asString(), "1958400");
    EXPECT_EQ(docs[4]["released"], docs[2]["handle"]);
    // A Pax release reports nothing back, so velactl claims no more than that it was sent.
    EXPECT_EQ(docs[6]["release"].asString(), "sent");
    EXPECT_FALSE(docs[6].isMember("released"));
    for (const auto& doc : docs) {
        if (doc.isMember("run-map")) {
            EXPECT_EQ(doc["run-map"]["written_to"], "velactl");
        }
    }
}

// What a user gets wrong (bad-input.json): the exit code, and what the first line of the
// answer says.
TEST(VelactlTest, BadInputIsRefusedBeforeAnythingIsSentWithItsOwnExitCode) {
    std::string many = "request";
    for (int i = 0; i < 257; ++i) many += " cpu.little.freq_min=1";
    std::ifstream in(VELACTL_BAD_INPUT_PATH);
    Json::Value table;
    ASSERT_TRUE(Json::Reader().parse(in, table) && table.size() > 0) << VELACTL_BAD_INPUT_PATH;
    for (const Json::Value& bad : table) {
        const bool isVelactl = bad["program"].asString() == "velactl";
        std::vector<std::string> args;
        if (isVelactl) args.push_back("--embedded");
        for (const Json::Value& arg : bad["args"]) args.push_back(arg.asString());
        const Outcome run = finish(*launch(isVelactl ? VELACTL_PATH : VELA_SERVICE_PATH, args,
                                           args.back() == "-" ? many : ""));
        EXPECT_EQ(run.exitCode, bad["exit"].asInt()) << run;
        EXPECT_NE(run.err.substr(0, run.err.find('\n')).find(bad["says"].asString()),
                  std::string::npos)
                << run;
    }
}

TEST(VelactlTest, NoServiceIsReportedAtOnceWithWhereVelactlLooked) {
    // The test's socket directory holds no service, and nothing is declared yet.
    const auto started = std::chrono::steady_clock::now();
    EXPECT_TRUE(endsWith(velactl({"state", "0x01010010"}), 69,
                         {std::string("in ") + getenv("HOSTBINDER_DIR") + " ($HOSTBINDER_DIR)",
                          "/vintf does not exist"}));

    // Declared but not running: halclient would wait for it; velactl must not.
    paxtest::ServiceHarness declared;
    ASSERT_TRUE(declared.declareOnly());
    EXPECT_TRUE(endsWith(velactl({"request", "0x01010010=1"}), 69, {"declared in"}));

    // A directory others may write to is not looked into, and both doors say why.
    const char* dir = getenv("HOSTBINDER_DIR");
    ASSERT_EQ(chmod(dir, 0777), 0);
    EXPECT_TRUE(endsWith(velactl({"status"}), 69, {"(refused: ", "writable by group or others"}));
    EXPECT_TRUE(endsWith(velactl({"state", "0x01010010"}), 69,
                         {std::string("cannot use ") + dir + ": "}));
    ASSERT_EQ(chmod(dir, 0700), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
}

TEST(VelactlTest, RunStopsAtTheFirstFailingLineUnlessToldToGoOn) {
    const std::string script = "prop set vendor.a 1\nrelease 42\nprop get vendor.a\n";
    const Outcome run = velactl({"--embedded", "run", "-"}, script);
    EXPECT_TRUE(endsWith(run, 1, {"stdin:2: 'release 42' exited with 1"}));
    EXPECT_FALSE(run.says("vendor.a = 1"));
    EXPECT_TRUE(endsWith(velactl({"--embedded", "run", "--keep-going", "-"}, script), 1,
                         {"vendor.a = 1"}));
    EXPECT_TRUE(endsWith(velactl({"--embedded", "run", "-"}, "echo 'unterminated\n"), 65));
    // A failing line is quoted in part only: it may be megabytes long.
    const Outcome huge = velactl({"--embedded", "run", "-"}, "state " + std::string(100000, 'x'));
    EXPECT_EQ(huge.exitCode, 64) << huge;  // an unknown name, however long
    EXPECT_LT(huge.err.size(), 2000u) << huge;
}

TEST(VelactlTest, StateOutlivesOneVelactlWhenTheServiceRunsApart) {
    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH));
    // A higher ceiling loses to the preview's, seen by a velactl other than the holder. (The
    // dump's rows of every claim are the service's own text: DumpsysTablesTest.)
    const Holding holding(
            "acquire ACTION_CAMERA_PREVIEW --duration 60000\n"
            "request cpu.prime.freq_max=2000000 -d 60000\n",
            2);
    ASSERT_EQ(holding.handles.size(), 2u);
    Outcome run = velactl({"state", "cpu.prime.freq_max"});
    EXPECT_EQ(run.out, "0x010100c0 cpu.prime.freq_max = 1958400\n") << run;
    EXPECT_TRUE(endsWith(velactl({"dumpsys", "resources", "claims"}), 64,
                         {"unknown table 'claims'; tables: resources requests"}));
    EXPECT_TRUE(endsWith(velactl({"dump", "run-map"}), 0,
                         {"the service wrote its run map to its log"}));
    // Not an empty table: the table is somewhere velactl cannot see.
    EXPECT_TRUE(endsWith(velactl({"--json", "dump", "run-map"}), 0,
                         {R"({"run-map":{"written_to":"service log"}})"}));
}

// listen against a service apart: its death ends listen with 69, Ctrl-C with 130 and without
// waiting for a service that is gone.
TEST(VelactlTest, ListenEndsOnTheServiceDeathAndOnCtrlC) {
    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH, {"-q"}));
    auto listening = [](const std::vector<std::string>& extra = {}) {
        std::vector<std::string> args = {"listen", "cpu.little.freq_min"};
        args.insert(args.end(), extra.begin(), extra.end());
        auto child = launch(VELACTL_PATH, args);
        EXPECT_TRUE(paxtest::waitUntil([&] { return child->read(1).find("listener") == 0; },
                                       std::chrono::seconds(10)));
        return child;
    };

    auto child = listening();
    kill(child->pid, SIGINT);
    EXPECT_TRUE(endsWith(finish(*child), 130));

    child = listening();
    service.kill();
    EXPECT_TRUE(endsWith(finish(*child), 69, {"the service died; listener"}));

    // With --follow it waits for the service; Ctrl-C while it is gone still ends it at once.
    ASSERT_TRUE(service.restart());
    child = listening({"--follow"});
    service.kill();
    EXPECT_TRUE(paxtest::waitUntil(
            [&] { return child->read(2).find("waiting for it to return") != std::string::npos; },
            std::chrono::seconds(10)));
    kill(child->pid, SIGINT);
    EXPECT_TRUE(endsWith(finish(*child), 130));
}

TEST(VelactlTest, DemoCompletesEveryStep) {
    const Outcome run = velactl({"--embedded", "-v", "demo"});
    EXPECT_TRUE(endsWith(run, 0, {"every check passed"}));
    // Leaving must not read to the library as the embedded service dying.
    EXPECT_FALSE(run.says("died")) << run;
}

// velactl in a pseudo-terminal, as a person runs it: what it drew, and keys typed at it.
struct OnTerminal {
    pid_t pid = -1;
    int master = -1;
    std::string drawn;

    explicit OnTerminal(std::vector<std::string> args) {
        args.insert(args.begin(), VELACTL_PATH);
        const paxtest::ChildCommand command(VELACTL_PATH, args);
        struct winsize size = {60, 120, 0, 0};
        pid = forkpty(&master, nullptr, nullptr, &size);
        if (pid == 0) command.exec();
    }
    ~OnTerminal() { close(master); }

    // The last screen: what was drawn since the last move to the top-left corner.
    std::string screen() {
        char buffer[4096];
        for (pollfd ready{master, POLLIN, 0}; poll(&ready, 1, 0) > 0;) {
            const ssize_t n = read(master, buffer, sizeof(buffer));
            if (n <= 0) break;
            drawn.append(buffer, static_cast<size_t>(n));
        }
        const size_t home = drawn.rfind("\x1b[H");
        return home == std::string::npos ? "" : drawn.substr(home);
    }
    bool shows(const std::string& text) {
        return paxtest::waitUntil([&] { return screen().find(text) != std::string::npos; },
                                  std::chrono::seconds(10));
    }
    bool typedAtOnce() {  // the terminal as velactl found it: lines, echoed
        struct termios mode = {};
        return tcgetattr(master, &mode) == 0 && (mode.c_lflag & ICANON) && (mode.c_lflag & ECHO);
    }
};

// top on a terminal against a service apart: a launch's floor rises on the screen and falls
// with its release, heard through the listener alone (the periodic refresh is an hour away);
// q and Ctrl-C leave with the terminal restored, q also while the service is stopped.
TEST(VelactlTest, TopRedrawsOnChangeAndLeavesTheTerminalAsItWas) {
    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH, {"-q"}));
    OnTerminal top({"top", "--interval", "3600000", "cpu.little.freq_min"});
    ASSERT_TRUE(top.shows("0x01010010 cpu.little.freq_min = 300000\x1b[K")) << top.drawn;
    EXPECT_FALSE(top.typedAtOnce());

    const Holding holding("acquire launch\n", 1);
    ASSERT_EQ(holding.handles.size(), 1u);
    EXPECT_TRUE(top.shows("cpu.little.freq_min = 1804800")) << top.drawn;
    const std::string launchLine = "handle " + holding.handles[0] + " ACTION_LAUNCH pkg ";
    EXPECT_TRUE(top.shows(launchLine)) << top.drawn;
    ASSERT_EQ(velactl({"release", holding.handles[0]}).exitCode, 0);
    EXPECT_TRUE(top.shows("cpu.little.freq_min = 300000")) << top.drawn;
    EXPECT_TRUE(top.shows("requests (0):\x1b[J")) << top.drawn;

    ASSERT_EQ(write(top.master, "q", 1), 1);
    EXPECT_EQ(exitCodeOf(top.pid), 0) << top.drawn;
    EXPECT_TRUE(top.typedAtOnce());

    // A stopped service: the frame is drawn again as stale, with its age, and q still leaves.
    OnTerminal stale({"--timeout", "0.5", "top", "--interval", "100", "cpu.little.freq_min"});
    ASSERT_TRUE(stale.shows("cpu.little.freq_min = 300000")) << stale.drawn;
    kill(service.pid(), SIGSTOP);
    EXPECT_TRUE(stale.shows("STALE: the service has not answered for")) << stale.drawn;
    ASSERT_EQ(write(stale.master, "q", 1), 1);
    EXPECT_EQ(exitCodeOf(stale.pid), 0) << stale.drawn;
    EXPECT_TRUE(stale.typedAtOnce());
    kill(service.pid(), SIGCONT);

    OnTerminal interrupted({"top", "cpu.big.freq_max"});
    ASSERT_TRUE(interrupted.shows("cpu.big.freq_max = 2803200")) << interrupted.drawn;
    ASSERT_EQ(write(interrupted.master, "\x03", 1), 1);
    EXPECT_EQ(exitCodeOf(interrupted.pid), 130) << interrupted.drawn;
    EXPECT_TRUE(interrupted.typedAtOnce());
}

// Not on a terminal: one plain block per refresh, as many as asked; input from a file does
// not end the view at once. A held request is listed, as a line and as the service's row,
// until its release.
TEST(VelactlTest, TopPrintsPlainBlocksOffTheTerminal) {
    const Outcome run = velactl(
            {"--embedded", "top", "--interval", "10", "--iterations", "2", "cpu.little.freq_min"});
    const std::string block =
            ": on change and every 10 ms\n0x01010010 cpu.little.freq_min = 300000\n"
            "requests (0):\n";
    // Each block's time, "at 2026-11-24T02:36:38.915Z", is left out of the comparison.
    std::string untimed = run.out;
    for (size_t at; (at = untimed.find(" at 20")) != std::string::npos;) untimed.erase(at, 28);
    EXPECT_EQ(untimed, "refresh 1" + block + "refresh 2" + block) << run;
    EXPECT_EQ(run.exitCode, 0) << run;

    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH, {"-q"}));
    const Holding holding("acquire launch --duration 600000\n", 1);
    ASSERT_EQ(holding.handles.size(), 1u);
    const std::vector<std::string> once = {"top", "--iterations", "1", "cpu.little.freq_min"};
    EXPECT_TRUE(velactl(once).says("requests (1):\n  handle " + holding.handles[0] +
                                   " ACTION_LAUNCH pkg "));
    std::vector<std::string> json = once;
    json.insert(json.begin(), "--json");
    Json::Value doc;
    ASSERT_TRUE(Json::Reader().parse(velactl(json).out, doc));
    EXPECT_EQ(doc["requests"][0]["action"], "ACTION_LAUNCH") << doc;
    EXPECT_GT(doc["requests"][0]["ms_left"].asInt64(), 0) << doc;
    ASSERT_EQ(velactl({"release", holding.handles[0]}).exitCode, 0);
    EXPECT_TRUE(velactl(once).says("requests (0):\n"));
    ASSERT_TRUE(Json::Reader().parse(velactl(json).out, doc));
    EXPECT_EQ(doc["requests"], Json::Value(Json::arrayValue)) << doc;
}

}  // namespace
