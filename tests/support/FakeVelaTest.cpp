// What the rest of the suite leans on without checking: the order in which the fake's script
// is used, and a gate that holds one call without holding the fake. Everything else about the
// fake and the service controls is exercised by the transport, client and end-to-end tests.
#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include <future>

#include "FakeVela.h"
#include "ServiceHarness.h"

namespace paxtest {
namespace {

using ::aidl::vendor::norvo::hardware::vela::IVela;
using namespace std::chrono_literals;

class FakeVelaTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(fake = service.startFake(), nullptr);
        vela = IVela::fromBinder(::ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance)));
        ASSERT_NE(vela, nullptr);
    }
    int32_t request() {
        int32_t result = -1;
        return vela->resCtlRequest(VelaRequestParcel{}, &result).isOk() ? result : -100;
    }

    ServiceHarness service;
    std::shared_ptr<FakeVela> fake;
    std::shared_ptr<IVela> vela;
};

TEST_F(FakeVelaTest, QueuedAnswersComeFirstAndTheDefaultIsNotUsedUp) {
    fake->enqueue("resCtlRequest", Answer::ok(42));
    fake->enqueue("resCtlRequest", Answer::ok(43));
    EXPECT_EQ(request(), 42);
    EXPECT_EQ(request(), 43);
    EXPECT_EQ(request(), 1) << "queue used up: fresh handles from 1";

    int32_t result = -1;
    fake->setDefault("resCtlRelease", Answer::serviceSpecific(7));
    fake->enqueue("resCtlRelease", Answer::ok(5));
    EXPECT_TRUE(vela->resCtlRelease(1, &result).isOk());
    EXPECT_EQ(result, 5);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(vela->resCtlRelease(1, &result).getServiceSpecificError(), 7);
    }

    // A transaction error is not an exception the service sent: the call itself failed.
    fake->enqueue("init", Answer::transactionError(STATUS_FAILED_TRANSACTION));
    EXPECT_EQ(vela->init().getStatus(), STATUS_FAILED_TRANSACTION);
    EXPECT_TRUE(vela->init().isOk());

    EXPECT_THROW(fake->enqueue("resCtlRequst", Answer::ok()), std::invalid_argument);
}

TEST_F(FakeVelaTest, GateHoldsOnlyTheGatedCallUntilReleased) {
    fake->blockNext("resCtlRequest");
    fake->enqueue("resCtlRequest", Answer::ok(77));
    auto pending = std::async(std::launch::async, [&] { return request(); });
    ASSERT_TRUE(fake->waitUntilBlocked());
    EXPECT_EQ(fake->callCount("resCtlRequest"), 1u) << "recorded before the gate";
    EXPECT_EQ(pending.wait_for(50ms), std::future_status::timeout);

    // The fake holds no lock while a call waits: other calls go through meanwhile, and the
    // gate was one-shot.
    int32_t result = -1;
    ASSERT_TRUE(vela->resCtlRelease(5, &result).isOk());
    EXPECT_EQ(request(), 1);

    fake->release();
    ASSERT_EQ(pending.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(pending.get(), 77);
}

}  // namespace
}  // namespace paxtest
