#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FakeVela.h"
#include "LogCapture.h"
#include "PaxWrapper.h"
#include "ServiceHarness.h"

namespace {

constexpr char kTag[] = "[PAX_CLIENT_WRAPPER]";

// An item as the service sees it: opcode and value.
using Item = std::pair<int32_t, std::optional<std::string>>;

std::vector<Item> itemsOf(const std::vector<paxtest::VelaRequestData>& data) {
    std::vector<Item> items;
    for (const auto& d : data) items.emplace_back(d.id, d.value);
    return items;
}

class WrapperEntryPointsTest : public testing::Test {
protected:
    void SetUp() override {
        fake = service.startFake();
        ASSERT_NE(fake, nullptr);
    }

    paxtest::LogCapture log;
    paxtest::ServiceHarness service;
    std::shared_ptr<paxtest::FakeVela> fake;
};

TEST_F(WrapperEntryPointsTest, AcquireSendsTheEventIdOfTheName) {
    fake->enqueue("resCtlRequest", paxtest::Answer::ok(42));
    EXPECT_EQ(PaxEventAcquireWrapper("MIRDAL_ACTION_CAMERA_MULTI_SCENE", "com.cam", "id1", 500),
              42);

    const paxtest::VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 8);
    EXPECT_THAT(itemsOf(parcel.requestDatas), testing::ElementsAre(Item{102, std::nullopt}));
    EXPECT_EQ(parcel.packageName, "com.cam");
    EXPECT_EQ(parcel.identity, "id1");
    EXPECT_EQ(parcel.param2, 500);
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_INFO,
                             "[PaxEventAcquireWrapper] eventId:MIRDAL_ACTION_CAMERA_MULTI_SCENE, "
                             "scene:com.cam, identity:id1, timeout:500"))
            << log.dump();

    EXPECT_EQ(PaxEventAcquireWrapper("MIRDAL_ACTION_LAUNCH", "", "", 0), 1);
    EXPECT_THAT(itemsOf(fake->lastParcel().requestDatas),
                testing::ElementsAre(Item{0, std::nullopt}));
}

TEST_F(WrapperEntryPointsTest, UnknownNamesNeverReachTheService) {
    for (const char* name :
         {"ACTION_LAUNCH", "MIRDAL_ACTION_NOT_THERE", "XMIRDAL_ACTION_LAUNCH", ""}) {
        EXPECT_EQ(PaxEventAcquireWrapper(name, "pkg", "who", 1), -1) << name;
    }
    EXPECT_EQ(fake->callCount(), 0u);
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_INFO,
                             "[PaxEventAcquireWrapper] eventId:none, scene:pkg, identity:who, "
                             "timeout:1"))
            << log.dump();
}

TEST_F(WrapperEntryPointsTest, ReleaseForwardsTheHandle) {
    PaxReleaseWapper(7);
    ASSERT_EQ(fake->callCount("resCtlRelease"), 1u);
    EXPECT_EQ(fake->lastCall("resCtlRelease").handle, 7);
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_INFO, "[PaxReleaseWapper] 7")) << log.dump();
}

struct NotifyCase {
    const char* what;
    std::string data;
    int32_t src;
    int32_t type;
    int32_t value;
    std::string text;
    int32_t ruleId;
    int32_t status;
    std::vector<Item> items;
};

TEST_F(WrapperEntryPointsTest, NotificationsSwitchTheirRules) {
    const std::vector<NotifyCase> cases = {
            {"own rule", "", 1, 3, 0, "", 1, 3, {}},
            {"own rule, src 9", "", 9, 1, 0, "", 9, 1, {}},
            {"own rule, src 15", "", 15, 2, 0, "", 15, 2, {}},
            {"own rule, src 129", "", 129, 0, 0, "", 129, 0, {}},
            {"shared rule on", "", 5, 1, 0, "", 200, 5, {}},
            {"shared rule off", "", 2, 0, 0, "", 200, 0, {}},
            {"shared rule, other type", "", 3, 7, 0, "", 200, 0, {}},
            {"scene level off", "", 8, 4, 9, "", 8, 4, {{0x010103a0, "0"}}},
            {"scene level of type", "", 111, 2, 9, "", 111, 2, {{0x010103a0, "2"}}},
            {"game upgrade cleared",
             "",
             14,
             0,
             3,
             "g",
             14,
             0,
             {{0x01011040, "-1"}, {0x01011040, ""}}},
            {"game upgrade",
             "",
             14,
             1,
             3,
             "com.game",
             14,
             1,
             {{0x01011040, "3"}, {0x010115b0, "com.game"}}},
            {"game upgrade, no level", "", 14, 2, 0, "com.game", 14, 2, {{0x010115b0, "com.game"}}},
            {"boost at caller's level", "", 102, 1, 5, "", 102, 1, {{0x01011070, "5"}}},
            {"boost off", "", 102, 0, 5, "", 102, 0, {{0x01011070, "0"}}},
            {"boost at default level", "", 102, 2, 5, "", 102, 1, {{0x01011070, "3"}}},
            {"target load",
             "10,20",
             130,
             1,
             0,
             "",
             130,
             1,
             {{0x010108a0, "10"}, {0x010108b0, "20"}}},
            {"colocation on",
             "colocation:1,groupmigrate:95-85",
             131,
             1,
             2,
             "",
             9,
             1,
             {{0x01011040, "1"},
              {0x01010fb0, "95"},
              {0x01010fc0, "85"},
              {0x010112f0, "enable 1"},
              {0x01011910, "2"}}},
            {"colocation off",
             "",
             131,
             0,
             0,
             "",
             9,
             0,
             {{0x010112f0, "enable 0"}, {0x01011910, "0"}}},
            {"pass-through", "", 1000, 6, 0, "", 1000, 6, {}},
            {"game adaptation",
             "",
             9000,
             1,
             0,
             "1,2;3,4",
             9000,
             1,
             {{0x01010b10, "1"}, {0x01010b20, "2"}, {0x01010b90, "3"}, {0x01010ba0, "4"}}},
            {"game adaptation off", "", 9000, 0, 0, "1,2", 9000, 0, {}},
    };
    for (const NotifyCase& c : cases) {
        SCOPED_TRACE(c.what);
        fake->clearCalls();
        // The two reserved arguments must not matter.
        EXPECT_EQ(PaxNotifyWapper(c.data, c.src, c.type, c.value, 77, 88, c.text), 0);
        ASSERT_EQ(fake->callCount(), 1u);
        const paxtest::VelaCall call = fake->lastCall("ruleCtl");
        EXPECT_EQ(call.ruleId, c.ruleId);
        EXPECT_EQ(call.ruleStatus, c.status);
        EXPECT_EQ(itemsOf(call.items), c.items);
    }
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_INFO, "[PaxNotifyWapper] none, src:1, type:3"));
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_INFO, "[PaxNotifyWapper] 10,20, src:130, type:1"));
}

TEST_F(WrapperEntryPointsTest, ReservedSourcesOnlyLog) {
    std::vector<int32_t> silent = {4, 7, 13, 0, -1, 132, 999, 1001, 8999, 9001, INT32_MIN};
    for (int32_t src = 17; src <= 101; ++src) silent.push_back(src);
    for (int32_t src = 103; src <= 109; ++src) silent.push_back(src);
    for (int32_t src = 112; src <= 128; ++src) silent.push_back(src);
    for (int32_t src : silent) {
        EXPECT_EQ(PaxNotifyWapper("d", src, 1, 1, 0, 0, "t"), 0) << src;
    }
    // Game adaptation needs a text to turn on and knows no third state.
    EXPECT_EQ(PaxNotifyWapper("d", 9000, 1, 1, 0, 0, ""), 0);
    EXPECT_EQ(PaxNotifyWapper("d", 9000, 2, 1, 0, 0, "1,2"), 0);
    EXPECT_EQ(fake->callCount(), 0u);
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO, "[PaxNotifyWapper] d, src:60, type:1"), 1u);
}

TEST_F(WrapperEntryPointsTest, NotifyReportsSuccessWhateverTheRuleSwitchAnswers) {
    fake->setDefault("ruleCtl", paxtest::Answer::ok(-5));
    EXPECT_EQ(PaxNotifyWapper("", 1, 1, 0, 0, 0, ""), 0);
    service.stop();
    EXPECT_EQ(PaxNotifyWapper("", 1, 1, 0, 0, 0, ""), 0);
}

}  // namespace
