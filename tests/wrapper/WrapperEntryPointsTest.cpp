#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FakeVela.h"
#include "LogCapture.h"
#include "PaxWrapper.h"
#include "ServiceHarness.h"

namespace {

constexpr char kTag[] = "[PAX_CLIENT_WRAPPER]";

using paxtest::reply;
using testing::_;

class WrapperEntryPointsTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(fake = service.startFake(), nullptr);
        // Whatever the rule switch answers, a notification reports success.
        ON_CALL(*fake, ruleCtl)
                .WillByDefault([this](int32_t id, int32_t status, auto& items, int32_t* out) {
                    rules.push_back(std::to_string(id) + " " + std::to_string(status) +
                                    paxtest::describe(items));
                    return *out = -5, paxtest::Status::ok();
                });
    }
    bool logged(const std::string& text) const {
        return log.contains(kTag, ANDROID_LOG_INFO, text);
    }
    // Notifies, with junk in the two reserved arguments; "rule status | items" of the one rule
    // switch sent, or "" when nothing was sent.
    std::string notify(int32_t src, int32_t type, int32_t value = 0, const std::string& data = "",
                       const std::string& text = "") {
        rules.clear();
        EXPECT_EQ(PaxNotifyWapper(data, src, type, value, 77, 88, text), 0);
        EXPECT_LE(rules.size(), 1u);
        return rules.empty() ? "" : rules.back();
    }

    paxtest::LogCapture log;
    paxtest::ServiceHarness service;
    std::shared_ptr<paxtest::FakeVela> fake;
    std::vector<std::string> rules;  // written by the fake while the test waits for the call
};

TEST_F(WrapperEntryPointsTest, AcquireSendsTheEventIdOfTheNameAndReleaseTheHandle) {
    paxtest::VelaRequestParcel parcel;
    EXPECT_CALL(*fake, resCtlRequest)
            .Times(2)
            .WillRepeatedly(testing::DoAll(testing::SaveArg<0>(&parcel), reply(42)));
    EXPECT_CALL(*fake, resCtlRelease(7, _));
    EXPECT_EQ(PaxEventAcquireWrapper("MIRDAL_ACTION_CAMERA_MULTI_SCENE", "com.cam", "id1", 500),
              42);
    EXPECT_EQ(paxtest::describe(parcel), "8 0 500 0 0 pkg:com.cam id:id1 | 66");
    EXPECT_TRUE(
            logged("[PaxEventAcquireWrapper] eventId:MIRDAL_ACTION_CAMERA_MULTI_SCENE, "
                   "scene:com.cam, identity:id1, timeout:500"))
            << log.dump();
    EXPECT_NE(PaxEventAcquireWrapper("MIRDAL_ACTION_LAUNCH", "", "", 0), -1);
    EXPECT_EQ(paxtest::describe(parcel.requestDatas), " | 0");

    for (const char* name : {"ACTION_LAUNCH", "MIRDAL_ACTION_NOT_THERE", ""}) {
        EXPECT_EQ(PaxEventAcquireWrapper(name, "pkg", "who", 1), -1) << name;
    }
    EXPECT_TRUE(
            logged("[PaxEventAcquireWrapper] eventId:none, scene:pkg, identity:who, "
                   "timeout:1"));

    PaxReleaseWapper(7);
    EXPECT_TRUE(logged("[PaxReleaseWapper] 7"));
}

// Whatever the rule switch answers, and even with no service, a notification reports success.
TEST_F(WrapperEntryPointsTest, NotifySwitchesTheRuleOfItsSource) {
    // Plain sources switch their own rule, the type being its status.
    for (int32_t src : {1, 9, 10, 11, 12, 15, 16, 110, 129, 1000}) {
        EXPECT_EQ(notify(src, 3), std::to_string(src) + " 3");
    }
    EXPECT_TRUE(logged("[PaxNotifyWapper] none, src:1, type:3"));
    // Sources 2, 3, 5 and 6 share rule 200; its status names the source that turned it on.
    for (int32_t src : {2, 3, 5, 6}) EXPECT_EQ(notify(src, 1), "200 " + std::to_string(src));
    EXPECT_EQ(notify(2, 0), "200 0");
    EXPECT_EQ(notify(3, 7), "200 0");
    // Scene sources carry one level.
    EXPECT_EQ(notify(8, 4, 9), "8 4 | 10103a0 =0");
    EXPECT_EQ(notify(111, 2, 9), "111 2 | 10103a0 =2");
    EXPECT_EQ(notify(102, 1, 5), "102 1 | 1011070 =5");
    EXPECT_EQ(notify(102, 0, 5), "102 0 | 1011070 =0");
    EXPECT_EQ(notify(102, 2, 5), "102 1 | 1011070 =3");
    // Game upgrade enters with level and text and leaves with the clear list.
    EXPECT_EQ(notify(14, 1, 3, "", "com.game"), "14 1 | 1011040 =3 | 10115b0 =com.game");
    EXPECT_EQ(notify(14, 0, 3, "", "com.game"), "14 0 | 1011040 =-1 | 1011040 =");
    // List sources parse their texts.
    EXPECT_EQ(notify(130, 1, 0, "10,20"), "130 1 | 10108a0 =10 | 10108b0 =20");
    EXPECT_EQ(notify(131, 1, 2, "colocation:1,groupmigrate:95-85"),
              "9 1 | 1011040 =1 | 1010fb0 =95 | 1010fc0 =85 | 10112f0 =enable 1 | 1011910 =2");
    EXPECT_EQ(notify(131, 0), "9 0 | 10112f0 =enable 0 | 1011910 =0");
    EXPECT_EQ(notify(9000, 1, 0, "", "1,2;3,4"),
              "9000 1 | 1010b10 =1 | 1010b20 =2 | 1010b90 =3 | 1010ba0 =4");
    EXPECT_EQ(notify(9000, 0, 0, "", "1,2"), "9000 0");
    service.stop();
    EXPECT_EQ(PaxNotifyWapper("", 1, 1, 0, 0, 0, ""), 0);
}

TEST_F(WrapperEntryPointsTest, ReservedSourcesOnlyLog) {
    std::vector<int32_t> silent = {4, 7, 13, 0, -1, 132, 999, 1001, 8999, 9001, INT32_MIN};
    for (int32_t src = 17; src <= 128; ++src) {
        if (src != 102 && (src < 110 || src > 111)) silent.push_back(src);
    }
    for (int32_t src : silent) EXPECT_EQ(notify(src, 1, 1, "d", "t"), "") << src;
    // Game adaptation needs a text to turn on and knows no third state.
    EXPECT_EQ(notify(9000, 1, 1, "d", ""), "");
    EXPECT_EQ(notify(9000, 2, 1, "d", "1,2"), "");
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO, "[PaxNotifyWapper] d, src:60, type:1"), 1u);
}

}  // namespace
