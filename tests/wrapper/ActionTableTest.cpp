#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "PaxWrapper.h"
#include "wrapper_internal.h"

using pax_wrapper::findActionId;

// The ids are the service's event numbers: a name out of place shifts every id after it.
TEST(ActionTableTest, NamesResolveToTheServiceIds) {
    ASSERT_EQ(gActionList.size(), 199u);
    // 91, 94 and 102 have unreachable copies at 106, 109 and 162, which still count for the
    // ids after them.
    const std::pair<const char*, int32_t> ids[] = {{"LAUNCH", 0},
                                                   {"CAMERA_OPEN", 11},
                                                   {"CAMERA_STIKER_RECORD", 78},
                                                   {"CAMERA_MULTI_SCENE", 102},
                                                   {"VIRTUAL_KEY", 105},
                                                   {"CAMERA_PREVIEW_PORTAIT", 120},
                                                   {"CAMERA_FRONT_NIGHT_CAPTURE", 163},
                                                   {"CAMERA_APS_INNER_THDR_CAPTURE_L1", 198}};
    for (auto [name, id] : ids) EXPECT_EQ(findActionId(std::string("MIRDAL_ACTION_") + name), id);
    for (auto [copy, first] : {std::pair{106, 91}, {109, 94}, {162, 102}}) {
        EXPECT_EQ(gActionList[copy], gActionList[first]);
    }
    // Every other name is reachable at its own id.
    for (size_t id = 0; id < gActionList.size(); ++id) {
        const std::string& name = gActionList[id];
        EXPECT_EQ(name.rfind("ACTION_", 0), 0u) << name;
        EXPECT_TRUE(std::none_of(name.begin(), name.end(), ::islower)) << name;
        const auto first = std::find(gActionList.begin(), gActionList.end(), name);
        EXPECT_EQ(findActionId("MIRDAL_" + name), first - gActionList.begin()) << name;
    }
}

TEST(ActionTableTest, OnlyPrefixedExactNamesResolve) {
    // The prefix is found anywhere but cut from the front: one character before it leaves
    // "_ACTION_LAUNCH", which is not a name.
    for (const char* name :
         {"ACTION_LAUNCH", "", "MIRDAL_", "MIRDAL_ACTION_NOT_THERE", "MIRDAL_ACTION_LAUNCH ",
          "MIRDAL_action_launch", "mirdal_ACTION_LAUNCH", "XMIRDAL_ACTION_LAUNCH"}) {
        EXPECT_EQ(findActionId(name), -1) << name;
    }
}
