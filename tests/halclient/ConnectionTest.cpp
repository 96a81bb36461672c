// Connecting, dropping the connection after a failed call, and surviving the service's death
// (many callers while it dies are the end-to-end fault test's business).
#include <hostbinder/hostbinder.h>

#include <future>
#include <map>

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
            {"velaResStateRequest", [&] { return velaResStateRequest(list, 0, list); }},
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
            {"velaResListeningUnRegister", [] { return velaResListeningUnRegister(4); }},
            {"velaThermalListeningRegister",
             [&] { return velaThermalListeningRegister({1}, receiver); }},
            {"velaThermalListeningUnregister", [] { return velaThermalListeningUnregister(4); }},
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
    EXPECT_CALL(*fake, resCtlRelease(1, _)).WillOnce(serviceSpecific(1)).WillOnce(reply(0));
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

}  // namespace
}  // namespace halclienttest
