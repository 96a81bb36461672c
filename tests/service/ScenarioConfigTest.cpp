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
            {R"({"resources": [{"opcode": "1", "arbitration": "top"}]})", "unknown arbitration"},
            {R"({"resources": [{"opcode": "1", "type": "real"}]})", "unknown type"},
            {R"({"resources": [{"opcode": "1", "type": "text", "arbitration": "min"}]})",
             "needs an integer resource"},
            {R"({"resources": [{"opcode": "1", "type": "text", "range": [0, 1]}]})",
             "needs an integer resource"},
            {R"({"resources": [{"opcode": "1", "range": [2, 1]}]})", "lo <= hi"},
            {R"({"resources": [{"opcode": "1", "range": [0, 1], "default": "2"}]})",
             "outside [0, 1]"},
            {R"({"resources": [{"opcode": "1"}], "scenarios": [{"event": 3, "resources": [
                {"opcode": "1", "value": "fast"}]}]})",
             "not a decimal integer"},
    };
    for (const auto& c : cases) {
        std::string error;
        EXPECT_FALSE(ScenarioConfig::parse(c.text, &error).has_value()) << c.text;
        EXPECT_NE(error.find(c.reason), std::string::npos) << c.text << " -> " << error;
    }
}

TEST(ScenarioConfigTest, ResourcesJudgeValuesByTypeAndRange) {
    auto config = ScenarioConfig::parse(R"({"resources": [
        {"opcode": "1", "name": "big", "range": [-5, 9000000000]},
        {"opcode": "2", "name": "cpu.freq_max", "type": "text"},
        {"opcode": "3", "name": "cpu.freq_min"}]})",
                                        nullptr);
    ASSERT_TRUE(config.has_value());
    const ResourceInfo& ranged = config->resources()[0];
    for (const char* good : {"-5", "+7", "0", "9000000000"}) EXPECT_TRUE(ranged.accepts(good));
    for (const char* bad :
         {"-6", "9000000001", "", "-", "1.5", " 1", "1 ", "0x10", "fast", "99999999999999999999"}) {
        EXPECT_FALSE(ranged.accepts(bad)) << bad;
    }
    EXPECT_TRUE(config->resources()[1].accepts("enable 1"));
    // Without a rule of its own a resource takes the one its name suggests, if it has an order.
    EXPECT_EQ(config->resources()[1].arbitration, Arbitration::kLatest);
    EXPECT_EQ(config->resources()[2].arbitration, Arbitration::kMax);
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
