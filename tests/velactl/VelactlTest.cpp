// velactl as a user runs it: scripts through `run -` against an embedded service, the exit
// code of each kind of mistake, and the tool against a service in another process.
#include <PaxWrapper.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "ChildService.h"
#include "ScenarioConfig.h"

namespace {

using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;

struct Outcome {
    int exitCode = -1;
    std::string out;
    std::string err;

    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);) result.push_back(line);
        return result;
    }
    bool says(const std::string& fragment) const {
        return out.find(fragment) != std::string::npos || err.find(fragment) != std::string::npos;
    }
};

std::ostream& operator<<(std::ostream& os, const Outcome& run) {
    return os << "exit " << run.exitCode << "\n--- stdout\n"
              << run.out << "--- stderr\n"
              << run.err;
}

// Runs velactl with `args`, feeding `input` on its standard input; kills it after 30 s.
Outcome velactl(std::vector<std::string> args, const std::string& input = "") {
    int in[2], out[2], err[2];
    if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) return {};
    args.insert(args.begin(), VELACTL_PATH);
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);

    const pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    close(err[1]);
    signal(SIGPIPE, SIG_IGN);
    if (!input.empty()) (void)!write(in[1], input.data(), input.size());
    close(in[1]);

    Outcome run;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    std::string* sinks[2] = {&run.out, &run.err};
    int open = 2;
    while (open > 0 && std::chrono::steady_clock::now() < deadline) {
        if (poll(fds, 2, 100) <= 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
            if (n > 0) {
                sinks[i]->append(buffer, n);
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    if (open > 0) kill(pid, SIGKILL);
    for (auto& fd : fds) {
        if (fd.fd >= 0) close(fd.fd);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

TEST(VelactlTest, ScriptDrivesTheServiceThroughEveryLayer) {
    const Outcome run = velactl({"--embedded", "run", "-"}, R"(
# the wrapper by name, then its resources in force
acquire launch --pkg com.example.mail
state cpu.little.freq_min sched.little.target_load
listen cpu.little.freq_min
request cpu.little.freq_min=1000 --duration 150
await 2 --timeout 3000     # the request, then its expiry
release $handle --via pax
rule 7 on sched.little.target_load=33
state --pax sched.little.target_load
state /dev/cpuctl/top-app/cpu.uclamp.min
history on
notify 3 1 2
history get
)");
    ASSERT_EQ(run.exitCode, 0) << run;
    EXPECT_TRUE(run.says("ACTION_LAUNCH (event 0): handle 1, until released")) << run;
    EXPECT_TRUE(
            run.says("0x01010010 cpu.little.freq_min = 1804800\n"
                     "0x010108a0 sched.little.target_load = 60"))
            << run;
    EXPECT_TRUE(run.says("  0x01010010 cpu.little.freq_min = 1000")) << run;
    EXPECT_TRUE(run.says("0x010108a0 sched.little.target_load = 33")) << run;
    EXPECT_TRUE(run.says("/dev/cpuctl/top-app/cpu.uclamp.min = 30")) << run;
    EXPECT_TRUE(run.says("notify cmd 3 param 0 values 1 2")) << run;
    EXPECT_EQ(run.err, "") << run;
}

TEST(VelactlTest, JsonModePrintsOneDocumentPerResult) {
    const Outcome run = velactl({"--embedded", "--json", "run", "-"},
                                "acquire 17\nstate 0x010100c0 0x7f000001\nrelease $handle\n");
    ASSERT_EQ(run.exitCode, 0) << run;
    const auto lines = run.lines();
    ASSERT_EQ(lines.size(), 3u) << run;
    std::vector<Json::Value> docs;
    for (const auto& line : lines) {
        Json::Value doc;
        std::string errors;
        std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        ASSERT_TRUE(reader->parse(line.data(), line.data() + line.size(), &doc, &errors)) << line;
        docs.push_back(doc);
    }
    EXPECT_EQ(docs[0]["action"].asString(), "ACTION_CAMERA_PREVIEW");
    EXPECT_EQ(docs[0]["via"].asString(), "pax");  // an id goes straight to PaxEventAcquire
    EXPECT_EQ(docs[1][0]["name"].asString(), "cpu.prime.freq_max");
    EXPECT_EQ(docs[1][0]["value"].asString(), "1958400");
    EXPECT_TRUE(docs[1][1]["value"].isNull());
    EXPECT_EQ(docs[2]["released"], docs[0]["handle"]);
}

TEST(VelactlTest, EachKindOfMistakeHasItsOwnExitCodeAndAHelpfulMessage) {
    Outcome run = velactl({"--embedded", "staet", "0x01010010"});
    EXPECT_EQ(run.exitCode, 2) << run;
    EXPECT_TRUE(run.says("unknown command 'staet', did you mean state?")) << run;

    run = velactl({"--embedded", "acquire", "ACTION_LANCH"});
    EXPECT_EQ(run.exitCode, 2) << run;
    EXPECT_TRUE(run.says("did you mean ACTION_LAUNCH")) << run;

    for (const char* bad :
         {"0xZZ=1", "0x01010010", "0x01010010=", "cpu.litle.freq_min=1", "/sys/../x=1"}) {
        run = velactl({"--embedded", "request", bad});
        EXPECT_EQ(run.exitCode, 3) << bad << "\n" << run;
    }
    EXPECT_TRUE(velactl({"--embedded", "request", "cpu.litle.freq_min=1"})
                        .says("did you mean cpu.little.freq_min"));
    EXPECT_EQ(velactl({"--embedded", "release", "three"}).exitCode, 3);

    // The service's own refusals come back with its reason.
    run = velactl({"--embedded", "release", "99"});
    EXPECT_EQ(run.exitCode, 1) << run;
    EXPECT_TRUE(run.says("refused by the service: unknown handle (-2)")) << run;
    EXPECT_TRUE(run.says("no active request with handle 99")) << run;
}

TEST(VelactlTest, NoServiceIsReportedAtOnceWithWhereVelactlLooked) {
    // The test's socket directory holds no service, and nothing is declared yet.
    const auto started = std::chrono::steady_clock::now();
    Outcome run = velactl({"state", "0x01010010"});
    EXPECT_EQ(run.exitCode, 4) << run;
    EXPECT_TRUE(run.says(std::string("in ") + getenv("HOSTBINDER_DIR") + " ($HOSTBINDER_DIR)"))
            << run;
    EXPECT_TRUE(run.says("/declared does not exist")) << run;

    // Declared but not running: halclient would wait for it; velactl must not.
    paxtest::ServiceHarness declared;
    ASSERT_TRUE(declared.declareOnly());
    run = velactl({"request", "0x01010010=1"});
    EXPECT_EQ(run.exitCode, 4) << run;
    EXPECT_TRUE(run.says("declared in")) << run;
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
}

TEST(VelactlTest, RunStopsAtTheFirstFailingLineUnlessToldToGoOn) {
    const std::string script = "prop set vendor.a 1\nrelease 42\nprop get vendor.a\n";
    Outcome run = velactl({"--embedded", "run", "-"}, script);
    EXPECT_EQ(run.exitCode, 1) << run;
    EXPECT_TRUE(run.says("stdin:2: 'release 42' exited with 1")) << run;
    EXPECT_FALSE(run.says("vendor.a = 1")) << run;

    run = velactl({"--embedded", "run", "--keep-going", "-"}, script);
    EXPECT_EQ(run.exitCode, 1) << run;
    EXPECT_TRUE(run.says("vendor.a = 1")) << run;

    run = velactl({"--embedded", "run", "-"}, "echo 'unterminated\n");
    EXPECT_EQ(run.exitCode, 3) << run;
}

TEST(VelactlTest, StateOutlivesOneVelactlWhenTheServiceRunsApart) {
    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH));
    Outcome run = velactl({"acquire", "ACTION_CAMERA_PREVIEW", "--duration", "60000"});
    ASSERT_EQ(run.exitCode, 0) << run;
    run = velactl({"state", "cpu.prime.freq_max"});
    EXPECT_EQ(run.out, "0x010100c0 cpu.prime.freq_max = 1958400\n") << run;
    run = velactl({"dump", "run-map"});
    EXPECT_EQ(run.exitCode, 0) << run;
    EXPECT_TRUE(run.says("the service wrote its run map to its log")) << run;
}

TEST(VelactlTest, DemoCompletesEveryStep) {
    const Outcome run = velactl({"--embedded", "demo"});
    EXPECT_EQ(run.exitCode, 0) << run;
    EXPECT_TRUE(run.says("every check passed")) << run;
}

TEST(VelactlTest, ConfiguredScenariosNameTheirEventsAsTheActionTableDoes) {
    // The service reads event N as the N-th action; a scenario filed under the wrong id would
    // silently apply to another action.
    for (const auto& [event, scenario] : ScenarioConfig::builtIn().scenarios()) {
        ASSERT_LT(static_cast<size_t>(event), gActionList.size());
        EXPECT_EQ(gActionList[event], scenario.action) << "event " << event;
    }
}

}  // namespace
