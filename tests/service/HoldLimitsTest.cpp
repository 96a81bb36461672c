// What the configuration bounds a hold by: a lease on requests made until released, and a
// ceiling that a floor of the same knob cannot exceed.
#include <gtest/gtest.h>

#include "ServiceFixture.h"
#include "Waiter.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

using namespace protocol;

std::shared_ptr<VelaService> serviceWith(const std::string& text) {
    std::string error;
    auto config = ScenarioConfig::parse(text, &error);
    EXPECT_TRUE(config) << error;
    VelaService::Options options;
    if (config) options.config = std::move(*config);
    return ::ndk::SharedRefBase::make<VelaService>(std::move(options));
}

class HoldLimitsTest : public VelaServiceTest {};

TEST_F(HoldLimitsTest, ALeaseEndsARequestMadeUntilReleasedAndOnlyThat) {
    service = serviceWith(R"({"lease_ms": 600000, "resources": [
        {"opcode": "0x01010010", "name": "cpu.little.freq_min", "default": "300000",
         "type": "integer", "lease_ms": 50},
        {"opcode": "0x010108a0", "name": "sched.little.target_load", "default": "80",
         "type": "integer"}]})");
    EXPECT_EQ(diagnostic(kHistoryOn), kResultDone);
    const int32_t leased = control({item(kLittleFloor, "2000000"), item(kLittleLoad, "33")});
    const int32_t overall = control({item(kLittleLoad, "44")});
    ASSERT_TRUE(paxtest::waitUntil([&] { return value(kLittleFloor) == "300000"; }));
    // The overall lease (ten minutes) still holds the other request.
    EXPECT_EQ(value(kLittleLoad), "44");
    EXPECT_EQ(release(leased), kResultUnknownHandle);
    EXPECT_EQ(release(overall), kResultOk);
    bool seen = false;
    for (const auto& record : state(kKindHistory)) {
        seen = seen || record.value3.value_or("").find("lease handle " + std::to_string(leased) +
                                                       " after 50 ms") != std::string::npos;
    }
    EXPECT_TRUE(seen);
}

// The shipped configuration pairs cpu.little.freq_min (default 300000) with
// cpu.little.freq_max (default 2016000): a floor above the ceiling in force takes the ceiling's
// value until one of them goes, and dumpsys names both holders.
TEST_F(HoldLimitsTest, AFloorAboveItsCeilingGetsTheCeiling) {
    constexpr uint32_t kLittleCeiling = 0x010100a0;
    auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
    int32_t listening = -1;
    ASSERT_TRUE(service->resListeningRegister(parcel(kKindControl, {item(kLittleFloor)}), listener,
                                              &listening)
                        .isOk());
    const int32_t ceiling = control({item(kLittleCeiling, "1500000")});
    const int32_t floor = control({item(kLittleFloor, "2000000")});
    EXPECT_EQ(value(kLittleFloor), "1500000");

    const std::string dump = dumpsys({"resources"}).text;
    EXPECT_NE(dump.find("! floor 2000000 (request " + std::to_string(floor) +
                        ") exceeds ceiling 0x010100a0 cpu.little.freq_max = 1500000 (request " +
                        std::to_string(ceiling) + "): the ceiling wins"),
              std::string::npos)
            << dump;

    EXPECT_EQ(release(ceiling), kResultOk);
    EXPECT_EQ(value(kLittleFloor), "2000000");
    EXPECT_EQ(release(floor), kResultOk);
    EXPECT_EQ(value(kLittleFloor), "300000");
    service->waitForDeliveries();
    const std::string little = std::to_string(kLittleFloor) + ":";
    EXPECT_EQ(listener->calls(),
              (Texts{little + "1500000", little + "2000000", little + "300000"}));
}

// The verifier refuses a scenario that claims a floor above its own ceiling.
TEST(HoldLimitsConfigTest, AScenarioMayNotClaimAFloorAboveItsOwnCeiling) {
    std::string error;
    EXPECT_FALSE(ScenarioConfig::parse(R"({"resources": [
        {"opcode": "0x1", "name": "a.freq_min", "type": "integer"},
        {"opcode": "0x2", "name": "a.freq_max", "type": "integer"}],
      "bounds": [{"floor": "a.freq_min", "ceiling": "a.freq_max"}],
      "scenarios": [{"event": 0, "action": "ACTION_LAUNCH", "resources": [
        {"opcode": "0x2", "value": "10"}, {"opcode": "0x1", "value": "20"}]}]})",
                                       &error));
    EXPECT_NE(error.find("$.scenarios[0].resources[1].value: 20 exceeds a.freq_max 10 claimed in "
                         "the same scenario"),
              std::string::npos)
            << error;
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
