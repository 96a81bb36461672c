// Connecting, dropping the connection after a failed call, and surviving the service's death.
#include <android/binder_manager.h>
#include <hostbinder/hostbinder.h>

#include <future>
#include <map>
#include <thread>

#include "ChildService.h"
#include "HalclientFixture.h"
#include "hal_connection.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using namespace std::chrono_literals;
using paxtest::Answer;

bool connected() {
    std::shared_lock<std::shared_timed_mutex> lock(halLock);
    return g_vela_hal != nullptr;
}

// Each function reports a failed call under its own name (some under another function's,
// which log readers rely on), drops the connection, and the next call connects again.
TEST_F(HalclientTest, FailedCallDropsTheConnectionAndTheNextCallReconnects) {
    auto receiver = std::make_shared<Receiver>();
    auto byPath = std::make_shared<PathReceiver>();
    ResourceList list{{0x10, "1"}};
    std::vector<std::string> out;
    std::map<std::string, std::string> outMap;
    struct Case {
        const char* method;
        const char* name;
        std::function<int()> call;
        int expected;
    };
    const std::vector<Case> cases = {
            {"init", "vela_init",
             [] {
                 vela_init();
                 return -1;
             },
             -1},
            {"resCtlRequest", "velaResCtlRequest", [&] { return velaResCtlRequest(1, list, 0); },
             -1},
            {"resCtlRequest", "vela client VelaCallbackClient with callback",
             [&] { return velaResCtlRequest(1, 2, list, 3, 4, 5, receiver); }, -1},
            {"resCtlRequest", "velaSACtlRequest", [] { return velaSACtlRequest(1, 2, 3); }, -1},
            {"resCtlRequest", "velaSACtlRequest with callback",
             [&] { return velaSACtlRequest(1, 2, 3, 4, 5, 6, receiver); }, -1},
            {"resCtlRequest", "velaThermalNotify", [&] { return velaThermalNotify(list, 0); }, -1},
            {"resCtlRequest", "vela_resctl_request_by_path",
             [] { return vela_resctl_request_by_path(1, 2, {"a"}, {"1"}, 3, 4, 5); }, -1},
            {"resCtlRequest", "vela client vela_resctl_request_with_callback",
             [&] {
                 return vela_resctl_request_with_callback_by_path(1, 2, {"a"}, {"1"}, 3, 4, 5,
                                                                  byPath);
             },
             -1},
            {"resCtlRequest", "velaDumpRunMap", [] { return velaDumpRunMap(); }, -1},
            {"resCtlRelease", "velaResCtlRelease", [] { return velaResCtlRelease(4); }, -1},
            {"resCtlRelease", "velaSACtlRelease", [] { return velaSACtlRelease(4); }, -1},
            {"resStateRequest", "velaResStateRequest",
             [&] {
                 ResourceList reply;
                 return velaResStateRequest(list, 0, reply);
             },
             -1},
            {"resStateRequest", "vela_res_state_request",
             [&] { return vela_res_state_request_by_path({"a"}, {}, 0, out); }, -1},
            {"resStateRequest", "vela_res_state_request_map",
             [&] {
                 return vela_res_state_request_map_by_path({{"a", "1"}}, 0, outMap);
             },
             -1},
            {"resListeningRegister", "vela_res_listening_register_map",
             [&] { return velaResListeningRegister(list, 0, receiver); }, -1},
            {"resListeningRegister", "vela_res_listening_register",
             [&] { return vela_res_listening_register_by_path({"a"}, 0, byPath); }, -1},
            {"resListeningRegister", "vela_res_listening_register_map",
             [&] {
                 return vela_res_listening_register_map_by_path({{"b", "1"}}, 0, byPath);
             },
             -1},
            {"resListeningUnregister", "velaResListeningUnRegister",
             [] { return velaResListeningUnRegister(4); }, -1},
            {"thermalListeningRegister", "velaThermalListeningRegister",
             [&] { return velaThermalListeningRegister({1}, receiver); }, -1},
            {"thermalListeningUnregister", "velaThermalListeningUnregister",
             [] { return velaThermalListeningUnregister(4); }, -1},
            {"propertySet", "velaPropertySet", [] { return velaPropertySet("k", "v"); }, -1},
            {"propertyGet", "velaPropertyGet",
             [] {
                 delete[] velaPropertyGet("k");
                 return -1;
             },
             -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fake->enqueue(c.method, Answer::exception(EX_ILLEGAL_STATE));
        EXPECT_EQ(c.call(), c.expected);
        EXPECT_TRUE(error(std::string(c.name) + "() failed: vela HAL service not available"))
                << log.dump();
        EXPECT_FALSE(connected());
        log.clear();
    }
    // Nothing registered by a failed call stays in the listening registry: registering the
    // same list again reaches the service.
    const size_t registrations = fake->callCount("resListeningRegister");
    EXPECT_GT(velaResListeningRegister(list, 0, receiver), 0);
    EXPECT_EQ(fake->callCount("resListeningRegister"), registrations + 1);
    EXPECT_TRUE(connected());
}

// A transaction error (as opposed to an error the service reports) fails the call the same way,
// and the connection it drops is really let go: the open connections do not pile up.
TEST_F(HalclientTest, ReconnectingDoesNotLeakConnections) {
    EXPECT_EQ(velaResCtlRelease(1), 0);
    const int32_t open = HostBinder_connectionCount();
    for (int i = 0; i < 5; ++i) {
        fake->enqueue("resCtlRelease", Answer::transactionError(STATUS_FAILED_TRANSACTION));
        EXPECT_EQ(velaResCtlRelease(1), -1);
        EXPECT_EQ(velaResCtlRelease(1), 0);
    }
    EXPECT_TRUE(paxtest::waitUntil([&] { return HostBinder_connectionCount() <= open; }))
            << HostBinder_connectionCount() << " open, " << open << " before";
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

class ChildServiceTest : public testing::Test {
protected:
    paxtest::LogCapture log;
    paxtest::ChildService child;
};

TEST_F(ChildServiceTest, ServiceKilledForRealIsReconnectedOnceBack) {
    ASSERT_TRUE(child.startFake());
    EXPECT_EQ(velaResCtlRelease(1), 0);
    child.kill();
    ASSERT_TRUE(log.waitFor("Vela HAL Service died"));
    ASSERT_TRUE(child.restart());
    EXPECT_GT(velaSACtlRequest(1, 2, 3), 0);
    EXPECT_TRUE(connected());
}

TEST(HalclientNoService, UndeclaredServiceFailsAtOnce) {
    paxtest::LogCapture log;
    EXPECT_EQ(velaResCtlRelease(1), -1);
    EXPECT_TRUE(log.contains(kTag, ANDROID_LOG_ERROR,
                             "Vela is not declared, AServiceManager_isDeclared:0"));
    char* value = velaPropertyGet("k");
    ASSERT_NE(value, nullptr);
    EXPECT_STREQ(value, "");
    delete[] value;
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

}  // namespace
}  // namespace halclienttest
