#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
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

    EXPECT_NE(PaxEventAcquireWrapper("MIRDAL_ACTION_LAUNCH", "", "", 0), -1);
    EXPECT_THAT(itemsOf(fake->lastParcel().requestDatas),
                testing::ElementsAre(Item{0, std::nullopt}));
}

TEST_F(WrapperEntryPointsTest, UnknownNamesNeverReachTheService) {
    for (const char* name : {"ACTION_LAUNCH", "MIRDAL_ACTION_NOT_THERE", ""}) {
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

// A rule switch as the service saw it.
struct Rule {
    int32_t id;
    int32_t status;
    std::vector<Item> items;
    bool operator==(const Rule& o) const {
        return id == o.id && status == o.status && items == o.items;
    }
};

std::ostream& operator<<(std::ostream& os, const Rule& r) {
    os << "rule " << r.id << " status " << r.status << " {";
    for (const Item& i : r.items)
        os << std::hex << " 0x" << i.first << std::dec << "=" << i.second.value_or("(absent)");
    return os << " }";
}

class WrapperNotifyTest : public WrapperEntryPointsTest {
protected:
    // Notifies, with junk in the two reserved arguments, and returns the one rule switch sent.
    std::optional<Rule> notify(int32_t src, int32_t type, int32_t value = 0,
                               const std::string& data = "", const std::string& text = "") {
        fake->clearCalls();
        EXPECT_EQ(PaxNotifyWapper(data, src, type, value, 77, 88, text), 0);
        if (fake->callCount() == 0) return std::nullopt;
        EXPECT_EQ(fake->callCount("ruleCtl"), 1u);
        const paxtest::VelaCall call = fake->lastCall("ruleCtl");
        return Rule{call.ruleId, call.ruleStatus, itemsOf(call.items)};
    }
};

TEST_F(WrapperNotifyTest, PlainSourcesSwitchTheirOwnOrTheSharedRule) {
    EXPECT_EQ(notify(1, 3), (Rule{1, 3, {}}));
    EXPECT_EQ(notify(9, 1), (Rule{9, 1, {}}));
    EXPECT_EQ(notify(15, 2), (Rule{15, 2, {}}));
    EXPECT_EQ(notify(1000, 6), (Rule{1000, 6, {}}));
    // Sources 2, 3, 5 and 6 share rule 200; its status names the source that turned it on.
    EXPECT_EQ(notify(5, 1), (Rule{200, 5, {}}));
    EXPECT_EQ(notify(2, 0), (Rule{200, 0, {}}));
    EXPECT_EQ(notify(3, 7), (Rule{200, 0, {}}));
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_INFO, "[PaxNotifyWapper] none, src:1, type:3"));
}

TEST_F(WrapperNotifyTest, SceneSourcesCarryOneLevel) {
    EXPECT_EQ(notify(8, 4, 9), (Rule{8, 4, {{0x010103a0, "0"}}}));
    EXPECT_EQ(notify(111, 2, 9), (Rule{111, 2, {{0x010103a0, "2"}}}));
    EXPECT_EQ(notify(102, 1, 5), (Rule{102, 1, {{0x01011070, "5"}}}));
    EXPECT_EQ(notify(102, 0, 5), (Rule{102, 0, {{0x01011070, "0"}}}));
    EXPECT_EQ(notify(102, 2, 5), (Rule{102, 1, {{0x01011070, "3"}}}));
}

TEST_F(WrapperNotifyTest, GameUpgradeEntersWithLevelAndTextAndLeavesWithTheClearList) {
    EXPECT_EQ(notify(14, 1, 3, "", "com.game"),
              (Rule{14, 1, {{0x01011040, "3"}, {0x010115b0, "com.game"}}}));
    EXPECT_EQ(notify(14, 0, 3, "", "com.game"),
              (Rule{14, 0, {{0x01011040, "-1"}, {0x01011040, ""}}}));
}

TEST_F(WrapperNotifyTest, ListSourcesParseTheirTexts) {
    EXPECT_EQ(notify(130, 1, 0, "10,20"), (Rule{130, 1, {{0x010108a0, "10"}, {0x010108b0, "20"}}}));
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_INFO, "[PaxNotifyWapper] 10,20, src:130, type:1"));
    EXPECT_EQ(notify(131, 1, 2, "colocation:1,groupmigrate:95-85"), (Rule{9,
                                                                          1,
                                                                          {{0x01011040, "1"},
                                                                           {0x01010fb0, "95"},
                                                                           {0x01010fc0, "85"},
                                                                           {0x010112f0, "enable 1"},
                                                                           {0x01011910, "2"}}}));
    EXPECT_EQ(notify(131, 0), (Rule{9, 0, {{0x010112f0, "enable 0"}, {0x01011910, "0"}}}));
    EXPECT_EQ(notify(9000, 1, 0, "", "1,2;3,4"),
              (Rule{9000,
                    1,
                    {{0x01010b10, "1"}, {0x01010b20, "2"}, {0x01010b90, "3"}, {0x01010ba0, "4"}}}));
    EXPECT_EQ(notify(9000, 0, 0, "", "1,2"), (Rule{9000, 0, {}}));
}

TEST_F(WrapperNotifyTest, ReservedSourcesOnlyLog) {
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

TEST_F(WrapperNotifyTest, NotifyReportsSuccessWhateverTheRuleSwitchAnswers) {
    fake->setDefault("ruleCtl", paxtest::Answer::ok(-5));
    EXPECT_EQ(PaxNotifyWapper("", 1, 1, 0, 0, 0, ""), 0);
    service.stop();
    EXPECT_EQ(PaxNotifyWapper("", 1, 1, 0, 0, 0, ""), 0);
}

}  // namespace
