// The program's two ways in for a configuration: --config refuses what --check-config refuses,
// with the same lines and exit code, and --check-config --exec-all shows what a scenario moves.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "BrokenConfigs.h"
#include "RunProgram.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

using namespace paxtest;

Outcome runService(std::vector<std::string> args) {
    return finish(*launch(VELA_SERVICE_PATH, std::move(args)));
}

TEST(ConfigOptionsTest, ServingRefusesWhatTheCheckRefusesInTheSameWords) {
    char dir[] = "/tmp/vela-config-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    // Every broken file the reader's own test knows, each refused with all of its findings.
    const std::string file = std::string(dir) + "/broken.json";
    for (const BrokenConfig& broken : brokenConfigs()) {
        std::ofstream(file) << broken.text;
        std::string said;
        for (const std::string& finding : broken.findings) said += file + ": " + finding + "\n";
        const Outcome checked = runService({"--check-config", file});
        const Outcome served = runService({"--config", file});
        EXPECT_EQ(checked.exitCode, 65) << broken.what;
        EXPECT_EQ(checked.err, said) << broken.what;
        EXPECT_EQ(served.exitCode, checked.exitCode) << broken.what;
        EXPECT_EQ(served.err, checked.err) << broken.what;
    }
    unlink(file.c_str());
    const Outcome checked = runService({"--check-config", dir});
    const Outcome served = runService({"--config", dir});
    EXPECT_EQ(checked.exitCode, 66);
    EXPECT_EQ(checked.err, "vela-service: cannot read " + std::string(dir) + ": Is a directory\n");
    EXPECT_EQ(served.exitCode, checked.exitCode);
    EXPECT_EQ(served.err, checked.err);
    rmdir(dir);
}

TEST(ConfigOptionsTest, CheckAppliesEachScenarioOfAValidFile) {
    const Outcome run = runService({"--check-config", VELA_DEFAULT_CONFIG_PATH, "--exec-all"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("ACTION_LAUNCH (event 0):\n  cpu.little.freq_min: 300000 -> 1804800\n"
                           "  cpu.big.freq_min: 710400 -> 2419200\n"),
              std::string::npos)
            << run.out;
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
