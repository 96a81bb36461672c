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
        const char* name;
        std::function<int()> call;
    };
    const std::vector<Case> cases = {
            {"vela_init", [] { return vela_init(), -1; }},
            {"velaResCtlRequest", [&] { return velaResCtlRequest(1, list, 0); }},
            {"vela client VelaCallbackClient with callback",
             [&] { return velaResCtlRequest(1, 2, list, 3, 4, 5, receiver); }},
            {"velaSACtlRequest", [] { return velaSACtlRequest(1, 2, 3); }},
            {"velaSACtlRequest with callback",
             [&] { return velaSACtlRequest(1, 2, 3, 4, 5, 6, receiver); }},
            {"velaThermalNotify", [&] { return velaThermalNotify(list, 0); }},
            {"vela_resctl_request_by_path",
             [] { return vela_resctl_request_by_path(1, 2, {"a"}, {"1"}, 3, 4, 5); }},
            {"vela client vela_resctl_request_with_callback",
             [&] {
                 return vela_resctl_request_with_callback_by_path(1, 2, {}, {}, 3, 4, 5, receiver);
             }},
            {"velaDumpRunMap", velaDumpRunMap},
            {"velaResCtlRelease", [] { return velaResCtlRelease(4); }},
            {"velaSACtlRelease", [] { return velaSACtlRelease(4); }},
            {"velaResStateRequest",
             [&] { return velaResStateRequest(list, 0, list); }},
            {"vela_res_state_request",
             [&] { return vela_res_state_request_by_path({"a"}, {}, 0, out); }},
            {"vela_res_state_request_map",
             [&] { return vela_res_state_request_map_by_path({}, 0, outMap); }},
            {"vela_res_listening_register_map",
             [&] { return velaResListeningRegister(list, 0, receiver); }},
            {"vela_res_listening_register",
             [&] { return vela_res_listening_register_by_path({"a"}, 0, receiver); }},
            {"vela_res_listening_register_map",
             [&] {
                 return vela_res_listening_register_map_by_path({{"b", "1"}}, 0, receiver);
             }},
            {"velaResListeningUnRegister",
             [] { return velaResListeningUnRegister(4); }},
            {"velaThermalListeningRegister",
             [&] { return velaThermalListeningRegister({1}, receiver); }},
            {"velaThermalListeningUnregister",
             [] { return velaThermalListeningUnregister(4); }},
            {"velaPropertySet", [] { return velaPropertySet("k", "v"); }},
            {"velaPropertyGet", [] { return delete[] velaPropertyGet("k"), -1; }},
    };
    EXPECT_EQ(velaResCtlRelease(1), 0);
    const int32_t connections = HostBinder_connectionCount();
    const auto failed = exception(EX_ILLEGAL_STATE);
    ON_CALL(*fake, init).WillByDefault(failed);
    ON_CALL(*fake, resCtlRequest).WillByDefault(failed);
    ON_CALL(*fake, resCtlRelease).WillByDefault(failed);
    ON_CALL(*fake, resStateRequest).WillByDefault(failed);
    ON_CALL(*fake, resListeningRegister).WillByDefault(failed);
    ON_CALL(*fake, resListeningUnregister).WillByDefault(failed);
    ON_CALL(*fake, thermalListeningRegister).WillByDefault(failed);
    ON_CALL(*fake, thermalListeningUnregister).WillByDefault(failed);
    ON_CALL(*fake, propertySet).WillByDefault(failed);
    ON_CALL(*fake, propertyGet).WillByDefault(failed);
    for (const Case& c : cases) {
        EXPECT_EQ(c.call(), -1) << c.name;
        EXPECT_TRUE(error(std::string(c.name) + "() failed: vela HAL service not available"))
                << c.name << log.dump();
        EXPECT_FALSE(connected()) << c.name;
        log.clear();
    }
    // A transaction error fails a call the same way.
    ON_CALL(*fake, resCtlRelease).WillByDefault(transactionError(STATUS_FAILED_TRANSACTION));
    EXPECT_EQ(velaResCtlRelease(1), -1);
    EXPECT_FALSE(connected());
    // Failed registrations stored nothing: the same list is registered anew.
    EXPECT_CALL(*fake, resListeningRegister).WillOnce(reply(5));
    EXPECT_EQ(velaResListeningRegister(list, 0, receiver), 5);
    EXPECT_TRUE(connected());
    // Dropped connections are really let go.
    EXPECT_TRUE(paxtest::waitUntil([&] { return HostBinder_connectionCount() <= connections; }))
            << HostBinder_connectionCount() << " open, " << connections << " before";
}

TEST_F(HalclientTest, AfterDeathTheNextCallWaitsForTheServiceToComeBack) {
    // Connect twice to the same service, so that a recipient left linked from the first
    // connection would report the death a second time.
    EXPECT_CALL(*fake, resCtlRelease(2, _)).WillOnce(reply(8));
    EXPECT_CALL(*fake, resCtlRelease(1, _))
            .WillOnce(serviceSpecific(1))
            .WillOnce(reply(0));
    EXPECT_EQ(velaResCtlRelease(1), -1);
    EXPECT_EQ(velaResCtlRelease(1), 0);
    service.stop();
    ASSERT_TRUE(log.waitFor("Vela HAL Service died"));
    EXPECT_TRUE(error("Vela HAL Service died"));
    EXPECT_FALSE(connected());

    auto call = std::async(std::launch::async, [] { return velaResCtlRelease(2); });
    EXPECT_EQ(call.wait_for(300ms), std::future_status::timeout);
    ASSERT_TRUE(service.restart());
    ASSERT_EQ(call.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(call.get(), 8);
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
    ON_CALL(*fake, resCtlRequest).WillByDefault(answerThroughCallback({makeItem(0x10, 0, "1")}));
    ON_CALL(*fake, resStateRequest).WillByDefault(reply(Items{makeItem(0x10, 0, "1")}));
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
