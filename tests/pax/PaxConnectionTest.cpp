// Connecting, initialising, and getting the connection back after failures and deaths.
#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "PaxTestFixture.h"
#include "Waiter.h"

namespace paxtest {
namespace {

TEST(PaxNoService, UndeclaredServiceFailsEveryCallWithoutLookupAndAnAbsentOneAtOnce) {
    LogCapture log;
    EXPECT_EQ(paxInit(), -1);
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_ERROR,
                             "Vela is not declared, AServiceManager_isDeclared:0"));
    EXPECT_TRUE(
            log.contains(kTag, ANDROID_LOG_ERROR, "pax_get_vela_hal_and_link_to_death error:-1"));
    EXPECT_EQ(log.count("Vela HAL Service not found"), 0u) << log.dump();

    Resources resources{{1, "1"}};
    std::string text = "kept";
    // No connection means no answer to convert: a plain failure, not a conversion error.
    const std::vector<int32_t> results = {PaxEventAcquire(1, "pkg", "id", 10, resources),
                                          PaxNotify(1, 2, {3}),
                                          setRelatedSysInfo(1, 2),
                                          paxRuleCtl(1, 1, resources),
                                          PaxGetHistory(text),
                                          PaxMutiResStateRequest(resources),
                                          PaxGetPMStatus(0),
                                          Pax_fetch_dataset(resources),
                                          PaxGetPowerConsis()};
    EXPECT_THAT(results, testing::Each(-1));
    PaxResStateRequest(0x10, text);
    PaxRelease(3);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(resources, (Resources{{1, "1"}}));

    // Declared but not served: the unit never waits for the service.
    ServiceHarness service;
    ASSERT_TRUE(service.declareOnly());
    EXPECT_EQ(paxInit(), -1);
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_ERROR, "Vela HAL Service not found"));
}

using PaxConnection = PaxTest;

TEST_F(PaxConnection, InitReusesTheConnectionAndAFailedInitDropsIt) {
    EXPECT_CALL(*fake, init).Times(3);
    EXPECT_EQ(paxInit(), 0);
    AIBinder_DeathRecipient* first = paxRecipient();
    EXPECT_EQ(paxInit(), 0);
    EXPECT_EQ(paxRecipient(), first);

    EXPECT_CALL(*fake, init).WillOnce(serviceSpecific(5)).RetiresOnSaturation();
    EXPECT_EQ(paxInit(), -2);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "vela_init() failed : vela HAL service not available"));
    EXPECT_FALSE(paxConnected());
    EXPECT_EQ(paxInit(), 0);
    EXPECT_NE(paxRecipient(), first);
}

// A failed status drops the connection, names the function in the log, and the next call
// connects again.
TEST_F(PaxConnection, FailedCallDropsTheConnectionUntilTheNextCall) {
    Resources resources{{7, "1"}};
    const std::pair<std::string, std::function<int32_t()>> cases[] = {
            {"PaxEventAcquire", [&] { return PaxEventAcquire(9, "", "", 1, resources); }},
            {"PaxNotify", [] { return PaxNotify(1, 1, {}); }},
            {"setRelatedSysInfo", [] { return setRelatedSysInfo(1, 1); }},
            {"paxRuleCtl", [&] { return paxRuleCtl(1, 0, resources); }},
            {"velaResCtlRelease", [] { return PaxRelease(1), 11; }},
    };
    auto answerAll = [&](auto action) {
        ON_CALL(*fake, resCtlRequest).WillByDefault(action);
        ON_CALL(*fake, setRelatedSysInfo).WillByDefault(action);
        ON_CALL(*fake, ruleCtl).WillByDefault(action);
        ON_CALL(*fake, resCtlRelease).WillByDefault(action);
    };
    for (const auto& [logName, call] : cases) {
        SCOPED_TRACE(logName);
        ASSERT_EQ(paxInit(), 0);
        AIBinder_DeathRecipient* before = paxRecipient();
        answerAll(exception(EX_ILLEGAL_STATE));
        call();
        EXPECT_TRUE(
                logged(ANDROID_LOG_ERROR, logName + "() failed : vela HAL service not available"));
        EXPECT_FALSE(paxConnected());
        answerAll(reply(11));
        EXPECT_EQ(call(), 11);
        EXPECT_NE(paxRecipient(), before);
    }
}

// The service dies while a call holds the lock shared: the death handler waits for it instead
// of deadlocking. With no call to fail, the death alone drops the handle; the first call after
// the restart connects again.
TEST_F(PaxConnection, DeathDropsTheHandleWithoutDeadlockingACallInFlight) {
    ASSERT_EQ(paxInit(), 0);
    Gate gate;
    EXPECT_CALL(*fake, resCtlRequest)
            .WillOnce(testing::DoAll(testing::InvokeWithoutArgs([&] { gate.pass(); }), reply(1)))
            .WillRepeatedly(reply(21));
    auto inFlight = std::async(std::launch::async, [] { return PaxNotify(1, 0, {}); });
    ASSERT_TRUE(gate.arrived.waitFor(1));
    service.stop();
    gate.open();
    ASSERT_EQ(inFlight.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    ASSERT_TRUE(log.waitFor("Vela HAL Service died"));
    ASSERT_TRUE(service.restart());

    ASSERT_EQ(paxInit(), 0);
    service.stop();
    ASSERT_TRUE(waitUntil([&] { return log.count("Vela HAL Service died") == 2; }));
    EXPECT_FALSE(paxConnected());
    EXPECT_EQ(PaxNotify(1, 1, {}), -1);
    ASSERT_TRUE(service.restart());
    EXPECT_EQ(PaxNotify(1, 1, {}), 21);
}

TEST_F(PaxConnection, ConcurrentCallersFromColdStartAllSucceed) {
    EXPECT_CALL(*fake, resCtlRequest).Times(120).WillRepeatedly(reply(1));
    EXPECT_CALL(*fake, resCtlRelease).Times(120);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 20; ++i) {
                Resources resources{{static_cast<uint32_t>(t), "v"}};
                if (PaxEventAcquire(t, "pkg", "id", i, resources) <= 0) ++failures;
                PaxRelease(i);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0) << log.dump();
}

}  // namespace
}  // namespace paxtest
