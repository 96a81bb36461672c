// The value-in-force rules: the winning claim by the resource's rule, the next one showing
// through when it goes, then the default. (The service tests check the same through requests;
// these check the reported changes and the holders.)
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

TEST(ResourceTableTest, FloorsTakeTheHighestClaimAndCeilingsTheLowest) {
    ResourceTable table;
    const ResourceKey floor = kFreq, ceiling = ResourceKey::ofOpcode(0x010100b0);
    table.setDefault(floor, "300000");
    table.setArbitration(floor, Arbitration::kMax);
    table.setArbitration(ceiling, Arbitration::kMin);

    table.hold(Holder::request(1), {{floor, "2419200"}, {ceiling, "2803200"}});
    // A later, lower floor changes nothing; a later, lower ceiling wins.
    EXPECT_EQ(moves(table.hold(Holder::request(2), {{floor, "2208000"}, {ceiling, "1996800"}})),
              "2803200>1996800");
    EXPECT_EQ(table.holderOf(floor), Holder::request(1));
    EXPECT_EQ(table.holderOf(ceiling), Holder::request(2));
    // The winner goes: the next claim shows through; a loser goes: nothing moves.
    EXPECT_EQ(moves(table.drop(Holder::request(1))), "2419200>2208000");
    EXPECT_EQ(moves(table.hold(Holder::request(3), {{floor, "2208000"}})), "");
    EXPECT_EQ(table.holderOf(floor), Holder::request(3));  // equal values: the latest is shown
    EXPECT_EQ(table.claimsOf(floor).size(), 2u);
    table.drop(Holder::request(2));
    EXPECT_EQ(moves(table.drop(Holder::request(3))), "2208000>300000");

    // A claim that is no number loses to any number, and is only in force alone.
    table.hold(Holder::rule(1), {{floor, "fast"}});
    EXPECT_EQ(moves(table.hold(Holder::request(4), {{floor, "-5"}})), "fast>-5");
    EXPECT_EQ(moves(table.drop(Holder::request(4))), "-5>fast");
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
