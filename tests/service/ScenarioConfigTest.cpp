// The configuration format: the shipped file must load, and a broken one must say why.
#include <gtest/gtest.h>

#include "ScenarioConfig.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

// The service and velactl tests run on the shipped file; this checks what they do not.
TEST(ScenarioConfigTest, ShippedConfigurationDescribesEveryResourceItUses) {
    std::string error;
    auto config = ScenarioConfig::parse(ScenarioConfig::builtInText(), &error);
    ASSERT_TRUE(config.has_value()) << error;
    // Every resource a scenario claims is described, so that dumps and tools can name it.
    for (const auto& [event, scenario] : config->scenarios()) {
        for (const auto& [key, value] : scenario.resources) {
            EXPECT_NE(config->infoFor(key), nullptr) << scenario.action << " " << key.toString();
        }
    }
}

TEST(ScenarioConfigTest, BrokenConfigurationsAreRefusedWithAReason) {
    const struct {
        const char* text;
        const char* reason;
    } cases[] = {
            {"{", "not valid JSON"},
            {"[]", "top level"},
            {R"({"resources": [{"opcode": "0x1", "path": "/a"}]})", "exactly one"},
            {R"({"resources": [{"opcode": "0x1zz"}]})", "bad opcode"},
            {R"({"resources": [{"opcode": "0"}]})", "bad opcode"},
            {R"({"resources": [{"opcode": "0x100000000"}]})", "bad opcode"},
            {R"({"resources": [{"path": "/sys/../etc/passwd"}]})", "bad path"},
            {R"({"resources": [{"opcode": "0x1"}, {"opcode": "1"}]})", "listed twice"},
            {R"({"scenarios": [{"event": -1, "resources": []}]})", "event"},
            {R"({"scenarios": [{"event": 3, "resources": [{"opcode": "0x1"}]}]})", "value"},
            {R"({"scenarios": [{"event": 3, "resources": []}, {"event": 3, "resources": []}]})",
             "listed twice"},
            {R"({"power": {"base_mw": "a lot"}})", "base_mw"},
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(ScenarioConfig::parse(c.text, &error).has_value()) << c.text;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.text << " -> " << error;
    }
}

TEST(ScenarioConfigTest, OpcodesAndPathsFromClients) {
    EXPECT_EQ(parseOpcode("0x010108a0"), 0x010108a0u);
    EXPECT_EQ(parseOpcode("16844960"), 0x010108a0u);
    for (const char* bad : {"", "0", "-1", " 1", "+1", "0x", "1x", "4294967296"}) {
        EXPECT_FALSE(parseOpcode(bad).has_value()) << bad;
    }
    EXPECT_TRUE(isAcceptablePath("/sys/class/devfreq/ddrfreq/min_freq"));
    EXPECT_TRUE(isAcceptablePath("sched..boost"));  // dots inside a name are fine
    for (const std::string& bad :
         {std::string(), std::string(".."), std::string("/a/../b"), std::string("a/.."),
          std::string("a\0b", 3), std::string(kMaxPathLength + 1, 'a')}) {
        EXPECT_FALSE(isAcceptablePath(bad)) << bad;
    }
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
