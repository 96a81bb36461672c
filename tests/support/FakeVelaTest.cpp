// The fake and the service controls over real transactions: if these are wrong, every test
// built on them is wrong in ways that look like library bugs.
#include <aidl/vendor/norvo/hardware/vela/BnVelaCallback.h>
#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>

#include "ChildService.h"
#include "FakeVela.h"
#include "ServiceHarness.h"
#include "Waiter.h"

namespace paxtest {
namespace {

using ::aidl::vendor::norvo::hardware::vela::BnVelaCallback;
using ::aidl::vendor::norvo::hardware::vela::IVela;
using namespace std::chrono_literals;

std::shared_ptr<IVela> connect() {
    ::ndk::SpAIBinder binder(AServiceManager_waitForService(kVelaInstance));
    return IVela::fromBinder(binder);
}

VelaRequestParcel parcelOf(int32_t type, std::vector<VelaRequestData> items) {
    VelaRequestParcel parcel{};
    parcel.requestType = type;
    parcel.requestDatas = std::move(items);
    return parcel;
}

class RecordingCallback : public BnVelaCallback {
public:
    ::ndk::ScopedAStatus onCallback(const std::vector<VelaRequestData>& items) override {
        {
            std::lock_guard<std::mutex> lock(mutex);
            received.push_back(items);
            duringRequest.push_back(requestInFlight.load());
        }
        calls.increment();
        return ::ndk::ScopedAStatus::ok();
    }

    std::atomic<bool> requestInFlight{false};
    std::mutex mutex;
    std::vector<std::vector<VelaRequestData>> received;
    std::vector<bool> duringRequest;
    Counter calls;
};

struct DeathWatch {
    explicit DeathWatch(const std::shared_ptr<IVela>& vela)
        : recipient(AIBinder_DeathRecipient_new(&DeathWatch::onDied)) {
        EXPECT_EQ(STATUS_OK,
                  AIBinder_linkToDeath(vela->asBinder().get(), recipient.get(), &deaths));
    }
    static void onDied(void* cookie) { static_cast<Counter*>(cookie)->increment(); }

    Counter deaths;
    ::ndk::ScopedAIBinder_DeathRecipient recipient;
};

class FakeVelaTest : public testing::Test {
protected:
    void SetUp() override {
        fake = service.startFake();
        ASSERT_NE(fake, nullptr);
        vela = connect();
        ASSERT_NE(vela, nullptr);
    }

    ServiceHarness service;
    std::shared_ptr<FakeVela> fake;
    std::shared_ptr<IVela> vela;
};

TEST_F(FakeVelaTest, ScriptedAnswersReachTheClient) {
    fake->enqueue("resCtlRequest", Answer::ok(42));
    int32_t result = -1;
    ASSERT_TRUE(vela->resCtlRequest(parcelOf(1, {}), &result).isOk());
    EXPECT_EQ(42, result);
    // Queue used up: the default hands out handles from 1.
    ASSERT_TRUE(vela->resCtlRequest(parcelOf(1, {}), &result).isOk());
    EXPECT_EQ(1, result);
    ASSERT_TRUE(vela->resListeningRegister(parcelOf(3, {}), nullptr, &result).isOk());
    EXPECT_EQ(2, result);

    fake->setDefault("resCtlRelease", Answer::serviceSpecific(7));
    auto status = vela->resCtlRelease(1, &result);
    EXPECT_EQ(EX_SERVICE_SPECIFIC, status.getExceptionCode());
    EXPECT_EQ(7, status.getServiceSpecificError());
    status = vela->resCtlRelease(1, &result);
    EXPECT_EQ(7, status.getServiceSpecificError()) << "a default answer is not used up";

    fake->enqueue("propertySet", Answer::exception(EX_ILLEGAL_STATE));
    EXPECT_EQ(EX_ILLEGAL_STATE, vela->propertySet("k", "v", &result).getExceptionCode());

    fake->enqueue("init", Answer::transactionError(STATUS_FAILED_TRANSACTION));
    status = vela->init();
    EXPECT_FALSE(status.isOk());
    EXPECT_EQ(EX_TRANSACTION_FAILED, status.getExceptionCode());
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, status.getStatus());
    EXPECT_TRUE(vela->init().isOk());

    fake->enqueue("propertyGet", Answer::property("value-1"));
    std::string text;
    ASSERT_TRUE(vela->propertyGet("key-1", &text).isOk());
    EXPECT_EQ("value-1", text);

    fake->enqueue("resStateRequest", Answer::items({makeItem(0x010108a0, 2, "1200000")}));
    std::vector<VelaRequestData> items;
    ASSERT_TRUE(vela->resStateRequest(parcelOf(2, {}), &items).isOk());
    ASSERT_EQ(1u, items.size());
    EXPECT_EQ(0x010108a0, items[0].id);
    EXPECT_EQ("1200000", items[0].value.value_or("<null>"));

    EXPECT_THROW(fake->enqueue("resCtlRequst", Answer::ok()), std::invalid_argument);
}

TEST_F(FakeVelaTest, RecordsEveryArgumentInOrder) {
    int32_t result;
    VelaRequestParcel sent = parcelOf(1, {makeItem(0x01000100, 0, "100"), makeItem(7, 3)});
    sent.param1 = 500;
    sent.param2 = int64_t{1} << 40;
    sent.packageName = "com.example";
    sent.paths = std::vector<std::optional<std::string>>{"/a", std::nullopt};
    ASSERT_TRUE(vela->resCtlRequest(sent, &result).isOk());
    ASSERT_TRUE(vela->propertySet("key", "", &result).isOk());
    ASSERT_TRUE(vela->setRelatedSysInfo(9, -(int64_t{1} << 33), &result).isOk());
    ASSERT_TRUE(vela->ruleCtl(4, 1, {makeItem(11, 0, std::nullopt, "x")}, &result).isOk());
    ASSERT_TRUE(vela->thermalListeningRegister({3, 5}, nullptr, &result).isOk());

    auto calls = fake->calls();
    ASSERT_EQ(5u, calls.size());
    EXPECT_EQ("resCtlRequest", calls[0].method);
    ASSERT_TRUE(calls[0].parcel.has_value());
    const VelaRequestParcel& got = *calls[0].parcel;
    EXPECT_EQ(500, got.param1);
    EXPECT_EQ(int64_t{1} << 40, got.param2);
    EXPECT_EQ("com.example", got.packageName.value_or("<null>"));
    EXPECT_FALSE(got.identity.has_value());
    ASSERT_EQ(2u, got.requestDatas.size());
    EXPECT_EQ("100", got.requestDatas[0].value.value_or("<null>"));
    EXPECT_FALSE(got.requestDatas[1].value.has_value());
    ASSERT_TRUE(got.paths.has_value());
    EXPECT_FALSE((*got.paths)[1].has_value());
    EXPECT_TRUE(calls[0].onBinderThread);

    EXPECT_EQ("key", calls[1].key);
    EXPECT_EQ("", calls[1].value);
    EXPECT_EQ(-(int64_t{1} << 33), calls[2].sysInfoValue);
    EXPECT_EQ(4, calls[3].ruleId);
    EXPECT_EQ(1, calls[3].ruleStatus);
    ASSERT_EQ(1u, calls[3].items.size());
    EXPECT_EQ("x", calls[3].items[0].value2.value_or("<null>"));
    EXPECT_EQ((std::vector<int32_t>{3, 5}), calls[4].ids);
    for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(i, calls[i].sequence);
    EXPECT_EQ(1u, fake->callCount("ruleCtl"));
    EXPECT_EQ(500, fake->lastParcel().param1);
}

TEST_F(FakeVelaTest, GateHoldsOnlyTheGatedCallUntilReleased) {
    fake->blockNext("resCtlRequest");
    fake->enqueue("resCtlRequest", Answer::ok(77));
    auto pending = std::async(std::launch::async, [&] {
        int32_t result = -1;
        auto status = vela->resCtlRequest(parcelOf(1, {}), &result);
        return status.isOk() ? result : -100;
    });
    ASSERT_TRUE(fake->waitUntilBlocked());
    EXPECT_EQ(1u, fake->callCount("resCtlRequest")) << "recorded before the gate";
    EXPECT_EQ(std::future_status::timeout, pending.wait_for(50ms));

    // The fake holds no lock while a call waits: other calls go through meanwhile, and the
    // gate was one-shot.
    int32_t result = -1;
    ASSERT_TRUE(vela->resCtlRelease(5, &result).isOk());
    ASSERT_TRUE(vela->resCtlRequest(parcelOf(1, {}), &result).isOk());
    EXPECT_EQ(1u, fake->blockedCount());

    fake->release();
    ASSERT_EQ(std::future_status::ready, pending.wait_for(5s));
    EXPECT_EQ(77, pending.get());
    EXPECT_EQ(0u, fake->blockedCount());
}

TEST_F(FakeVelaTest, CallsBackFromInsideTheRequestAndLater) {
    auto callback = ::ndk::SharedRefBase::make<RecordingCallback>();
    VelaRequestParcel parcel = parcelOf(1, {});
    parcel.callback = callback;
    fake->enqueue("resCtlRequest", Answer::ok(3).withNestedCallback({makeItem(21, 0, "on")}));

    int32_t result = -1;
    callback->requestInFlight = true;
    ASSERT_TRUE(vela->resCtlRequest(parcel, &result).isOk());
    callback->requestInFlight = false;
    EXPECT_EQ(3, result);
    ASSERT_EQ(1u, callback->calls.count());
    EXPECT_TRUE(callback->duringRequest[0]);
    auto nested = fake->lastCall("resCtlRequest").nestedCallbackStatus;
    ASSERT_TRUE(nested.has_value());
    EXPECT_TRUE(nested->ok);

    ASSERT_EQ(1u, fake->callbackCount());
    EXPECT_TRUE(fake->fireCallback(0, {makeItem(22, 1, "off"), makeItem(23)}).isOk());
    ASSERT_TRUE(callback->calls.waitFor(2));
    std::lock_guard<std::mutex> lock(callback->mutex);
    EXPECT_FALSE(callback->duringRequest[1]);
    ASSERT_EQ(2u, callback->received[1].size());
    EXPECT_EQ("off", callback->received[1][0].value.value_or("<null>"));
    EXPECT_EQ(23, callback->received[1][1].id);
}

TEST_F(FakeVelaTest, StopLooksLikeDeathAndRestartServesAgain) {
    DeathWatch watch(vela);
    fake->blockNext("resCtlRequest");
    auto pending = std::async(std::launch::async, [&] {
        int32_t result;
        return vela->resCtlRequest(parcelOf(1, {}), &result).isOk();
    });
    ASSERT_TRUE(fake->waitUntilBlocked());

    service.stop();
    ASSERT_TRUE(watch.deaths.waitFor(1));
    ASSERT_EQ(std::future_status::ready, pending.wait_for(5s)) << "a held call must not hang";
    pending.get();
    int32_t result;
    auto status = vela->resCtlRelease(1, &result);
    EXPECT_EQ(STATUS_DEAD_OBJECT, status.getStatus());
    EXPECT_TRUE(watch.deaths.staysBelow(2, 50ms)) << "a death is reported once";

    ASSERT_TRUE(service.restart());
    auto again = connect();
    ASSERT_NE(again, nullptr);
    fake->enqueue("resCtlRelease", Answer::ok(9));
    ASSERT_TRUE(again->resCtlRelease(1, &result).isOk());
    EXPECT_EQ(9, result);
}

TEST(ChildServiceTest, KillIsSeenAsDeathAndRestartServesAFreshFake) {
    ChildService child;
    ASSERT_TRUE(child.startFake());
    auto vela = connect();
    ASSERT_NE(vela, nullptr);
    int32_t result = -1;
    ASSERT_TRUE(vela->resCtlRequest(parcelOf(1, {}), &result).isOk());
    ASSERT_TRUE(vela->resCtlRequest(parcelOf(1, {}), &result).isOk());
    EXPECT_EQ(2, result);

    DeathWatch watch(vela);
    child.kill();
    EXPECT_FALSE(child.running());
    ASSERT_TRUE(watch.deaths.waitFor(1));
    EXPECT_FALSE(vela->resCtlRequest(parcelOf(1, {}), &result).isOk());

    ASSERT_TRUE(child.restart());
    auto again = connect();
    ASSERT_NE(again, nullptr);
    ASSERT_TRUE(again->resCtlRequest(parcelOf(1, {}), &result).isOk());
    EXPECT_EQ(1, result);
}

}  // namespace
}  // namespace paxtest
