// Callbacks reach only a process that started its binder threads, and a callback object lives
// as long as the service holds it; the service manager trusts only what we made. (Every method
// with its arguments, and callbacks nested in a call, are seen through the library's tests.)
#include <aidl/vendor/norvo/hardware/vela/BnVelaCallback.h>
#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <future>

#include "FakeVela.h"
#include "Probe.h"
#include "ServiceHarness.h"
#include "Waiter.h"

using aidl::vendor::norvo::hardware::vela::BnVelaCallback;
using aidl::vendor::norvo::hardware::vela::IVela;
using namespace paxtest;

namespace {

class CountingCallback : public BnVelaCallback {
public:
    ndk::ScopedAStatus onCallback(const std::vector<VelaRequestData>&) override {
        calls.increment();
        return ndk::ScopedAStatus::ok();
    }
    Counter calls;
};

// The child of PoolTest: a client that registers a callback before it has binder threads.
// Exit status 0: the callback waited for the pool and then arrived; 1: it came before; 2: never.
int registerBeforeThePool() {
    auto vela = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance)));
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    VelaRequestParcel p{};
    int32_t out = -1;
    if (vela == nullptr || !vela->resListeningRegister(p, cb, &out).isOk()) return 3;
    // The service sends the callback before it answers this call, so the callback has been
    // read by the time the call returns.
    if (!vela->init().isOk()) return 3;
    if (cb->calls.waitFor(1, std::chrono::milliseconds(0))) return 1;
    ABinderProcess_startThreadPool();
    return cb->calls.waitFor(1) ? 0 : 2;
}
[[maybe_unused]] const int noPoolRole =
        hbtest::childRole("no-pool-callback", registerBeforeThePool);

}  // namespace

TEST(Transport, ServiceDropsCallbackAndClientObjectIsFreed) {
    auto service = ndk::SharedRefBase::make<FakeVela>();
    ASSERT_TRUE(paxtest::declareVela());
    ASSERT_EQ(EX_NONE, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
    auto vela = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kVelaInstance)));
    ASSERT_NE(nullptr, vela);
    std::weak_ptr<CountingCallback> watch;
    {
        auto cb = ndk::SharedRefBase::make<CountingCallback>();
        watch = cb;
        VelaRequestParcel p{};
        p.callback = cb;
        int32_t out;
        ASSERT_TRUE(vela->resCtlRequest(p, &out).isOk());
    }
    // The service still holds its proxy: the object must stay alive until it lets go.
    EXPECT_FALSE(watch.expired());
    service->forgetCallbacks();
    EXPECT_TRUE(waitUntil([&] { return watch.expired(); }));
}

TEST(PoolTest, CallbacksWaitUntilTheProcessStartsItsPool) {
    auto service = ndk::SharedRefBase::make<FakeVela>();
    // The expectation is set before the service is published: the call comes from another
    // process, and a socket is no ordering the race detector can see.
    EXPECT_CALL(*service, init).WillOnce([&]() -> Status {
        // One way, so the service need not wait for a process that cannot answer yet.
        ndk::SpAIBinder callback = service->callbackAt(0)->asBinder();
        AParcel* in = nullptr;
        AParcel* reply = nullptr;
        EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(callback.get(), &in));
        ndk::AParcel_writeVector(in, std::vector<VelaRequestData>{makeItem(4)});
        EXPECT_EQ(STATUS_OK, AIBinder_transact(callback.get(), FIRST_CALL_TRANSACTION, &in, &reply,
                                               FLAG_ONEWAY));
        AParcel_delete(reply);
        return Status::ok();
    });
    ASSERT_TRUE(paxtest::declareVela());
    ASSERT_EQ(EX_NONE, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
    EXPECT_EQ(0, hbtest::runChild("no-pool-callback"));
}

namespace {
// Points the runtime at `dir` for the life of the object.
class DirectoryOverride {
public:
    explicit DirectoryOverride(const std::string& dir) : mOld(getenv("HOSTBINDER_DIR")) {
        setenv("HOSTBINDER_DIR", dir.c_str(), 1);
    }
    ~DirectoryOverride() { setenv("HOSTBINDER_DIR", mOld.c_str(), 1); }

private:
    std::string mOld;
};

// What the runtime says of `dir`, and whether a client and a service are refused at once.
std::string refusal(const std::string& dir) {
    DirectoryOverride use(dir);
    auto service = ndk::SharedRefBase::make<FakeVela>();
    EXPECT_EQ(EX_SECURITY, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
    auto wait = std::async(std::launch::async, [] {
        return ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance));
    });
    EXPECT_EQ(std::future_status::ready, wait.wait_for(std::chrono::seconds(5)));
    EXPECT_EQ(nullptr, wait.get().get());
    EXPECT_FALSE(AServiceManager_isDeclared(kVelaInstance));
    return hostbinder::directoryProblem();
}
}  // namespace

TEST(ServiceManager, DirectoriesWeDidNotMakeOurOwnAreRefused) {
    const std::string base = HostBinder_getDirectory();
    const std::string open = base + "/open";
    ASSERT_EQ(0, mkdir(open.c_str(), 0700));
    ASSERT_EQ(0, chmod(open.c_str(), 0777));
    EXPECT_NE(std::string::npos, refusal(open).find("writable by group or others (mode 0777)"));

    const std::string good = base + "/good";
    const std::string link = base + "/link";
    ASSERT_EQ(0, mkdir(good.c_str(), 0700));
    ASSERT_EQ(0, symlink(good.c_str(), link.c_str()));
    EXPECT_NE(std::string::npos, refusal(link).find("symbolic link"));

    if (geteuid() == 0) {  // only root can hand a directory to someone else
        const std::string foreign = base + "/foreign";
        ASSERT_EQ(0, mkdir(foreign.c_str(), 0700));
        ASSERT_EQ(0, chown(foreign.c_str(), 4242, 4242));
        EXPECT_NE(std::string::npos, refusal(foreign).find("owned by uid 4242"));
    }
    DirectoryOverride use(good);
    EXPECT_EQ("", hostbinder::directoryProblem());
}
