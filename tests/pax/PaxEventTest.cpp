// What the event, release, notify, system-info and rule calls send, log and trace.
#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "PaxTestFixture.h"

namespace paxtest {
namespace {

class PaxEvent : public PaxTest {
protected:
    TraceCapture trace{1};
};

TEST_F(PaxEvent, EveryCallBuildsItsParcel) {
    Resources two{{0x10, "a"}, {0x80000001u, std::nullopt}}, one{{3, "v"}}, none;
    const std::vector<std::pair<std::string, std::function<void()>>> cases = {
            {"8 0 -1 0 0 pkg:com.app id:id1 | 5 | 10 =a | 80000001",
             [&] { PaxEventAcquire(5, "com.app", "id1", -1, two); }},
            // Reserved command ids select the kind instead of becoming an item.
            {"1 0 1 0 0 pkg:p id:i", [&] { PaxEventAcquire(-2, "p", "i", 1, none); }},
            // The shortcuts: no package for plain resources; identity before package for
            // platform ones.
            {"1 0 300 0 0 pkg: id:ident | 3 =v",
             [&] { PaxResAcquire(one, nullptr, "ident", 300); }},
            {"12 0 7 0 0 pkg:pkg id:ident | 3 =v",
             [&] { PaxPlatformResAcquire(one, nullptr, "ident", "pkg", 7); }},
            // Empty texts travel as present empty strings.
            {"8 0 0 0 0 pkg: id: | 7", [&] { PaxEventAcquire(7, "", "", 0, none); }},
            // One item per value, and each value's text among the paths at its position.
            {"10 0 0 0 0 | 20 param:4", [] { PaxNotify(0x20, 4, {}); }},
            {"10 0 0 0 0 paths:1,2,-30 | 20 param:4 | 20 param:4 | 20 param:4",
             [] {
                 PaxNotify(0x20, 4, {1, 2, -30});
             }},
    };
    EXPECT_CALL(*fake, resCtlRequest).Times(static_cast<int>(cases.size()));
    for (const auto& [expected, call] : cases) {
        call();
        EXPECT_EQ(describe(sent), expected);
    }
}

// Empty texts show as "none"; the marker is cut at 1023 characters, the parcel is not.
TEST_F(PaxEvent, EventAndReleaseLogAndLeaveAnInstantTraceMarker) {
    Resources none;
    const std::string pkg(2000, 'p');
    ON_CALL(*fake, resCtlRequest).WillByDefault(answer(reply(42)));
    EXPECT_EQ(PaxEventAcquire(5, "com.app", "id1", -1, none), 42);
    // The release's answer is ignored and keeps the connection.
    EXPECT_CALL(*fake, resCtlRelease(7, _)).WillOnce(reply(-5));
    PaxRelease(7);
    EXPECT_TRUE(paxConnected());
    PaxEventAcquire(7, "", "", 0, none);
    PaxEventAcquire(1, pkg, "i", 2, none);
    EXPECT_EQ(sent.packageName, pkg);

    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxEventAcquire, cmdid:5, pkg:com.app, identity:id1"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxRelease, handle:7"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "PaxEventAcquire, cmdid:7, pkg:none, identity:none"));
    const std::string full = "PaxEventAcquire  cmd_id:1 pkg:" + pkg + " identity:i duration:2";
    EXPECT_EQ(trace.events(),
              (Texts{"PaxEventAcquire  cmd_id:5 pkg:com.app identity:id1 duration:-1", "end",
                     "PaxRelease: 7", "end",
                     "PaxEventAcquire  cmd_id:7 pkg:none identity:none duration:0", "end",
                     full.substr(0, 1023), "end"}));

    // Nothing is traced unless tag bit 0 is on.
    TraceCapture::clear();
    TraceCapture::setEnabledTags(~uint64_t{1});
    EXPECT_CALL(*fake, resCtlRelease(1, _));
    PaxEventAcquire(1, "p", "i", 2, none);
    PaxRelease(1);
    EXPECT_TRUE(trace.events().empty());
}

TEST_F(PaxEvent, FailedStatusAloneLogsTheRequestError) {
    Resources none;
    EXPECT_CALL(*fake, resCtlRequest).WillOnce(reply(-1)).WillOnce(serviceSpecific(9));
    EXPECT_EQ(PaxEventAcquire(1, "p", "i", 0, none), -1);
    EXPECT_TRUE(log.linesContaining("velaResCtlRequest error").empty());
    EXPECT_EQ(PaxEventAcquire(1, "p", "i", 0, none), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "velaResCtlRequest error:-1"));
}

TEST_F(PaxEvent, SystemInfoAndRulesPassTheirArgumentsThrough) {
    EXPECT_CALL(*fake, setRelatedSysInfo(-3, 0x100000005LL, _)).WillOnce(reply(-7));
    EXPECT_EQ(setRelatedSysInfo(-3, 0x100000005LL), -7);

    // Rule items always carry a value, unlike event items.
    Items items;
    EXPECT_CALL(*fake, ruleCtl(4, -1, _, _))
            .WillOnce(testing::DoAll(testing::SaveArg<2>(&items), reply(2)));
    Resources resources{{1, "x"}, {2, std::nullopt}};
    EXPECT_EQ(paxRuleCtl(4, -1, resources), 2);
    EXPECT_EQ(describe(items), " | 1 =x | 2 =");
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "paxRuleCtl, ruleId:4, status:-1"));
}

}  // namespace
}  // namespace paxtest
