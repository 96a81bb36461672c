// velactl as a user runs it: scripts through `run -` against an embedded service, the exit
// code of each kind of mistake, and the tool against a service in another process.
#include <PaxWrapper.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include "ChildService.h"
#include "ExecProgram.h"
#include "ScenarioConfig.h"

namespace {

using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;

struct Outcome {
    int exitCode = -1;
    std::string out;
    std::string err;

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
    // Unnamed files rather than pipes: nothing to drain while it runs, and they close with us.
    std::unique_ptr<FILE, int (*)(FILE*)> files[] = {
            {std::tmpfile(), fclose}, {std::tmpfile(), fclose}, {std::tmpfile(), fclose}};
    fputs(input.c_str(), files[0].get());
    fflush(files[0].get());
    rewind(files[0].get());
    args.insert(args.begin(), VELACTL_PATH);
    const paxtest::ChildCommand command(VELACTL_PATH, args);

    const pid_t pid = fork();
    if (pid == 0) {
        for (int fd = 0; fd < 3; ++fd) dup2(fileno(files[fd].get()), fd);
        command.exec();
    }
    int status = 0;
    pid_t done = 0;
    for (int i = 0; i < 3000 && (done = waitpid(pid, &status, WNOHANG)) == 0; ++i) usleep(10'000);
    if (done == 0) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    Outcome run;
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    for (auto [file, text] : {std::pair{files[1].get(), &run.out}, {files[2].get(), &run.err}}) {
        rewind(file);
        for (int c; (c = fgetc(file)) != EOF;) text->push_back(static_cast<char>(c));
    }
    return run;
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
    EXPECT_TRUE(endsWith(
            run, 0,
            {"ACTION_LAUNCH (event 0): handle 1, until released",
             "0x01010010 cpu.little.freq_min = 1804800\n"
             "0x010108a0 sched.little.target_load = 60",
             "  0x01010010 cpu.little.freq_min = 1000", "0x010108a0 sched.little.target_load = 33",
             "/dev/cpuctl/top-app/cpu.uclamp.min = 30", "notify cmd 3 param 0 values 1 2"}));
    EXPECT_EQ(run.err, "") << run;
}

TEST(VelactlTest, JsonModePrintsOneDocumentPerResult) {
    const Outcome run = velactl({"--embedded", "--json", "run", "-"},
                                "acquire 17\nstate 0x010100c0 0x7f000001\nrelease $handle\n");
    ASSERT_EQ(run.exitCode, 0) << run;
    std::vector<Json::Value> docs;
    std::istringstream lines(run.out);
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    for (std::string line; std::getline(lines, line);) {
        ASSERT_TRUE(reader->parse(line.data(), line.data() + line.size(), &docs.emplace_back(),
                                  nullptr))
                << line;
    }
    ASSERT_EQ(docs.size(), 3u) << run;
    EXPECT_EQ(docs[0]["action"].asString(), "ACTION_CAMERA_PREVIEW");
    EXPECT_EQ(docs[0]["via"].asString(), "pax");  // an id goes straight to PaxEventAcquire
    EXPECT_EQ(docs[1][0]["name"].asString(), "cpu.prime.freq_max");
    EXPECT_EQ(docs[1][0]["value"].asString(), "1958400");
    EXPECT_TRUE(docs[1][1]["value"].isNull());
    EXPECT_EQ(docs[2]["released"], docs[0]["handle"]);
}

TEST(VelactlTest, EachKindOfMistakeHasItsOwnExitCodeAndAHelpfulMessage) {
    EXPECT_TRUE(endsWith(velactl({"--embedded", "staet", "0x01010010"}), 2,
                         {"unknown command 'staet', did you mean state?"}));
    EXPECT_TRUE(endsWith(velactl({"--embedded", "acquire", "ACTION_LANCH"}), 2,
                         {"did you mean ACTION_LAUNCH"}));
    for (const char* bad : {"0xZZ=1", "0x01010010", "0x01010010=", "/sys/../x=1"}) {
        EXPECT_TRUE(endsWith(velactl({"--embedded", "request", bad}), 3)) << bad;
    }
    EXPECT_TRUE(endsWith(velactl({"--embedded", "request", "cpu.litle.freq_min=1"}), 3,
                         {"did you mean cpu.little.freq_min"}));
    EXPECT_TRUE(endsWith(velactl({"--embedded", "release", "three"}), 3));
    // The service's own refusals come back with its reason.
    EXPECT_TRUE(endsWith(
            velactl({"--embedded", "release", "99"}), 1,
            {"refused by the service: unknown handle (-2)", "no active request with handle 99"}));
}

TEST(VelactlTest, NoServiceIsReportedAtOnceWithWhereVelactlLooked) {
    // The test's socket directory holds no service, and nothing is declared yet.
    const auto started = std::chrono::steady_clock::now();
    EXPECT_TRUE(endsWith(velactl({"state", "0x01010010"}), 4,
                         {std::string("in ") + getenv("HOSTBINDER_DIR") + " ($HOSTBINDER_DIR)",
                          "/declared does not exist"}));

    // Declared but not running: halclient would wait for it; velactl must not.
    paxtest::ServiceHarness declared;
    ASSERT_TRUE(declared.declareOnly());
    EXPECT_TRUE(endsWith(velactl({"request", "0x01010010=1"}), 4, {"declared in"}));

    // A directory others may write to is not looked into, and both doors say why.
    const char* dir = getenv("HOSTBINDER_DIR");
    ASSERT_EQ(chmod(dir, 0777), 0);
    EXPECT_TRUE(endsWith(velactl({"status"}), 4, {"(refused: ", "writable by group or others"}));
    EXPECT_TRUE(endsWith(velactl({"state", "0x01010010"}), 4,
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
    EXPECT_TRUE(endsWith(velactl({"--embedded", "run", "-"}, "echo 'unterminated\n"), 3));
}

TEST(VelactlTest, StateOutlivesOneVelactlWhenTheServiceRunsApart) {
    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH));
    Outcome run = velactl({"acquire", "ACTION_CAMERA_PREVIEW", "--duration", "60000"});
    ASSERT_EQ(run.exitCode, 0) << run;
    run = velactl({"state", "cpu.prime.freq_max"});
    EXPECT_EQ(run.out, "0x010100c0 cpu.prime.freq_max = 1958400\n") << run;
    EXPECT_TRUE(endsWith(velactl({"dump", "run-map"}), 0,
                         {"the service wrote its run map to its log"}));
}

TEST(VelactlTest, DemoCompletesEveryStep) {
    EXPECT_TRUE(endsWith(velactl({"--embedded", "demo"}), 0, {"every check passed"}));
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
