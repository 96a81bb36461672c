#include "ServiceHarness.h"

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>

#include <mutex>
#include <thread>
#include <utility>

namespace paxtest {

bool waitUntilUnreachable(const std::string& instance, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (AIBinder* binder = AServiceManager_checkService(instance.c_str())) {
        AIBinder_decStrong(binder);
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

ServiceHarness::~ServiceHarness() {
    stop();
}

bool ServiceHarness::declareOnly() {
    binder_status_t status = HostBinder_declareService(kVelaInstance);
    EXPECT_EQ(status, STATUS_OK) << "HostBinder_declareService(" << kVelaInstance << ")";
    return status == STATUS_OK;
}

bool ServiceHarness::start(std::shared_ptr<FakeVela> fake) {
    if (fake == nullptr) {
        ADD_FAILURE() << "ServiceHarness::start needs a fake";
        return false;
    }
    if (mServing) stop();
    if (!declareOnly()) return false;
    // The fake's callbacks reach this process's own callback objects too, so incoming
    // transactions need threads in both roles; starting the pool twice is harmless.
    static std::once_flag poolStarted;
    std::call_once(poolStarted, [] { ABinderProcess_startThreadPool(); });

    binder_exception_t ex = AServiceManager_addService(fake->asBinder().get(), kVelaInstance);
    EXPECT_EQ(ex, EX_NONE) << "AServiceManager_addService(" << kVelaInstance << ")";
    if (ex != EX_NONE) return false;
    mFake = std::move(fake);
    mServing = true;
    return true;
}

std::shared_ptr<FakeVela> ServiceHarness::startFake() {
    auto fake = ::ndk::SharedRefBase::make<FakeVela>();
    return start(fake) ? fake : nullptr;
}

void ServiceHarness::stop() {
    if (!mServing) return;
    mFake->release();
    EXPECT_EQ(HostBinder_stopService(kVelaInstance), STATUS_OK) << "stopping " << kVelaInstance;
    mServing = false;
    EXPECT_TRUE(waitUntilUnreachable(kVelaInstance))
            << kVelaInstance << " still reachable after it was stopped";
}

bool ServiceHarness::restart() {
    stop();
    return start(mFake);
}

}  // namespace paxtest
