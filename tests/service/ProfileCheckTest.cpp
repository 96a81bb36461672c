// A configuration held against a target's node profile: each way a target can fail a
// configuration named at its JSON path, a broken profile refused in words rather than by a
// crash, and the capture script's output read by the check.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "RunProgram.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

using namespace paxtest;

constexpr char kFreq[] = "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq";
constexpr char kClamp[] = "/dev/cpuctl/top-app/cpu.uclamp.min";

constexpr char kConfig[] = R"({"resources": [
    {"path": "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq", "name": "little.min",
     "default": "300000", "arbitration": "max", "range": [0, 3000000]},
    {"path": "/dev/cpuctl/top-app/cpu.uclamp.min", "name": "uclamp", "default": "0",
     "range": [0, 100]}],
  "scenarios": [{"event": 0, "action": "ACTION_LAUNCH", "resources": [
    {"path": "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq", "value": "1804800"},
    {"path": "/dev/cpuctl/top-app/cpu.uclamp.min", "value": "30"}]}]})";

class ProfileCheckTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(mkdtemp(mDir), nullptr); }
    void TearDown() override {
        const std::string command = "rm -rf '" + std::string(mDir) + "'";
        EXPECT_EQ(system(command.c_str()), 0);
    }

    std::string write(const std::string& name, const std::string& text) {
        const std::string file = std::string(mDir) + "/" + name;
        std::ofstream(file) << text;
        return file;
    }

    static Outcome check(const std::string& config, const std::string& profile) {
        return finish(*launch(VELA_SERVICE_PATH, {"--check-config", config, "--profile", profile}));
    }

    char mDir[32] = "/tmp/vela-profile-XXXXXX";
};

std::string node(const char* path, const std::string& facts) {
    return std::string("\"") + path + "\": {" + facts + "}";
}

std::string profileOf(const std::string& nodes) {
    return R"({"profile": 1, "kernel": "6.1-test", "uid": 2000, "nodes": {)" + nodes + "}}";
}

const std::string kFreqFits = R"("exists": true, "writable": true, "mode": "0664",
    "accepts": {"outside": "clamped", "min": 300000, "max": 2016000,
                "available": [300000, 1516800, 1804800, 2016000]})";
const std::string kClampFits = R"("exists": true, "writable": true,
    "accepts": {"outside": "refused", "min": 0, "max": 100})";

TEST_F(ProfileCheckTest, EachMismatchIsNamedAtItsPath) {
    const std::string config = write("config.json", kConfig);
    const std::string c = config + ": ";
    const struct {
        const char* what;
        std::string nodes;
        int exitCode;
        std::vector<std::string> lines;
    } cases[] = {
            {"a target that takes everything",
             node(kFreq, kFreqFits) + "," + node(kClamp, kClampFits),
             0,
             {}},
            {"missing nodes, one of them not captured at all",
             node(kFreq, R"("exists": false)"),
             65,
             {"$.resources[0].path: no such node on the target (kernel 6.1-test)",
              "$.resources[1].path: /dev/cpuctl/top-app/cpu.uclamp.min is not in the profile: "
              "capture it with this configuration's nodes"}},
            {"read-only nodes, by the user or by the mode",
             node(kFreq, R"("exists": true, "writable": true, "mode": "0444")") + "," +
                     node(kClamp, R"("exists": true, "writable": false, "mode": "0644")"),
             65,
             {"$.resources[0].path: not writable on the target: mode 0444: nobody may write it",
              "$.resources[1].path: not writable on the target: uid 2000 may not write it (mode "
              "0644)"}},
            {"a value the frequency table lacks",
             node(kFreq, R"("exists": true, "writable": true,
                  "accepts": {"outside": "clamped", "available": [300000, 1516800, 2016000]})") +
                     "," + node(kClamp, kClampFits),
             65,
             {"$.scenarios[0].resources[0].value: 1804800 is not one of the 3 values the node "
              "lists (nearest: 1516800 and 2016000); the kernel would hold another for "
              "little.min"}},
            {"values and a range past min and max",
             node(kFreq, R"("exists": true, "writable": true,
                  "accepts": {"outside": "clamped", "min": 400000, "max": 1500000})") +
                     "," + node(kClamp, R"("exists": true, "writable": true,
                          "accepts": {"min": 0, "max": 20})"),
             65,
             {"$.resources[0].default: 300000 is below the node's minimum 400000; the kernel "
              "would hold 400000 for little.min",
              "$.resources[1].range: [0, 100] lets clients ask for values the node refuses (it "
              "takes 0 to 20)",
              "$.scenarios[0].resources[0].value: 1804800 is above the node's maximum 1500000; "
              "the kernel would hold 1500000 for little.min",
              "$.scenarios[0].resources[1].value: 30 is above the node's maximum 20; the kernel "
              "refuses it for uclamp"}},
    };
    for (const auto& tc : cases) {
        const Outcome run = check(config, write("target.json", profileOf(tc.nodes)));
        std::string said;
        for (const std::string& line : tc.lines) said += c + line + "\n";
        EXPECT_EQ(run.exitCode, tc.exitCode) << tc.what << "\n" << run;
        EXPECT_EQ(run.err, said) << tc.what;
    }
}

TEST_F(ProfileCheckTest, ABrokenProfileIsRefusedInWords) {
    const std::string config = write("config.json", kConfig);
    const std::string at = "$.nodes['" + std::string(kFreq) + "'].";
    const struct {
        std::string text;
        std::vector<std::string> lines;
    } cases[] = {
            {"  ", {"$: empty: a node profile is a JSON object"}},
            {R"({"nodes": []})",
             {"$: missing \"profile\": not a node profile", "$.nodes: must be an object"}},
            {profileOf(node(kFreq, R"("exists": "yes", "mode": "rw", "accepts": {
                 "avaliable": [1], "min": "low", "max": 5, "available": [1.5, {}]})")),
             {at + "exists: must be true or false", at + "mode: must be octal digits (\"0644\")",
              at + "accepts.avaliable: unknown key", at + "accepts.min: must be a 64-bit integer",
              at + "accepts.available[0]: must be an integer or a string",
              at + "accepts.available[1]: must be an integer or a string"}},
    };
    for (const auto& tc : cases) {
        const std::string profile = write("target.json", tc.text);
        const Outcome run = check(config, profile);
        std::string said;
        for (const std::string& line : tc.lines) said += profile + ": " + line + "\n";
        EXPECT_EQ(run.exitCode, 65) << run;
        EXPECT_EQ(run.err, said);
        EXPECT_NE(run.out.find(profile + ": not a node profile"), std::string::npos) << run;
    }
    const Outcome unreadable = check(config, mDir);
    EXPECT_EQ(unreadable.exitCode, 66);
    EXPECT_EQ(unreadable.err,
              "vela-service: cannot read " + std::string(mDir) + ": Is a directory\n");
}

TEST_F(ProfileCheckTest, TheShippedConfigurationFitsThePhoneAndNotTheWorkstation) {
    const Outcome phone =
            check(VELA_DEFAULT_CONFIG_PATH, VELA_NODE_PROFILES_DIR "/arm64-phone.json");
    EXPECT_EQ(phone.exitCode, 0) << phone;
    EXPECT_EQ(phone.err, "");
    // The workstation has none of a phone's cgroups or devfreq nodes, and says so.
    const Outcome workstation =
            check(VELA_DEFAULT_CONFIG_PATH, VELA_NODE_PROFILES_DIR "/linux-workstation.json");
    EXPECT_EQ(workstation.exitCode, 65) << workstation;
    for (int i : {27, 28, 29}) {
        EXPECT_NE(workstation.err.find("$.resources[" + std::to_string(i) +
                                       "].path: no such node on the target"),
                  std::string::npos)
                << workstation;
    }
}

TEST_F(ProfileCheckTest, TheCaptureScriptWritesAProfileTheCheckReads) {
    // A scratch tree standing in for a target's /sys and /dev.
    const std::string root = std::string(mDir) + "/target";
    const std::string policy = root + "/sys/devices/system/cpu/cpufreq/policy0";
    const std::string mkdirs = "mkdir -p '" + policy + "' '" + root + "/dev/cpuctl/top-app'";
    ASSERT_EQ(system(mkdirs.c_str()), 0);
    write("target/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq", "300000\n");
    write("target/sys/devices/system/cpu/cpufreq/policy0/cpuinfo_min_freq", "300000\n");
    write("target/sys/devices/system/cpu/cpufreq/policy0/cpuinfo_max_freq", "2016000\n");
    write("target/sys/devices/system/cpu/cpufreq/policy0/scaling_available_frequencies",
          "300000 1516800 2016000 \n");
    const std::string clamp = write("target/dev/cpuctl/top-app/cpu.uclamp.min", "0\n");
    ASSERT_EQ(chmod(clamp.c_str(), 0444), 0);

    const std::string config = write("config.json", kConfig);
    const Outcome listed =
            finish(*launch(VELA_SERVICE_PATH, {"--check-config", config, "--list-nodes"}));
    ASSERT_EQ(listed.exitCode, 0) << listed;
    EXPECT_EQ(listed.out, std::string(kFreq) + "\n" + kClamp + "\n");
    const std::string nodes = write("nodes.txt", listed.out);
    const std::string profile = std::string(mDir) + "/captured.json";
    // The script is run by the host's own sh, not through the emulator of a cross build.
    const std::string capture = "sh '" VELA_CAPTURE_SCRIPT_PATH "' -r '" + root + "' < '" + nodes +
                                "' > '" + profile + "'";
    ASSERT_EQ(system(capture.c_str()), 0);

    const Outcome run = check(config, profile);
    EXPECT_EQ(run.exitCode, 65) << run;
    // Root may write a 0444 file by its bits, anyone else may not: both say "not writable".
    EXPECT_NE(run.err.find(config + ": $.resources[1].path: not writable on the target: "),
              std::string::npos)
            << run;
    EXPECT_NE(run.err.find(config + ": $.scenarios[0].resources[0].value: 1804800 is not one of "
                                    "the 3 values the node lists (nearest: 1516800 and 2016000)"),
              std::string::npos)
            << run;
    EXPECT_NE(run.out.find("does not fit " + profile + ", 2 problems"), std::string::npos) << run;
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
