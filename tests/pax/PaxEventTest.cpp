// What the event, release, notify, system-info and rule calls send, log and trace.
#include <gtest/gtest.h>

#include "PaxTestFixture.h"

namespace paxtest {
namespace {

using Resources = std::vector<PaxClient::Resource>;
using Items = std::vector<Item>;

class PaxEvent : public PaxTest {
protected:
    TraceCapture trace{1};
};

TEST_F(PaxEvent, EventSendsCommandItemThenResourcesWithCallerTexts) {
    fake->enqueue("resCtlRequest", Answer::ok(42));
    Resources resources{{0x10, "a"}, {0x80000001u, std::nullopt}};
    EXPECT_EQ(PaxEventAcquire(5, "com.app", "id1", -1, resources), 42);

    VelaRequestParcel parcel = fake->lastCall("resCtlRequest").parcel.value();
    EXPECT_EQ(parcel.requestType, 8);
    // The opcode with the top bit set travels as the same 32 bits.
    EXPECT_EQ(itemsOf(parcel.requestDatas),
              (Items{{5, 0}, {0x10, 0, "a"}, {static_cast<int32_t>(0x80000001u), 0}}));
    EXPECT_EQ(parcel.packageName, "com.app");
    EXPECT_EQ(parcel.identity, "id1");
    EXPECT_EQ(parcel.param2, -1);
    EXPECT_FALSE(parcel.optionFlag);
    EXPECT_EQ(parcel.param1, 0);
    EXPECT_EQ(parcel.param4, 0);
    EXPECT_EQ(parcel.param6, 0);
    EXPECT_FALSE(parcel.paths.has_value());
    EXPECT_EQ(parcel.callback, nullptr);
    EXPECT_FALSE(parcel.extraValues.has_value());
    EXPECT_EQ(resources, (Resources{{0x10, "a"}, {0x80000001u, std::nullopt}}));

    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxEventAcquire, cmdid:5, pkg:com.app, identity:id1"));
    EXPECT_EQ(trace.events(),
              (std::vector<TraceEvent>{
                      {TraceEvent::kBegin,
                       "PaxEventAcquire  cmd_id:5 pkg:com.app identity:id1 duration:-1"},
                      {TraceEvent::kEnd, ""}}));
}

TEST_F(PaxEvent, ReservedCommandIdsSelectTheKindInsteadOfAnItem) {
    Resources none;
    PaxEventAcquire(-2, "p", "i", 1, none);
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 1);
    EXPECT_TRUE(parcel.requestDatas.empty());

    Resources one{{3, "v"}};
    PaxEventAcquire(-3, "p", "i", 1, one);
    parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 12);
    EXPECT_EQ(itemsOf(parcel.requestDatas), (Items{{3, 0, "v"}}));

    PaxEventAcquire(-4, "p", "i", 1, none);
    parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 8);
    EXPECT_EQ(itemsOf(parcel.requestDatas), (Items{{-4, 0}}));
}

TEST_F(PaxEvent, ResourceAcquireShortcutsPassTheirArgumentsThrough) {
    fake->setDefault("resCtlRequest", Answer::ok(6));
    Resources resources{{1, "x"}};
    EXPECT_EQ(PaxResAcquire(resources, nullptr, "ident", 300), 6);
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 1);
    EXPECT_EQ(parcel.packageName, "");
    EXPECT_EQ(parcel.identity, "ident");
    EXPECT_EQ(parcel.param2, 300);
    EXPECT_EQ(itemsOf(parcel.requestDatas), (Items{{1, 0, "x"}}));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxResAcquire"));

    // Identity comes before the package in this one.
    EXPECT_EQ(PaxPlatformResAcquire(resources, nullptr, "ident", "pkg", 7), 6);
    parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 12);
    EXPECT_EQ(parcel.packageName, "pkg");
    EXPECT_EQ(parcel.identity, "ident");
    EXPECT_EQ(parcel.param2, 7);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxPlatformResAcquire"));
}

TEST_F(PaxEvent, EmptyTextsShowAsNoneButTravelEmpty) {
    Resources none;
    PaxEventAcquire(7, "", "", 0, none);
    VelaRequestParcel parcel = fake->lastParcel();
    ASSERT_TRUE(parcel.packageName.has_value());
    ASSERT_TRUE(parcel.identity.has_value());
    EXPECT_EQ(*parcel.packageName, "");
    EXPECT_EQ(*parcel.identity, "");
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxEventAcquire, cmdid:7, pkg:none, identity:none"))
            << log.dump();
    EXPECT_EQ(trace.beginNames(),
              (std::vector<std::string>{"PaxEventAcquire  cmd_id:7 pkg:none identity:none "
                                        "duration:0"}));
}

TEST_F(PaxEvent, TraceMarkerIsCutAt1023Characters) {
    std::string pkg(2000, 'p');
    Resources none;
    PaxEventAcquire(1, pkg, "i", 2, none);
    std::string full = "PaxEventAcquire  cmd_id:1 pkg:" + pkg + " identity:i duration:2";
    ASSERT_EQ(trace.beginNames().size(), 1u);
    EXPECT_EQ(trace.beginNames()[0], full.substr(0, 1023));
    // The service still gets the whole package name.
    EXPECT_EQ(fake->lastParcel().packageName, pkg);
}

TEST_F(PaxEvent, NoMarkerUnlessTagZeroIsEnabled) {
    TraceCapture::setEnabledTags(2);
    Resources none;
    PaxEventAcquire(1, "p", "i", 2, none);
    PaxRelease(1);
    EXPECT_TRUE(trace.events().empty());
    EXPECT_GE(TraceCapture::tagQueries(), 2u);
}

TEST_F(PaxEvent, MarkerPrecedesTheConnection) {
    service.stop();
    Resources none;
    EXPECT_EQ(PaxEventAcquire(2, "p", "", 3, none), -1);
    PaxRelease(77);
    EXPECT_EQ(trace.beginNames(),
              (std::vector<std::string>{"PaxEventAcquire  cmd_id:2 pkg:p identity:none duration:3",
                                        "PaxRelease: 77"}));
}

TEST_F(PaxEvent, ServiceResultIsReturnedAsItIs) {
    Resources none;
    fake->enqueue("resCtlRequest", Answer::ok(-1));
    EXPECT_EQ(PaxEventAcquire(1, "p", "i", 0, none), -1);
    EXPECT_EQ(log.linesContaining("velaResCtlRequest error").size(), 0u);
    EXPECT_TRUE(paxConnected());

    fake->enqueue("resCtlRequest", Answer::serviceSpecific(9));
    EXPECT_EQ(PaxEventAcquire(1, "p", "i", 0, none), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "velaResCtlRequest error:-1")) << log.dump();
}

TEST_F(PaxEvent, ReleaseSendsTheHandleAndMarksTheTrace) {
    fake->setDefault("resCtlRelease", Answer::ok(-5));
    PaxRelease(7);
    EXPECT_EQ(fake->lastCall("resCtlRelease").handle, 7);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxRelease, handle:7"));
    EXPECT_EQ(trace.events(), (std::vector<TraceEvent>{{TraceEvent::kBegin, "PaxRelease: 7"},
                                                       {TraceEvent::kEnd, ""}}));
    // A negative answer is not a failure of the transaction.
    EXPECT_TRUE(paxConnected());
}

TEST_F(PaxEvent, NotifySendsOneItemPerValueWithItsText) {
    fake->setDefault("resCtlRequest", Answer::ok(9));
    EXPECT_EQ(PaxNotify(0x20, 4, {}), 9);
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 10);
    EXPECT_EQ(itemsOf(parcel.requestDatas), (Items{{0x20, 4}}));
    EXPECT_FALSE(parcel.paths.has_value());
    EXPECT_FALSE(parcel.packageName.has_value());
    EXPECT_FALSE(parcel.identity.has_value());

    EXPECT_EQ(PaxNotify(0x20, 4, {1, 2, -30}), 9);
    parcel = fake->lastParcel();
    EXPECT_EQ(itemsOf(parcel.requestDatas), (Items{{0x20, 4}, {0x20, 4}, {0x20, 4}}));
    using Texts = std::vector<std::optional<std::string>>;
    EXPECT_EQ(parcel.paths, (Texts{"1", "2", "-30"}));
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO, "PaxNotify enter"), 2u);
}

TEST_F(PaxEvent, SystemInfoPassesBothArgumentsThrough) {
    fake->enqueue("setRelatedSysInfo", Answer::ok(-7));
    EXPECT_EQ(setRelatedSysInfo(-3, 0x100000005LL), -7);
    VelaCall call = fake->lastCall("setRelatedSysInfo");
    EXPECT_EQ(call.info, -3);
    EXPECT_EQ(call.sysInfoValue, 0x100000005LL);
    EXPECT_TRUE(paxConnected());
}

TEST_F(PaxEvent, RuleItemsAlwaysCarryAValue) {
    fake->enqueue("ruleCtl", Answer::ok(2));
    Resources resources{{1, "x"}, {2, std::nullopt}, {3, ""}};
    EXPECT_EQ(paxRuleCtl(4, -1, resources), 2);
    VelaCall call = fake->lastCall("ruleCtl");
    EXPECT_EQ(call.ruleId, 4);
    EXPECT_EQ(call.ruleStatus, -1);
    EXPECT_EQ(itemsOf(call.items), (Items{{1, 0, "x"}, {2, 0, ""}, {3, 0, ""}}));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "paxRuleCtl, ruleId:4, status:-1"));
    EXPECT_FALSE(resources[1].value.has_value());
}

}  // namespace
}  // namespace paxtest
