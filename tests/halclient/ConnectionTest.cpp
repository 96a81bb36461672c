// Connecting, dropping the connection after a failed call, surviving the service's death, and
// many callers while the service goes away and comes back.
#include <hostbinder/hostbinder.h>

#include <atomic>
#include <future>
#include <map>
#include <thread>

#include "HalclientFixture.h"
#include "hal_connection.h"

namespace halclienttest {
namespace {

using namespace std::chrono_literals;

bool connected() {
    std::shared_lock<std::shared_timed_mutex> lock(halLock);
    return g_vela_hal != nullptr;
}

// Each function reports a failed call under its own name (a few under another function's,
// which log readers know them by), drops the connection, and the next call connects again.
TEST_F(HalclientTest, FailedCallIsLoggedDropsTheConnectionAndTheNextCallReconnects) {
    ResourceList list{{0x10, "1"}};
    Strings out;
    std::map<std::string, std::string> outMap;
    struct Case {
        const char* method;
        const char* name;
        std::function<int()> call;
    };
    const std::vector<Case> cases = {
            {"init", "vela_init", [] { return vela_init(), -1; }},
            {"resCtlRequest", "velaResCtlRequest", [&] { return velaResCtlRequest(1, list, 0); }},
            {"resCtlRequest", "vela client VelaCallbackClient with callback",
             [&] { return velaResCtlRequest(1, 2, list, 3, 4, 5, receiver); }},
            {"resCtlRequest", "velaSACtlRequest", [] { return velaSACtlRequest(1, 2, 3); }},
            {"resCtlRequest", "velaSACtlRequest with callback",
             [&] { return velaSACtlRequest(1, 2, 3, 4, 5, 6, receiver); }},
            {"resCtlRequest", "velaThermalNotify", [&] { return velaThermalNotify(list, 0); }},
            {"resCtlRequest", "vela_resctl_request_by_path",
             [] { return vela_resctl_request_by_path(1, 2, {"a"}, {"1"}, 3, 4, 5); }},
            {"resCtlRequest", "vela client vela_resctl_request_with_callback",
             [&] {
                 return vela_resctl_request_with_callback_by_path(1, 2, {}, {}, 3, 4, 5, receiver);
             }},
            {"resCtlRequest", "velaDumpRunMap", velaDumpRunMap},
            {"resCtlRelease", "velaResCtlRelease", [] { return velaResCtlRelease(4); }},
            {"resCtlRelease", "velaSACtlRelease", [] { return velaSACtlRelease(4); }},
            {"resStateRequest", "velaResStateRequest",
             [&] { return velaResStateRequest(list, 0, list); }},
            {"resStateRequest", "vela_res_state_request",
             [&] { return vela_res_state_request_by_path({"a"}, {}, 0, out); }},
            {"resStateRequest", "vela_res_state_request_map",
             [&] { return vela_res_state_request_map_by_path({}, 0, outMap); }},
            {"resListeningRegister", "vela_res_listening_register_map",
             [&] { return velaResListeningRegister(list, 0, receiver); }},
            {"resListeningRegister", "vela_res_listening_register",
             [&] { return vela_res_listening_register_by_path({"a"}, 0, receiver); }},
            {"resListeningRegister", "vela_res_listening_register_map",
             [&] {
                 return vela_res_listening_register_map_by_path({{"b", "1"}}, 0, receiver);
             }},
            {"resListeningUnregister", "velaResListeningUnRegister",
             [] { return velaResListeningUnRegister(4); }},
            {"thermalListeningRegister", "velaThermalListeningRegister",
             [&] { return velaThermalListeningRegister({1}, receiver); }},
            {"thermalListeningUnregister", "velaThermalListeningUnregister",
             [] { return velaThermalListeningUnregister(4); }},
            {"propertySet", "velaPropertySet", [] { return velaPropertySet("k", "v"); }},
            {"propertyGet", "velaPropertyGet", [] { return delete[] velaPropertyGet("k"), -1; }},
    };
    EXPECT_EQ(velaResCtlRelease(1), 0);
    const int32_t connections = HostBinder_connectionCount();
    for (const Case& c : cases) {
        fake->enqueue(c.method, Answer::exception(EX_ILLEGAL_STATE));
        EXPECT_EQ(c.call(), -1) << c.name;
        EXPECT_TRUE(error(std::string(c.name) + "() failed: vela HAL service not available"))
                << c.name << log.dump();
        EXPECT_FALSE(connected()) << c.name;
        log.clear();
    }
    // A transaction error fails a call the same way.
    fake->enqueue("resCtlRelease", Answer::transactionError(STATUS_FAILED_TRANSACTION));
    EXPECT_EQ(velaResCtlRelease(1), -1);
    EXPECT_FALSE(connected());
    // Failed registrations stored nothing: the same list is registered anew.
    EXPECT_GT(velaResListeningRegister(list, 0, receiver), 0);
    EXPECT_TRUE(connected());
    // Dropped connections are really let go.
    EXPECT_TRUE(paxtest::waitUntil([&] { return HostBinder_connectionCount() <= connections; }))
            << HostBinder_connectionCount() << " open, " << connections << " before";
}

TEST_F(HalclientTest, AfterDeathTheNextCallWaitsForTheServiceToComeBack) {
    // Connect twice to the same service, so that a recipient left linked from the first
    // connection would report the death a second time.
    fake->enqueue("resCtlRelease", Answer::serviceSpecific(1));
    EXPECT_EQ(velaResCtlRelease(1), -1);
    EXPECT_EQ(velaResCtlRelease(1), 0);
    service.stop();
    ASSERT_TRUE(log.waitFor("Vela HAL Service died"));
    EXPECT_TRUE(error("Vela HAL Service died"));
    EXPECT_FALSE(connected());

    auto call = std::async(std::launch::async, [] { return velaResCtlRelease(2); });
    EXPECT_EQ(call.wait_for(300ms), std::future_status::timeout);
    fake->enqueue("resCtlRelease", Answer::ok(8));
    ASSERT_TRUE(service.restart());
    ASSERT_EQ(call.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(call.get(), 8);
    EXPECT_EQ(fake->lastCall("resCtlRelease").handle, 2);
    EXPECT_EQ(log.count("Vela HAL Service died"), 1u);
}

TEST(HalclientNoService, UndeclaredServiceFailsAtOnce) {
    paxtest::LogCapture log;
    EXPECT_EQ(velaResCtlRelease(1), -1);
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_ERROR,
                             "Vela is not declared, AServiceManager_isDeclared:0"));
    std::unique_ptr<char[]> value(velaPropertyGet("k"));
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value.get(), "");
}

// The second thread finds the proxy that the first made while it waited for the lock, and
// says so with the "not declared" line (value 1).
TEST_F(HalclientTest, TwoThreadsConnectingShareOneProxy) {
    // Holding the lock shared lets both threads see no proxy, then keeps them both waiting to
    // connect.
    std::shared_lock<std::shared_timed_mutex> held(halLock);
    auto first = std::async(std::launch::async, [] { return velaResCtlRelease(1); });
    auto second = std::async(std::launch::async, [] { return velaSACtlRelease(2); });
    ASSERT_TRUE(log.waitFor("vela client velaResCtlRelease"));
    ASSERT_TRUE(log.waitFor("vela client velaSACtlRelease"));
    std::this_thread::sleep_for(100ms);
    held.unlock();
    EXPECT_EQ(first.get(), 0);
    EXPECT_EQ(second.get(), 0);
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_ERROR,
                        "Vela is not declared, AServiceManager_isDeclared:1"),
              1u);
    EXPECT_EQ(fake->callCount("resCtlRelease"), 2u);
}

// A different request each round.
void someRequest(int thread, int round) {
    auto receiver = std::make_shared<Receiver>();
    ResourceList list{{static_cast<uint32_t>(thread * 1000 + round), "1"}};
    Strings out;
    const std::function<void()> requests[] = {
            [&] { velaResCtlRelease(velaResCtlRequest(1, list, 0)); },
            [&] { velaResCtlRequest(1, 2, list, 3, 4, 5, receiver); },
            [&] { velaResStateRequest(list, 0, list); },
            [&] { velaResListeningUnRegister(velaResListeningRegister(list, 0, receiver)); },
            [&] { vela_res_state_request_by_path({"a"}, {}, 0, out); },
            [&] { delete[] velaPropertyGet("k"); },
    };
    requests[(thread + round) % 6]();
}

// Every call must return, with no crash, deadlock or data race (this test is meant for
// ThreadSanitizer too).
TEST_F(HalclientTest, CallersSurviveTheServiceRestartingUnderThem) {
    // Answers arrive while requests are in flight, as a real service's would.
    fake->setDefault("resCtlRequest", Answer::ok().withNestedCallback({makeItem(0x10, 0, "1")}));
    fake->setDefault("resStateRequest", Answer::items({makeItem(0x10, 0, "1")}));
    std::atomic<bool> stop{false};
    std::atomic<int> calls{0};
    std::vector<std::future<void>> callers;
    // Callers stop however the test ends; their futures wait for them on the way out.
    struct StopOnExit {
        std::atomic<bool>& stop;
        ~StopOnExit() { stop = true; }
    } const stopOnExit{stop};
    for (int t = 0; t < 8; ++t) {
        callers.push_back(std::async(std::launch::async, [&, t] {
            for (int round = 0; !stop; ++round, ++calls) someRequest(t, round);
        }));
    }
    for (int restart = 0; restart < 5; ++restart) {
        std::this_thread::sleep_for(150ms);
        service.stop();
        std::this_thread::sleep_for(50ms);
        ASSERT_TRUE(service.restart());
    }
    std::this_thread::sleep_for(150ms);
    stop = true;
    for (auto& caller : callers) {
        ASSERT_EQ(caller.wait_for(30s), std::future_status::ready) << "a caller is stuck";
    }
    EXPECT_GT(calls.load(), 100);
    EXPECT_GE(velaResCtlRelease(1), 0);
}

}  // namespace
}  // namespace halclienttest
