// The value-in-force rules: latest claim wins, the previous one shows through when it goes,
// then the default.
#include <gtest/gtest.h>

#include "ResourceTable.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

const ResourceKey kFreq = ResourceKey::ofOpcode(0x01010010);
const ResourceKey kLoad = ResourceKey::ofOpcode(0x010108a0);
const ResourceKey kPath = ResourceKey::ofPath("/dev/cpuctl/top-app/cpu.uclamp.min");

TEST(ResourceTableTest, LatestClaimWinsAndEarlierClaimsShowThroughInTurn) {
    ResourceTable table;
    table.setDefault(kFreq, "300000");
    table.hold(Holder::request(1), {{kFreq, "1"}});
    table.hold(Holder::request(2), {{kFreq, "2"}});
    auto changes = table.hold(Holder::request(3), {{kFreq, "3"}});
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].before, "2");
    EXPECT_EQ(changes[0].after, "3");

    // Withdrawing a claim that is not in force moves nothing.
    EXPECT_TRUE(table.drop(Holder::request(2)).empty());
    EXPECT_EQ(table.valueOf(kFreq), "3");

    changes = table.drop(Holder::request(3));
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].after, "1");
    EXPECT_EQ(table.holderOf(kFreq), Holder::request(1));

    changes = table.drop(Holder::request(1));
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].after, "300000");
    EXPECT_FALSE(table.holderOf(kFreq).has_value());
}

TEST(ResourceTableTest, HoldingAgainReplacesTheHoldersClaimsAndPutsThemOnTop) {
    ResourceTable table;
    table.hold(Holder::rule(7), {{kFreq, "1"}, {kLoad, "60"}});
    table.hold(Holder::request(1), {{kFreq, "2"}});
    auto changes = table.hold(Holder::rule(7), {{kFreq, "5"}});

    EXPECT_EQ(table.valueOf(kFreq), "5");
    // The rule no longer claims the load, and nothing else does: it has no value at all.
    EXPECT_FALSE(table.valueOf(kLoad).has_value());
    ASSERT_EQ(changes.size(), 2u);
    // When the rule goes, the request's claim shows again.
    table.drop(Holder::rule(7));
    EXPECT_EQ(table.valueOf(kFreq), "2");
}

TEST(ResourceTableTest, OneClaimPerKeyAndForgottenWithoutDefault) {
    ResourceTable table;
    table.hold(Holder::request(1), {{kPath, "10"}, {kPath, "30"}});
    EXPECT_EQ(table.valueOf(kPath), "30");
    EXPECT_EQ(table.depthOf(kPath), 1u);
    // Requests and rules with the same number are different holders.
    table.hold(Holder::rule(1), {{kPath, "40"}});
    table.drop(Holder::request(1));
    EXPECT_EQ(table.valueOf(kPath), "40");

    table.drop(Holder::rule(1));
    EXPECT_TRUE(table.keys().empty());
    EXPECT_TRUE(table.inForce().empty());
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
