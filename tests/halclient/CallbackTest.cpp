// One-shot request callbacks (delivery in the caller's form, on a binder thread, with no
// library lock held, and removal from request_callbacks), and listeners by opcode, thermal
// subsystem and path.
#include <hostbinder/hostbinder.h>

#include <atomic>

#include "HalclientFixture.h"
#include "listening_registry.h"
#include "vela_callback_client.h"

namespace halclienttest {
namespace {

constexpr char kDuplicate[] = "Same callback interface registered already";

size_t pendingRequests() {
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    return request_callbacks.size();
}

size_t groups() {
    std::lock_guard<std::mutex> lock(listening_callback_mutex);
    return listening_callbacks.size();
}

bool callbackLine(const paxtest::LogCapture& log, const std::string& text,
                  int priority = ANDROID_LOG_INFO) {
    return log.contains(kCallbackTag, priority, text);
}

TEST_F(HalclientTest, OneShotCallbackIsDeliveredAndLeavesTheRegistry) {
    std::atomic<bool> onBinderThread{false};
    std::atomic<int> nested{0};
    // Calling back into the library from the receiver would deadlock if any library lock were
    // held: this request takes halLock and request_callback_mutex.
    receiver->setWhileCalled([&] {
        onBinderThread = HostBinder_isBinderThread();
        nested = velaSACtlRequest(1, 2, 3, 4, 5, 6, std::make_shared<Receiver>());
    });
    ResourceList list{{0x10, "1"}};
    EXPECT_GT(velaResCtlRequest(1, 2, list, 3, 4, 5, receiver), 0);
    EXPECT_TRUE(info("vela client velaResCtlRequest add to request_callbacks"));
    EXPECT_EQ(pendingRequests(), 1u);

    ASSERT_TRUE(
            fake->fireCallback(0, {makeItem(0x10, 0, "v"), makeItem(int32_t(0x80000020))}).isOk());
    EXPECT_EQ(receiver->got(),
              (std::vector<std::list<Resource>>{{{0x10, "v"}, {0x80000020u, std::nullopt}}}));
    EXPECT_TRUE(onBinderThread);
    EXPECT_GT(nested, 0);
    EXPECT_EQ(pendingRequests(), 1u);  // only the nested request's client is left
    for (const char* line :
         {"VelaCallbackClient::onCallback res_Id 0x10 res_Value v is_register 0",
          "VelaCallbackClient::onCallback res_Id 0x80000020 is_register 0",
          "VelaCallback::onCallback call IClientCallback onCallback is_register 0"}) {
        EXPECT_TRUE(callbackLine(log, line)) << line << log.dump();
    }
    EXPECT_EQ(log.count("BnVelaCallback::logFunc NDK BACKEND method_name onCallback exception_code "
                        "0 exception_message  transaction_error 0 service_specific_error_code 0"),
              1u);

    // A second answer still reaches the receiver, but there is nothing left to remove.
    receiver->setWhileCalled(nullptr);
    ASSERT_TRUE(fake->fireCallback(0, {makeItem(0x10, 0, "w")}).isOk());
    EXPECT_EQ(receiver->got().size(), 2u);
    EXPECT_TRUE(callbackLine(log, "callback not found in request_callbacks", ANDROID_LOG_ERROR));
    EXPECT_EQ(pendingRequests(), 1u);
}

// The answer may come while the request is still in flight; a receiver that throws is
// contained and the client leaves the registry all the same.
TEST_F(HalclientTest, AnswerDuringTheRequestReachesEvenAThrowingReceiver) {
    receiver->setWhileCalled([] { throw std::runtime_error("receiver failed"); });
    EXPECT_CALL(*fake, resCtlRequest).WillOnce([](const VelaRequestParcel& request, int32_t* out) {
        EXPECT_TRUE(request.callback->onCallback({makeItem(0x30, 0, "x")}).isOk());
        return *out = 12, Status::ok();
    });
    EXPECT_EQ(velaSACtlRequest(1, 2, 0x30, 4, 5, 6, receiver), 12);
    EXPECT_EQ(receiver->got(), (std::vector<std::list<Resource>>{{{0x30, "x"}}}));
    EXPECT_EQ(pendingRequests(), 0u);
}

// Missing texts arrive as empty strings so that values and paths stay index for index; only
// items with both texts are logged.
TEST_F(HalclientTest, PathCallbackKeepsValuesAndPathsAligned) {
    EXPECT_GT(vela_resctl_request_with_callback_by_path(1, 2, {"a"}, {"1"}, 3, 4, 5, receiver), 0);
    EXPECT_TRUE(info("vela client vela_resctl_request_with_callback add to request_callbacks"));
    ASSERT_TRUE(fake->fireCallback(0, {makeItem(0, 0, "1", "a"), makeItem(0, 0, {}, "b"),
                                       makeItem(0, 0, "3")})
                        .isOk());
    EXPECT_EQ(receiver->gotByPath(), std::make_pair(Strings{"1", "", "3"}, Strings{"a", "b", ""}));
    EXPECT_EQ(log.linesContaining("VelaCallbackClient::onCallback res_Id").size(), 1u);
    EXPECT_TRUE(
            callbackLine(log, "VelaCallbackClient::onCallback res_Id a res_Value 1 is_register 0"));
    EXPECT_EQ(pendingRequests(), 0u);
}

TEST_F(HalclientTest, SameIdListIsRegisteredOnlyOnceInTheSameOrder) {
    ResourceList oneTwo{{1, "a"}, {2, "b"}};
    ResourceList twoOne{{2, "b"}, {1, "a"}};
    ResourceList empty;
    EXPECT_CALL(*fake, resListeningRegister).Times(3);
    EXPECT_GT(velaResListeningRegister(oneTwo, 0, receiver), 0);
    EXPECT_TRUE(info("A callback has been registered to Vela HAL "));
    EXPECT_EQ(velaResListeningRegister(oneTwo, 0, std::make_shared<Receiver>()), -1);
    EXPECT_TRUE(error(kDuplicate));
    EXPECT_GT(velaResListeningRegister(twoOne, 0, receiver), 0);
    EXPECT_GT(velaResListeningRegister(empty, 0, receiver), 0);
    EXPECT_EQ(velaResListeningRegister(empty, 0, receiver), -1);

    // A listener hears every change and never touches the one-shot registry.
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(fake->fireCallback(0, {makeItem(1, 0, "c")}).isOk());
    }
    EXPECT_EQ(receiver->got().size(), 2u);
    EXPECT_EQ(log.count(kCallbackTag, ANDROID_LOG_INFO,
                        "VelaCallbackClient::onCallback res_Id 0x1 res_Value c is_register 1"),
              2u);
    EXPECT_TRUE(log.linesContaining("request_callbacks").empty());
}

TEST_F(HalclientTest, UnregisterRemovesEveryGroupWithTheHandle) {
    ResourceList first{{1, "a"}};
    ResourceList second{{2, "b"}};
    ON_CALL(*fake, resListeningRegister).WillByDefault(reply(7));
    ASSERT_EQ(velaResListeningRegister(first, 0, receiver), 7);
    ASSERT_EQ(velaResListeningRegister(second, 0, receiver), 7);
    EXPECT_CALL(*fake, thermalListeningRegister(std::vector<int32_t>{3}, _, _)).WillOnce(reply(11));
    ASSERT_EQ(velaThermalListeningRegister({3}, receiver), 11);
    EXPECT_TRUE(info("subsys's callback has been registered to Vela HAL"));

    EXPECT_CALL(*fake, resListeningUnregister(7, _)).WillOnce(reply(4)).WillRepeatedly(reply(0));
    EXPECT_EQ(velaResListeningUnRegister(7), 4);
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO,
                        "a callback has been unregistered to Vela HAL handle 7"),
              2u);
    EXPECT_EQ(groups(), 1u);
    EXPECT_EQ(velaResListeningUnRegister(7), 0);
    EXPECT_TRUE(error("The callback was not registered before"));

    // Thermal unregistration tells the service only; the group goes with a resource
    // unregistration of its handle, even one whose call fails.
    EXPECT_CALL(*fake, thermalListeningUnregister(11, _));
    EXPECT_EQ(velaThermalListeningUnregister(11), 0);
    EXPECT_TRUE(info("subsys's callback has been unRegistered to Vela HAL"));
    EXPECT_EQ(groups(), 1u);
    EXPECT_CALL(*fake, resListeningUnregister(11, _))
            .WillOnce(transactionError(STATUS_DEAD_OBJECT));
    EXPECT_EQ(velaResListeningUnRegister(11), -1);
    EXPECT_EQ(groups(), 0u);
}

TEST_F(HalclientTest, PathListenersAreKeyedByTheirPathsInOrder) {
    EXPECT_CALL(*fake, resListeningRegister).Times(4);
    EXPECT_GT(vela_res_listening_register_by_path({"b", "a"}, 0, receiver), 0);
    EXPECT_GT(vela_res_listening_register_by_path({"a", "b"}, 0, receiver), 0);
    EXPECT_EQ(vela_res_listening_register_by_path({"a", "b"}, 0, receiver), -1);
    EXPECT_GT(vela_res_listening_register_by_path({"c"}, 0, receiver), 0);
    // The map registers its keys; its values do not tell listeners apart.
    EXPECT_EQ(vela_res_listening_register_map_by_path({{"c", "1"}}, 0, receiver), -1);
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_ERROR, kDuplicate), 2u);

    // Opcode listeners have no paths, so an empty path list collides with any of them.
    ResourceList ids{{9, "x"}};
    EXPECT_GT(velaResListeningRegister(ids, 0, receiver), 0);
    EXPECT_EQ(vela_res_listening_register_by_path({}, 0, receiver), -1);

    ASSERT_TRUE(fake->fireCallback(0, {makeItem(0, 0, "5", "b")}).isOk());
    EXPECT_EQ(receiver->gotByPath().first, Strings{"5"});
}

}  // namespace
}  // namespace halclienttest
