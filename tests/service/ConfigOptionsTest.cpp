// The program's two ways in for a configuration: --config refuses what --check-config refuses,
// with the same lines and exit code, and --check-config --exec-all shows what a scenario moves.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "ExecProgram.h"

namespace {

struct Outcome {
    int code = -1;
    std::string out;
    std::string err;
};

std::string drain(FILE* file) {
    std::string text;
    rewind(file);
    for (int c; (c = fgetc(file)) != EOF;) text.push_back(static_cast<char>(c));
    fclose(file);
    return text;
}

Outcome runService(const std::vector<std::string>& args) {
    std::vector<std::string> argv{VELA_SERVICE_PATH};
    argv.insert(argv.end(), args.begin(), args.end());
    const paxtest::ChildCommand command(VELA_SERVICE_PATH, argv);
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fileno(out), 1);
        dup2(fileno(err), 2);
        command.exec();
    }
    int status = 0;
    Outcome run;
    if (waitpid(pid, &status, 0) == pid && WIFEXITED(status)) run.code = WEXITSTATUS(status);
    run.out = drain(out);
    run.err = drain(err);
    return run;
}

TEST(ConfigOptionsTest, ServingRefusesWhatTheCheckRefusesInTheSameWords) {
    char dir[] = "/tmp/vela-config-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string typo = std::string(dir) + "/typo.json";
    const struct {
        std::string file;
        std::string text;
        int code;
        std::string err;
    } cases[] = {
            {std::string(dir) + "/deep.json", std::string(100000, '['), 65,
             ": $: nested more than 32 levels deep: not a configuration\n"},
            {std::string(dir) + "/empty.json", "", 65,
             ": $: empty: a configuration is a JSON object\n"},
            {std::string(dir) + "/nothing.json", "{}", 65,
             ": $: missing \"resources\": a configuration declares at least one resource\n"},
            {typo,
             R"({"resources": [{"opcode": "0x1", "name": "a", "arbitraton": "max"}],
                 "scenarios": [{"event": 0, "action": "ACTION_LANCH", "resources": []}]})",
             65,
             ": $.resources[0].arbitraton: unknown key; did you mean arbitration?\n" + typo +
                     ": $.scenarios[0].action: unknown action \"ACTION_LANCH\"; did you mean "
                     "ACTION_LAUNCH?\n"},
    };
    for (const auto& c : cases) {
        std::ofstream(c.file) << c.text;
        const Outcome checked = runService({"--check-config", c.file});
        const Outcome served = runService({"--config", c.file});
        EXPECT_EQ(checked.code, c.code) << c.file;
        EXPECT_EQ(checked.err, c.file + c.err);
        EXPECT_EQ(served.code, checked.code) << c.file;
        EXPECT_EQ(served.err, checked.err);
        unlink(c.file.c_str());
    }
    const Outcome checked = runService({"--check-config", dir});
    const Outcome served = runService({"--config", dir});
    EXPECT_EQ(checked.code, 66);
    EXPECT_EQ(checked.err, "vela-service: cannot read " + std::string(dir) + ": Is a directory\n");
    EXPECT_EQ(served.code, checked.code);
    EXPECT_EQ(served.err, checked.err);
    rmdir(dir);
}

TEST(ConfigOptionsTest, CheckAppliesEachScenarioOfAValidFile) {
    const Outcome run = runService({"--check-config", VELA_DEFAULT_CONFIG_PATH, "--exec-all"});
    EXPECT_EQ(run.code, 0) << run.err;
    EXPECT_NE(run.out.find("ACTION_LAUNCH (event 0):\n  cpu.little.freq_min: 300000 -> 1804800\n"
                           "  cpu.big.freq_min: 710400 -> 2419200\n"),
              std::string::npos)
            << run.out;
}

}  // namespace
