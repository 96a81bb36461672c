// The value-in-force rules: latest claim wins, the previous one shows through when it goes,
// then the default. (The service tests check the same through requests; these check the
// reported changes and the holders.)
#include <gtest/gtest.h>

#include "ResourceTable.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

const ResourceKey kFreq = ResourceKey::ofOpcode(0x01010010);
const ResourceKey kLoad = ResourceKey::ofOpcode(0x010108a0);
const ResourceKey kPath = ResourceKey::ofPath("/dev/cpuctl/top-app/cpu.uclamp.min");

// The changes as "before>after" ("-" for no value), joined by spaces.
std::string moves(const std::vector<Change>& changes) {
    std::string out;
    for (const auto& c : changes) {
        out += (out.empty() ? "" : " ") + c.before.value_or("-") + ">" + c.after.value_or("-");
    }
    return out;
}

TEST(ResourceTableTest, ChangesAreReportedOnlyWhenTheValueInForceMoves) {
    ResourceTable table;
    table.setDefault(kFreq, "300000");
    table.hold(Holder::request(1), {{kFreq, "1"}});
    table.hold(Holder::request(2), {{kFreq, "2"}});
    EXPECT_EQ(moves(table.hold(Holder::request(3), {{kFreq, "3"}})), "2>3");
    EXPECT_TRUE(table.drop(Holder::request(2)).empty());  // not in force
    EXPECT_EQ(moves(table.drop(Holder::request(3))), "3>1");
    EXPECT_EQ(table.holderOf(kFreq), Holder::request(1));
    EXPECT_EQ(moves(table.drop(Holder::request(1))), "1>300000");
    EXPECT_FALSE(table.holderOf(kFreq).has_value());

    // Holding again replaces the holder's claims and puts them on top.
    table.hold(Holder::rule(7), {{kFreq, "1"}, {kLoad, "60"}});
    table.hold(Holder::request(1), {{kFreq, "2"}});
    // The rule no longer claims the load, and nothing else does: it has no value at all.
    EXPECT_EQ(moves(table.hold(Holder::rule(7), {{kFreq, "5"}})), "2>5 60>-");
    EXPECT_FALSE(table.valueOf(kLoad).has_value());
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
