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
    while (true) {
        AIBinder* binder = AServiceManager_checkService(instance.c_str());
        if (binder == nullptr) return true;
        AIBinder_decStrong(binder);
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

ServiceHarness::ServiceHarness(std::string instance) : mInstance(std::move(instance)) {}

ServiceHarness::~ServiceHarness() {
    stop();
}

bool ServiceHarness::declareOnly() {
    binder_status_t status = HostBinder_declareService(mInstance.c_str());
    if (status != STATUS_OK) {
        ADD_FAILURE() << "HostBinder_declareService(" << mInstance << ") failed: " << status;
        return false;
    }
    return true;
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

    binder_exception_t ex = AServiceManager_addService(fake->asBinder().get(), mInstance.c_str());
    if (ex != EX_NONE) {
        ADD_FAILURE() << "AServiceManager_addService(" << mInstance << ") failed: " << ex;
        return false;
    }
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
    if (mFake != nullptr) mFake->release();
    binder_status_t status = HostBinder_stopService(mInstance.c_str());
    if (status != STATUS_OK) {
        ADD_FAILURE() << "HostBinder_stopService(" << mInstance << ") failed: " << status;
    }
    mServing = false;
    if (!waitUntilUnreachable(mInstance)) {
        ADD_FAILURE() << mInstance << " still reachable after it was stopped";
    }
}

bool ServiceHarness::restart() {
    std::shared_ptr<FakeVela> fake = mFake;
    return restart(std::move(fake));
}

bool ServiceHarness::restart(std::shared_ptr<FakeVela> fake) {
    stop();
    return start(std::move(fake));
}

}  // namespace paxtest
