// What the configuration bounds a hold by: a lease on requests made until released.
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

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
