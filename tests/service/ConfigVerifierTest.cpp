// The configuration verifier: each kind of mistake an engineer makes in a configuration is
// named at its JSON path, all of them in one run; the shipped file passes, and the program's
// --check-config --exec-all shows what a scenario moves.
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/wait.h>

#include <cstdio>
#include <functional>

#include "ConfigVerifier.h"
#include "ExecProgram.h"
#include "ScenarioConfig.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

Json::Value shipped() {
    Json::Value root;
    Json::Reader().parse(ScenarioConfig::builtInText(), root);
    return root;
}

std::string text(const Json::Value& root) {
    return Json::writeString(Json::StreamWriterBuilder(), root);
}

std::string said(const std::vector<ConfigProblem>& problems) {
    std::string lines;
    for (const auto& p : problems) lines += "\n" + p.path + ": " + p.message;
    return lines;
}

TEST(ConfigVerifierTest, ShippedConfigurationIsValid) {
    EXPECT_EQ(said(verifyConfig(ScenarioConfig::builtInText())), "");
}

// Shipped: resources[1] is cpu.big.freq_min (0x01010020), resources[26] game.upgrade_profile
// (text); scenarios[0] is ACTION_LAUNCH, event 0.
TEST(ConfigVerifierTest, EachMistakeIsNamedAtItsPath) {
    const struct {
        const char* what;
        std::function<void(Json::Value&)> edit;
        const char* path;
        const char* fragment;
    } cases[] = {
            {"misspelt action",
             [](Json::Value& c) { c["scenarios"][0]["action"] = "ACTION_LAUNH"; },
             "$.scenarios[0].action", "did you mean ACTION_LAUNCH"},
            {"undeclared opcode",
             [](Json::Value& c) { c["scenarios"][0]["resources"][1]["opcode"] = "0x0101ffff"; },
             "$.scenarios[0].resources[1].opcode", "undeclared opcode 0x0101ffff"},
            {"unknown key", [](Json::Value& c) { c["resources"][1]["arbitraton"] = "max"; },
             "$.resources[1].arbitraton", "unknown key"},
            {"text for a frequency",
             [](Json::Value& c) { c["scenarios"][0]["resources"][1]["value"] = "fast"; },
             "$.scenarios[0].resources[1].value", "\"fast\" is not a decimal integer"},
            {"out of range", [](Json::Value& c) { c["resources"][1]["default"] = "-1"; },
             "$.resources[1].default", "-1 is outside [0, 5000000]"},
            {"unknown arbitration",
             [](Json::Value& c) { c["resources"][1]["arbitration"] = "top"; },
             "$.resources[1].arbitration", "unknown arbitration \"top\""},
            {"min on text", [](Json::Value& c) { c["resources"][26]["arbitration"] = "min"; },
             "$.resources[26].arbitration", "needs an integer resource"},
            {"duplicate resource",
             [](Json::Value& c) {
                 Json::Value again = c["resources"][1];
                 again["name"] = "big.floor.again";
                 c["resources"].append(again);
             },
             "$.resources[30].opcode", "declared twice (first at $.resources[1])"},
            {"event and action disagree", [](Json::Value& c) { c["scenarios"][0]["event"] = 5; },
             "$.scenarios[0].event", "event 5 is ACTION_WINDOW_ROTATION; ACTION_LAUNCH is event 0"},
            {"number where text belongs",
             [](Json::Value& c) { c["scenarios"][0]["resources"][1]["value"] = 1804800; },
             "$.scenarios[0].resources[1].value", "must be a string"},
    };
    for (const auto& c : cases) {
        Json::Value config = shipped();
        c.edit(config);
        const auto problems = verifyConfig(text(config));
        ASSERT_EQ(problems.size(), 1u) << c.what << said(problems);
        EXPECT_EQ(problems[0].path, c.path) << c.what;
        EXPECT_NE(problems[0].message.find(c.fragment), std::string::npos)
                << c.what << said(problems);
    }
}

TEST(ConfigVerifierTest, EveryProblemIsReportedInDocumentOrder) {
    Json::Value config = shipped();
    config["scenarios"][2]["action"] = "ACTION_SWIPE";
    config["scenarios"][0]["resources"][0]["value"] = "fast";
    config["resources"][3]["colour"] = "red";
    config["resources"][3]["flavour"] = "sweet";
    config["scenarios"].append(config["scenarios"][1]);  // event 1 twice
    std::vector<std::string> paths;
    for (const auto& problem : verifyConfig(text(config))) paths.push_back(problem.path);
    EXPECT_EQ(paths, (std::vector<std::string>{"$.resources[3].colour", "$.resources[3].flavour",
                                               "$.scenarios[0].resources[0].value",
                                               "$.scenarios[2].action", "$.scenarios[9].event"}));
}

TEST(ConfigVerifierTest, ProgramAppliesEachScenarioOfAValidFile) {
    FILE* out = std::tmpfile();
    const paxtest::ChildCommand command(
            VELA_SERVICE_PATH,
            {VELA_SERVICE_PATH, "--check-config", VELA_DEFAULT_CONFIG_PATH, "--exec-all"});
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fileno(out), 1);
        command.exec();
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    std::string said;
    rewind(out);
    for (int c; (c = fgetc(out)) != EOF;) said.push_back(static_cast<char>(c));
    fclose(out);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << said;
    EXPECT_NE(said.find("ACTION_LAUNCH (event 0):\n  cpu.little.freq_min: 300000 -> 1804800\n"
                        "  cpu.big.freq_min: 710400 -> 2419200\n"),
              std::string::npos)
            << said;
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
