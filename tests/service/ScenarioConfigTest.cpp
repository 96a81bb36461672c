// What a configuration's resources accept, and the opcodes and paths clients may name.
#include <gtest/gtest.h>

#include "ScenarioConfig.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

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
