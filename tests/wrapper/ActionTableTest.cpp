#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "PaxWrapper.h"
#include "WrapperInternal.h"

using pax_wrapper::findActionId;

namespace {

int32_t idOf(const std::string& name) {
    return findActionId("MIRDAL_" + name);
}

}  // namespace

TEST(ActionTableTest, HoldsTheServiceIdsInOrder) {
    ASSERT_EQ(gActionList.size(), 199u);
    for (const std::string& name : gActionList) {
        EXPECT_EQ(name.rfind("ACTION_", 0), 0u) << name;
        EXPECT_TRUE(std::none_of(name.begin(), name.end(), ::islower)) << name;
    }
    EXPECT_EQ(idOf("ACTION_LAUNCH"), 0);
    EXPECT_EQ(idOf("ACTION_CAMERA_OPEN"), 11);
    EXPECT_EQ(idOf("ACTION_CAMERA_STIKER_RECORD"), 78);
    EXPECT_EQ(idOf("ACTION_CAMERA_PREVIEW_PORTAIT"), 120);
    EXPECT_EQ(idOf("ACTION_CAMERA_STICKER_MODE"), 148);
    EXPECT_EQ(idOf("ACTION_CAMERA_REAR_PORTRAIT_PREVIEW"), 171);
    EXPECT_EQ(idOf("ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1"), 198);
}

TEST(ActionTableTest, RepeatedNamesResolveToTheirFirstIdAndKeepTheirPlaces) {
    EXPECT_EQ(idOf("ACTION_CAMERA_APS_CAPTURE_L1"), 91);
    EXPECT_EQ(idOf("ACTION_CAMERA_APS_CAPTURE_L4"), 94);
    EXPECT_EQ(idOf("ACTION_CAMERA_MULTI_SCENE"), 102);
    EXPECT_EQ(gActionList[106], gActionList[91]);
    EXPECT_EQ(gActionList[109], gActionList[94]);
    EXPECT_EQ(gActionList[162], gActionList[102]);
    // The unreachable copies still count for the ids after them.
    EXPECT_EQ(idOf("ACTION_VIRTUAL_KEY"), 105);
    EXPECT_EQ(idOf("ACTION_ROTATION_LATENCY_BOOST"), 110);
    EXPECT_EQ(idOf("ACTION_CAMERA_FRONT_NIGHT_CAPTURE"), 163);

    // Apart from those, every name is reachable at its own id.
    for (size_t id = 0; id < gActionList.size(); ++id) {
        const auto first = std::find(gActionList.begin(), gActionList.end(), gActionList[id]);
        EXPECT_EQ(idOf(gActionList[id]), first - gActionList.begin()) << gActionList[id];
    }
}

TEST(ActionTableTest, OnlyPrefixedExactNamesResolve) {
    EXPECT_EQ(findActionId("ACTION_LAUNCH"), -1);
    EXPECT_EQ(findActionId(""), -1);
    EXPECT_EQ(findActionId("MIRDAL_"), -1);
    EXPECT_EQ(findActionId("MIRDAL_ACTION_NOT_THERE"), -1);
    EXPECT_EQ(findActionId("MIRDAL_ACTION_LAUNCH "), -1);
    EXPECT_EQ(findActionId("MIRDAL_action_launch"), -1);
    EXPECT_EQ(findActionId("mirdal_ACTION_LAUNCH"), -1);
    // The prefix is found anywhere but cut from the front: one character before it leaves
    // "_ACTION_LAUNCH", which is not a name.
    EXPECT_EQ(findActionId("XMIRDAL_ACTION_LAUNCH"), -1);
}
