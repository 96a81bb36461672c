// What the event, release, notify, system-info and rule calls send, log and trace.
#include <gtest/gtest.h>

#include "PaxTestFixture.h"

namespace paxtest {
namespace {

class PaxEvent : public PaxTest {
protected:
    TraceCapture trace{1};
};

TEST_F(PaxEvent, EventSendsCommandItemThenResourcesWithCallerTexts) {
    fake->enqueue("resCtlRequest", Answer::ok(42));
    Resources resources{{0x10, "a"}, {0x80000001u, std::nullopt}};
    EXPECT_EQ(PaxEventAcquire(5, "com.app", "id1", -1, resources), 42);

    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 8);
    EXPECT_EQ(itemTexts(parcel.requestDatas), (Texts{"5/0/~", "16/0/a", "-2147483647/0/~"}));
    EXPECT_EQ(parcel.packageName, "com.app");
    EXPECT_EQ(parcel.identity, "id1");
    EXPECT_EQ(parcel.param2, -1);
    EXPECT_FALSE(parcel.paths || parcel.extraValues || parcel.callback || parcel.optionFlag);
    EXPECT_EQ(parcel.param1 | parcel.param4 | parcel.param6, 0);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxEventAcquire, cmdid:5, pkg:com.app, identity:id1"));
    EXPECT_EQ(trace.events(),
              (std::vector<TraceEvent>{
                      {TraceEvent::kBegin,
                       "PaxEventAcquire  cmd_id:5 pkg:com.app identity:id1 duration:-1"},
                      {TraceEvent::kEnd, ""}}));
}

TEST_F(PaxEvent, ReservedCommandIdsSelectTheKindInsteadOfAnItem) {
    Resources none, one{{3, "v"}};
    PaxEventAcquire(-2, "p", "i", 1, none);
    EXPECT_EQ(fake->lastParcel().requestType, 1);
    EXPECT_TRUE(fake->lastParcel().requestDatas.empty());

    // The shortcuts: no package for plain resources; identity before package for platform ones.
    PaxResAcquire(one, nullptr, "ident", 300);
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 1);
    EXPECT_EQ(itemTexts(parcel.requestDatas), (Texts{"3/0/v"}));
    EXPECT_EQ(parcel.packageName, "");
    EXPECT_EQ(parcel.identity, "ident");
    EXPECT_EQ(parcel.param2, 300);

    PaxPlatformResAcquire(one, nullptr, "ident", "pkg", 7);
    parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 12);
    EXPECT_EQ(itemTexts(parcel.requestDatas), (Texts{"3/0/v"}));
    EXPECT_EQ(parcel.packageName, "pkg");
    EXPECT_EQ(parcel.identity, "ident");
}

TEST_F(PaxEvent, EmptyTextsShowAsNoneButTravelEmpty) {
    Resources none;
    PaxEventAcquire(7, "", "", 0, none);
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.packageName, std::optional<std::string>(""));
    EXPECT_EQ(parcel.identity, std::optional<std::string>(""));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxEventAcquire, cmdid:7, pkg:none, identity:none"));
    EXPECT_EQ(trace.beginNames(),
              (Texts{"PaxEventAcquire  cmd_id:7 pkg:none identity:none duration:0"}));
}

TEST_F(PaxEvent, TraceMarkerIsCutAt1023CharactersAndNeedsTagZero) {
    std::string pkg(2000, 'p');
    Resources none;
    PaxEventAcquire(1, pkg, "i", 2, none);
    std::string full = "PaxEventAcquire  cmd_id:1 pkg:" + pkg + " identity:i duration:2";
    EXPECT_EQ(trace.beginNames(), (Texts{full.substr(0, 1023)}));
    EXPECT_EQ(fake->lastParcel().packageName, pkg);

    TraceCapture::clear();
    TraceCapture::setEnabledTags(~uint64_t{1});
    PaxEventAcquire(1, "p", "i", 2, none);
    PaxRelease(1);
    EXPECT_TRUE(trace.events().empty());
}

TEST_F(PaxEvent, FailedStatusAloneLogsTheRequestError) {
    Resources none;
    fake->enqueue("resCtlRequest", Answer::ok(-1));
    EXPECT_EQ(PaxEventAcquire(1, "p", "i", 0, none), -1);
    EXPECT_TRUE(log.linesContaining("velaResCtlRequest error").empty());
    fake->enqueue("resCtlRequest", Answer::serviceSpecific(9));
    EXPECT_EQ(PaxEventAcquire(1, "p", "i", 0, none), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "velaResCtlRequest error:-1"));
}

TEST_F(PaxEvent, ReleaseSendsTheHandleAndMarksTheTrace) {
    fake->setDefault("resCtlRelease", Answer::ok(-5));
    PaxRelease(7);
    EXPECT_EQ(fake->lastCall("resCtlRelease").handle, 7);
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxRelease, handle:7"));
    EXPECT_EQ(trace.events(), (std::vector<TraceEvent>{{TraceEvent::kBegin, "PaxRelease: 7"},
                                                       {TraceEvent::kEnd, ""}}));
    EXPECT_TRUE(paxConnected());
}

TEST_F(PaxEvent, NotifySendsOneItemPerValueWithItsText) {
    fake->setDefault("resCtlRequest", Answer::ok(9));
    EXPECT_EQ(PaxNotify(0x20, 4, {}), 9);
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 10);
    EXPECT_EQ(itemTexts(parcel.requestDatas), (Texts{"32/4/~"}));
    EXPECT_FALSE(parcel.paths || parcel.packageName || parcel.identity);

    EXPECT_EQ(PaxNotify(0x20, 4, {1, 2, -30}), 9);
    parcel = fake->lastParcel();
    EXPECT_EQ(itemTexts(parcel.requestDatas), (Texts{"32/4/~", "32/4/~", "32/4/~"}));
    using OptionalTexts = std::vector<std::optional<std::string>>;
    EXPECT_EQ(parcel.paths, (OptionalTexts{"1", "2", "-30"}));
}

TEST_F(PaxEvent, SystemInfoAndRulesPassTheirArgumentsThrough) {
    fake->enqueue("setRelatedSysInfo", Answer::ok(-7));
    EXPECT_EQ(setRelatedSysInfo(-3, 0x100000005LL), -7);
    EXPECT_EQ(fake->lastCall("setRelatedSysInfo").info, -3);
    EXPECT_EQ(fake->lastCall("setRelatedSysInfo").sysInfoValue, 0x100000005LL);

    // Rule items always carry a value, unlike event items.
    fake->enqueue("ruleCtl", Answer::ok(2));
    Resources resources{{1, "x"}, {2, std::nullopt}};
    EXPECT_EQ(paxRuleCtl(4, -1, resources), 2);
    VelaCall call = fake->lastCall("ruleCtl");
    EXPECT_EQ(call.ruleId, 4);
    EXPECT_EQ(call.ruleStatus, -1);
    EXPECT_EQ(itemTexts(call.items), (Texts{"1/0/x", "2/0/"}));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "paxRuleCtl, ruleId:4, status:-1"));
}

}  // namespace
}  // namespace paxtest
