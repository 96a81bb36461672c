// One-shot request callbacks: delivery in the caller's form, on a binder thread, with no
// library lock held, and removal from request_callbacks.
#include <hostbinder/hostbinder.h>

#include <atomic>

#include "HalclientFixture.h"
#include "VelaCallbackClient.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using paxtest::Answer;
using paxtest::makeItem;

size_t pendingRequests() {
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    return request_callbacks.size();
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
          "VelaCallback::onCallback call IClientCallback onCallback is_register 0",
          "callback is found in request_callbacks",
          "VelaCallback::onCallback request callback called , remove from request_callbacks , "
          "request_callbacks size before 2 after 1"}) {
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
    EXPECT_TRUE(callbackLine(log,
                             "VelaCallback::onCallback request callback called , remove from "
                             "request_callbacks , request_callbacks size before 1 after 1"));
}

// The answer may come while the request is still in flight; a receiver that throws is
// contained and the client leaves the registry all the same.
TEST_F(HalclientTest, AnswerDuringTheRequestReachesEvenAThrowingReceiver) {
    receiver->setWhileCalled([] { throw std::runtime_error("receiver failed"); });
    fake->enqueue("resCtlRequest", Answer::ok(12).withNestedCallback({makeItem(0x30, 0, "x")}));
    EXPECT_EQ(velaSACtlRequest(1, 2, 0x30, 4, 5, 6, receiver), 12);
    EXPECT_TRUE(fake->lastCall().nestedCallbackStatus->ok);
    EXPECT_EQ(receiver->got(), (std::vector<std::list<Resource>>{{{0x30, "x"}}}));
    EXPECT_EQ(pendingRequests(), 0u);
}

// Missing texts arrive as empty strings so that values and paths stay index for index; only
// items with both texts are logged.
TEST_F(HalclientTest, PathCallbackKeepsValuesAndPathsAligned) {
    EXPECT_GT(vela_resctl_request_with_callback_by_path(1, 2, {"a"}, {"1"}, 3, 4, 5, byPath), 0);
    EXPECT_TRUE(info("vela client vela_resctl_request_with_callback add to request_callbacks"));
    ASSERT_TRUE(fake->fireCallback(0, {makeItem(0, 0, "1", "a"), makeItem(0, 0, {}, "b"),
                                       makeItem(0, 0, "3")})
                        .isOk());
    using Strings = std::vector<std::string>;
    EXPECT_EQ(byPath->got(), std::make_pair(Strings{"1", "", "3"}, Strings{"a", "b", ""}));
    EXPECT_EQ(log.linesContaining("VelaCallbackClient::onCallback res_Id").size(), 1u);
    EXPECT_TRUE(
            callbackLine(log, "VelaCallbackClient::onCallback res_Id a res_Value 1 is_register 0"));
    EXPECT_EQ(pendingRequests(), 0u);
}

TEST_F(HalclientTest, ClientEnteredTwiceIsRemovedTwice) {
    auto client = ndk::SharedRefBase::make<VelaCallbackClient>(receiver, false, false);
    auto other = ndk::SharedRefBase::make<VelaCallbackClient>(receiver, false, false);
    {
        std::lock_guard<std::mutex> lock(request_callback_mutex);
        request_callbacks = {client, other, client};
    }
    // No items: nothing to deliver, but the client still leaves.
    EXPECT_TRUE(client->onCallback({}).isOk());
    EXPECT_TRUE(receiver->got().empty());
    EXPECT_EQ(log.count(kCallbackTag, ANDROID_LOG_INFO, "callback is found in request_callbacks"),
              2u);
    EXPECT_TRUE(callbackLine(log,
                             "VelaCallback::onCallback request callback called , remove from "
                             "request_callbacks , request_callbacks size before 3 after 1"));
    {
        std::lock_guard<std::mutex> lock(request_callback_mutex);
        EXPECT_EQ(request_callbacks, (std::vector<std::shared_ptr<VelaCallbackClient>>{other}));
        request_callbacks.clear();
    }
    client.reset();
    other.reset();
    EXPECT_EQ(log.count(kCallbackTag, ANDROID_LOG_INFO, "ndk backend ~VelaCallbackClient"), 2u);
}

}  // namespace
}  // namespace halclienttest
