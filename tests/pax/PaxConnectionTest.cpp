// Connecting, initialising, and getting the connection back after failures and deaths.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "ChildService.h"
#include "PaxTestFixture.h"
#include "Waiter.h"

namespace paxtest {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(PaxNoService, UndeclaredServiceFailsEveryCallWithoutLookup) {
    LogCapture log;
    EXPECT_EQ(paxInit(), -1);
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_ERROR, "paxInit enter")) << log.dump();
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_ERROR,
                             "Vela is not declared, AServiceManager_isDeclared:0"))
            << log.dump();
    EXPECT_TRUE(
            log.contains(kTag, ANDROID_LOG_ERROR, "pax_get_vela_hal_and_link_to_death error:-1"));
    EXPECT_EQ(log.count("Vela HAL Service not found"), 0u);

    std::vector<PaxClient::Resource> resources{{1, "1"}};
    std::string text = "kept";
    EXPECT_EQ(PaxEventAcquire(1, "pkg", "id", 10, resources), -1);
    EXPECT_EQ(PaxNotify(1, 2, {3}), -1);
    EXPECT_EQ(setRelatedSysInfo(1, 2), -1);
    EXPECT_EQ(paxRuleCtl(1, 1, resources), -1);
    EXPECT_EQ(PaxGetHistory(text), -1);
    EXPECT_EQ(PaxMutiResStateRequest(resources), -1);
    EXPECT_EQ(PaxGetPMStatus(0), -1);
    EXPECT_EQ(Pax_fetch_dataset(resources), -1);
    // Without a connection the power query fails plainly: there is no answer to convert.
    EXPECT_EQ(PaxGetPowerConsis(), -1);
    PaxResStateRequest(0x10, text);
    PaxRelease(3);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(resources, (std::vector<PaxClient::Resource>{{1, "1"}}));
    EXPECT_FALSE(paxConnected());
}

TEST(PaxNoService, DeclaredButAbsentServiceFailsAtOnce) {
    LogCapture log;
    ServiceHarness service;
    ASSERT_TRUE(service.declareOnly());
    auto start = steady_clock::now();
    EXPECT_EQ(paxInit(), -1);
    std::vector<PaxClient::Resource> resources;
    EXPECT_EQ(PaxEventAcquire(3, "", "", 0, resources), -1);
    EXPECT_LT(steady_clock::now() - start, milliseconds(1000));
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_ERROR, "Vela HAL Service not found"), 2u) << log.dump();
    EXPECT_EQ(log.count("g_pax_hal is null"), 0u);
}

using PaxConnection = PaxTest;

TEST_F(PaxConnection, InitReusesTheConnection) {
    EXPECT_EQ(paxInit(), 0);
    AIBinder_DeathRecipient* recipient = paxRecipient();
    ASSERT_NE(recipient, nullptr);
    EXPECT_EQ(paxInit(), 0);
    EXPECT_EQ(fake->callCount("init"), 2u);
    EXPECT_EQ(paxRecipient(), recipient);
    EXPECT_EQ(log.count("Vela HAL Service not found"), 0u);
}

TEST_F(PaxConnection, FailedInitReturnsMinusTwoAndNextCallReconnects) {
    EXPECT_EQ(paxInit(), 0);
    AIBinder_DeathRecipient* first = paxRecipient();

    fake->enqueue("init", Answer::serviceSpecific(5));
    EXPECT_EQ(paxInit(), -2);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "vela_init() failed : vela HAL service not available"))
            << log.dump();
    EXPECT_FALSE(paxConnected());

    EXPECT_EQ(paxInit(), 0);
    EXPECT_TRUE(paxConnected());
    EXPECT_NE(paxRecipient(), first);
    EXPECT_EQ(fake->callCount("init"), 3u);
}

// Every integer-returning function drops the connection on a failed status, names itself in
// the log, and the next call connects again.
TEST_F(PaxConnection, FailedCallDropsTheConnectionUntilTheNextCall) {
    std::vector<PaxClient::Resource> resources{{7, "1"}};
    struct Case {
        const char* method;
        const char* logName;
        std::function<int32_t()> call;
    };
    std::vector<Case> cases{
            {"resCtlRequest", "PaxEventAcquire",
             [&] { return PaxEventAcquire(9, "p", "i", 1, resources); }},
            {"resCtlRequest", "PaxNotify", [] { return PaxNotify(1, 1, {}); }},
            {"setRelatedSysInfo", "setRelatedSysInfo", [] { return setRelatedSysInfo(1, 1); }},
            {"ruleCtl", "paxRuleCtl", [&] { return paxRuleCtl(1, 0, resources); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.logName);
        ASSERT_EQ(paxInit(), 0);
        AIBinder_DeathRecipient* before = paxRecipient();
        fake->enqueue(c.method, Answer::exception(EX_ILLEGAL_STATE));
        EXPECT_EQ(c.call(), -1);
        EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                           std::string(c.logName) + "() failed : vela HAL service not available"))
                << log.dump();
        EXPECT_FALSE(paxConnected());

        fake->enqueue(c.method, Answer::ok(11));
        EXPECT_EQ(c.call(), 11);
        EXPECT_NE(paxRecipient(), before);
    }
}

TEST_F(PaxConnection, FailedReleaseIsLoggedUnderTheReleaseRoutineName) {
    ASSERT_EQ(paxInit(), 0);
    fake->enqueue("resCtlRelease", Answer::transactionError(STATUS_UNKNOWN_ERROR));
    PaxRelease(4);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "velaResCtlRelease() failed : vela HAL service not available"))
            << log.dump();
    EXPECT_FALSE(paxConnected());
    PaxRelease(5);
    EXPECT_TRUE(paxConnected());
    EXPECT_EQ(fake->lastCall("resCtlRelease").handle, 5);
}

TEST_F(PaxConnection, ServiceDeathDropsTheHandleAndRestartReconnects) {
    ASSERT_EQ(paxInit(), 0);
    AIBinder_DeathRecipient* before = paxRecipient();
    service.stop();
    ASSERT_TRUE(log.waitFor("Vela HAL Service died")) << log.dump();
    EXPECT_FALSE(paxConnected());

    EXPECT_EQ(PaxNotify(1, 1, {}), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "Vela HAL Service not found"));

    ASSERT_TRUE(service.restart());
    fake->enqueue("resCtlRequest", Answer::ok(21));
    EXPECT_EQ(PaxNotify(1, 1, {}), 21);
    EXPECT_NE(paxRecipient(), before);
    EXPECT_EQ(log.count("Vela HAL Service died"), 1u);
}

TEST(PaxChildService, KilledServiceIsNoticedAndFoundAgain) {
    LogCapture log;
    ChildService child;
    ASSERT_TRUE(child.startFake());
    ASSERT_EQ(paxInit(), 0);
    child.kill();
    ASSERT_TRUE(log.waitFor("Vela HAL Service died")) << log.dump();
    EXPECT_FALSE(paxConnected());
    ASSERT_TRUE(child.restart());
    std::vector<PaxClient::Resource> resources{{2, "x"}};
    EXPECT_EQ(PaxEventAcquire(3, "pkg", "", 5, resources), 1);
}

// The service dies while a call holds the handle: the call comes back, the death handler gets
// the lock afterwards, and the next call after the restart succeeds.
TEST_F(PaxConnection, DeathDuringACallDoesNotDeadlock) {
    ASSERT_EQ(paxInit(), 0);
    fake->blockNext("resCtlRequest");
    auto inFlight = std::async(std::launch::async, [] {
        std::vector<PaxClient::Resource> resources;
        return PaxEventAcquire(1, "", "", 0, resources);
    });
    ASSERT_TRUE(fake->waitUntilBlocked());
    service.stop();
    ASSERT_EQ(inFlight.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    inFlight.get();
    ASSERT_TRUE(log.waitFor("Vela HAL Service died")) << log.dump();
    ASSERT_TRUE(service.restart());
    fake->enqueue("resCtlRequest", Answer::ok(33));
    EXPECT_EQ(PaxNotify(1, 0, {}), 33);
}

TEST_F(PaxConnection, ConcurrentCallersFromColdStartAllSucceed) {
    constexpr int kThreads = 6;
    constexpr int kCallsEach = 20;
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kCallsEach; ++i) {
                std::vector<PaxClient::Resource> resources{{static_cast<uint32_t>(t), "v"}};
                if (PaxEventAcquire(t, "pkg", "id", i, resources) <= 0) ++failures;
                PaxRelease(i);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0) << log.dump();
    EXPECT_EQ(fake->callCount("resCtlRequest"), static_cast<size_t>(kThreads * kCallsEach));
    EXPECT_EQ(fake->callCount("resCtlRelease"), static_cast<size_t>(kThreads * kCallsEach));
}

}  // namespace
}  // namespace paxtest
