// The reader of a configuration: each kind of mistake named at its JSON path in its own words,
// every one of them in one reading and in the order of the text.
#include <gtest/gtest.h>

#include "BrokenConfigs.h"
#include "ConfigReader.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

std::vector<std::string> lines(const ConfigReading& reading) {
    std::vector<std::string> said;
    for (const ConfigProblem& p : reading.problems) said.push_back(p.path + ": " + p.message);
    return said;
}

TEST(ConfigReaderTest, EachMistakeIsNamedAtItsPath) {
    for (const BrokenConfig& broken : brokenConfigs()) {
        const ConfigReading reading = readConfig(broken.text);
        EXPECT_EQ(lines(reading), broken.findings) << broken.what;
        // The service gets no configuration out of it, and says the same.
        std::string error;
        EXPECT_FALSE(ScenarioConfig::parse(broken.text, &error).has_value()) << broken.what;
        EXPECT_EQ(error.substr(0, error.find('\n')), broken.findings.front()) << broken.what;
    }
}

TEST(ConfigReaderTest, EveryProblemIsReportedInOneReadingInTheOrderOfTheText) {
    // Scenarios ahead of the resources they claim, which are still checked against them.
    const ConfigReading reading = readConfig(R"({
        "scenarios": [{"event": 5, "action": "ACTION_LAUNCH",
                       "resources": [{"opcode": "0x1", "value": "fast"}]}],
        "resources": [{"opcode": "0x1", "name": "a.freq_min", "colour": "red"},
                      {"path": "/a/../b", "name": "b", "flavour": 1}],
        "power": {"base_mw": -1}})");
    EXPECT_EQ(lines(reading),
              (std::vector<std::string>{
                      "$.scenarios[0].event: event 5 is ACTION_WINDOW_ROTATION; ACTION_LAUNCH is "
                      "event 0",
                      "$.scenarios[0].resources[0].value: \"fast\" is not a decimal integer for "
                      "a.freq_min",
                      "$.resources[0].colour: unknown key",
                      "$.resources[1].path: not a usable path (empty, too long, or with \"..\")",
                      "$.resources[1].flavour: unknown key",
                      "$.power.base_mw: must be an integer from 0 to 2147483647",
              }));
}

TEST(ConfigReaderTest, AFileIsReadOrSaysWhyNot) {
    const ConfigReading missing = readConfigFile("/nonexistent/vela.json");
    EXPECT_EQ(missing.unreadable, "cannot open /nonexistent/vela.json: No such file or directory");
    EXPECT_EQ(readConfigFile("/").unreadable, "cannot read /: Is a directory");
    // A device node never ends: reading stops at the bound rather than filling the memory.
    EXPECT_EQ(lines(readConfigFile("/dev/zero")),
              std::vector<std::string>{"$: larger than 4 MiB: not a configuration"});
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
