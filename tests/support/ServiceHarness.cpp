#include "ServiceHarness.h"

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>

#include <filesystem>
#include <thread>

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
    if (mFake != nullptr) ::testing::Mock::VerifyAndClearExpectations(mFake.get());
}

bool declareVela() {
    const std::filesystem::path dir = HostBinder_getManifestDirectory();
    std::error_code error;
    std::filesystem::create_directory(dir, error);
    std::filesystem::permissions(dir, std::filesystem::perms::owner_all, error);
    std::filesystem::copy_file(PAX_VELA_MANIFEST_FRAGMENT, dir / "vela-service.xml",
                               std::filesystem::copy_options::overwrite_existing, error);
    EXPECT_FALSE(error) << "installing the manifest fragment in " << dir << ": " << error.message();
    return !error;
}

bool ServiceHarness::declareOnly() {
    return declareVela();
}

bool ServiceHarness::serve() {
    if (!declareOnly()) return false;
    binder_exception_t ex = AServiceManager_addService(mFake->asBinder().get(), kVelaInstance);
    EXPECT_EQ(ex, EX_NONE) << "AServiceManager_addService(" << kVelaInstance << ")";
    mServing = ex == EX_NONE;
    return mServing;
}

std::shared_ptr<FakeVela> ServiceHarness::startFake() {
    stop();
    mFake = ::ndk::SharedRefBase::make<FakeVela>();
    return serve() ? mFake : nullptr;
}

void ServiceHarness::stop() {
    if (!mServing) return;
    EXPECT_EQ(HostBinder_stopService(kVelaInstance), STATUS_OK) << "stopping " << kVelaInstance;
    mServing = false;
    EXPECT_TRUE(waitUntilUnreachable(kVelaInstance))
            << kVelaInstance << " still reachable after it was stopped";
}

bool ServiceHarness::restart() {
    stop();
    return serve();
}

}  // namespace paxtest
