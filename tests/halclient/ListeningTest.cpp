// Listening registration by opcode, thermal subsystem and path, and unregistration.
#include "HalclientFixture.h"
#include "listening_registry.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using paxtest::Answer;
using paxtest::makeItem;

constexpr char kDuplicate[] = "Same callback interface registered already";

size_t groups() {
    std::lock_guard<std::mutex> lock(listening_callback_mutex);
    return listening_callbacks.size();
}

TEST_F(HalclientTest, SameIdListIsRegisteredOnlyOnceInTheSameOrder) {
    ResourceList oneTwo{{1, "a"}, {2, "b"}};
    ResourceList twoOne{{2, "b"}, {1, "a"}};
    ResourceList empty;
    EXPECT_GT(velaResListeningRegister(oneTwo, 0, receiver), 0);
    EXPECT_TRUE(info("A callback has been registered to Vela HAL "));
    EXPECT_EQ(velaResListeningRegister(oneTwo, 0, std::make_shared<Receiver>()), -1);
    EXPECT_TRUE(error(kDuplicate));
    EXPECT_GT(velaResListeningRegister(twoOne, 0, receiver), 0);
    EXPECT_GT(velaResListeningRegister(empty, 0, receiver), 0);
    EXPECT_EQ(velaResListeningRegister(empty, 0, receiver), -1);
    EXPECT_EQ(fake->callCount("resListeningRegister"), 3u);

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
    fake->setDefault("resListeningRegister", Answer::ok(7));
    ASSERT_EQ(velaResListeningRegister(first, 0, receiver), 7);
    ASSERT_EQ(velaResListeningRegister(second, 0, receiver), 7);
    fake->enqueue("thermalListeningRegister", Answer::ok(11));
    ASSERT_EQ(velaThermalListeningRegister({3}, receiver), 11);
    EXPECT_EQ(fake->lastCall("thermalListeningRegister").ids, std::vector<int32_t>{3});
    EXPECT_TRUE(info("subsys's callback has been registered to Vela HAL"));

    fake->enqueue("resListeningUnregister", Answer::ok(4));
    EXPECT_EQ(velaResListeningUnRegister(7), 4);
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO,
                        "a callback has been unregistered to Vela HAL handle 7"),
              2u);
    EXPECT_EQ(groups(), 1u);
    EXPECT_EQ(velaResListeningUnRegister(7), 0);
    EXPECT_TRUE(error("The callback was not registered before"));

    // Thermal unregistration tells the service only; the group goes with a resource
    // unregistration of its handle.
    EXPECT_EQ(velaThermalListeningUnregister(11), 0);
    EXPECT_TRUE(info("subsys's callback has been unRegistered to Vela HAL"));
    EXPECT_EQ(groups(), 1u);
    EXPECT_EQ(velaResListeningUnRegister(11), 0);
    EXPECT_EQ(groups(), 0u);
}

// The connection dies under the unregistration: the group goes all the same, the proxy is
// dropped and the untouched out-parameter comes back.
TEST_F(HalclientTest, UnregisterWhoseCallFailsStillForgetsTheGroup) {
    ResourceList list{{1, "a"}};
    const int handle = velaResListeningRegister(list, 0, receiver);
    ASSERT_GT(handle, 0);
    fake->enqueue("resListeningUnregister", Answer::transactionError(STATUS_DEAD_OBJECT));
    EXPECT_EQ(velaResListeningUnRegister(handle), -1);
    EXPECT_TRUE(error("velaResListeningUnRegister() failed: vela HAL service not available"));
    EXPECT_EQ(groups(), 0u);
}

TEST_F(HalclientTest, PathListenersAreKeyedByTheirPathsInOrder) {
    EXPECT_GT(vela_res_listening_register_by_path({"b", "a"}, 0, byPath), 0);
    EXPECT_GT(vela_res_listening_register_by_path({"a", "b"}, 0, byPath), 0);
    EXPECT_EQ(vela_res_listening_register_by_path({"a", "b"}, 0, byPath), -1);
    EXPECT_GT(vela_res_listening_register_by_path({"c"}, 0, byPath), 0);
    // The map registers its keys; its values do not tell listeners apart.
    EXPECT_EQ(vela_res_listening_register_map_by_path({{"c", "1"}}, 0, byPath), -1);
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_ERROR, kDuplicate), 2u);
    EXPECT_EQ(fake->callCount("resListeningRegister"), 3u);

    // Opcode listeners have no paths, so an empty path list collides with any of them.
    ResourceList ids{{9, "x"}};
    EXPECT_GT(velaResListeningRegister(ids, 0, receiver), 0);
    EXPECT_EQ(vela_res_listening_register_by_path({}, 0, byPath), -1);

    ASSERT_TRUE(fake->fireCallback(0, {makeItem(0, 0, "5", "b")}).isOk());
    EXPECT_EQ(byPath->got().first, std::vector<std::string>{"5"});
}

}  // namespace
}  // namespace halclienttest
