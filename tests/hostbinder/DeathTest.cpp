// A service in another process: when it dies the recipient runs once on a binder thread, calls
// in flight fail with a dead object, and waiting for the service yields a fresh working proxy.
// (A dump written across processes to the caller's descriptor is seen through velactl's tests.)
#include <aidl/vendor/norvo/hardware/vela/IVela.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <future>

#include "ExecProgram.h"
#include "FakeVela.h"
#include "ServiceHarness.h"
#include "Waiter.h"

using aidl::vendor::norvo::hardware::vela::IVela;
using namespace paxtest;

namespace {

constexpr const char* kChildEnv = "HOSTBINDER_TEST_CHILD";

// The child side: this same program, started again with kChildEnv set, serves from its test
// environment (after static initialisation, which the mock needs) and never returns to the tests.
struct ServingChild : testing::Environment {
    void SetUp() override {
        auto service = ndk::SharedRefBase::make<FakeVela>();
        if (std::string(getenv(kChildEnv)) == "hold") {
            ON_CALL(*service, resCtlRequest).WillByDefault([](auto&&...) {
                for (;;) pause();  // held until the test kills this process
                return Status::ok();
            });
        }
        ON_CALL(*service, resCtlRelease).WillByDefault(reply(2));
        if (AServiceManager_addService(service->asBinder().get(), kVelaInstance) != EX_NONE) {
            _exit(3);
        }
        ABinderProcess_joinThreadPool();
    }
};
[[maybe_unused]] testing::Environment* const childHook =
        getenv(kChildEnv) != nullptr ? testing::AddGlobalTestEnvironment(new ServingChild)
                                     : nullptr;

pid_t startChild(const char* mode) {
    const paxtest::ChildCommand command("/proc/self/exe", {"hostbinder_child"},
                                        {std::string(kChildEnv) + "=" + mode});
    pid_t pid = fork();
    if (pid == 0) {
        command.exec();
    }
    return pid;
}

void killChild(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

std::atomic<int> gDeaths{0};
std::atomic<bool> gDeathOnBinderThread{false};
void onDied(void* cookie) {
    gDeathOnBinderThread = HostBinder_isBinderThread();
    static_cast<std::atomic<int>*>(cookie)->fetch_add(1);
}

}  // namespace

TEST(Death, KilledServiceIsNoticedOnceAndComesBackFresh) {
    ASSERT_TRUE(declareVela());
    pid_t child = startChild("hold");
    ASSERT_GT(child, 0);
    auto vela = IVela::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance)));
    ASSERT_NE(nullptr, vela);
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onDied));
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(vela->asBinder().get(), recipient.get(), &gDeaths));

    auto inFlight = std::async(std::launch::async, [vela] {
        VelaRequestParcel p{};
        int32_t out = -1;
        ndk::ScopedAStatus st = vela->resCtlRequest(p, &out);
        return std::make_pair(st.isOk(), st.getStatus());
    });
    ASSERT_EQ(std::future_status::timeout, inFlight.wait_for(std::chrono::milliseconds(200)));
    killChild(child);

    auto [ok, status] = inFlight.get();
    EXPECT_FALSE(ok);
    EXPECT_EQ(STATUS_DEAD_OBJECT, status);
    ASSERT_TRUE(waitUntil([] { return gDeaths > 0; }));
    EXPECT_TRUE(gDeathOnBinderThread);
    EXPECT_FALSE(AIBinder_isAlive(vela->asBinder().get()));
    EXPECT_EQ(STATUS_DEAD_OBJECT,
              AIBinder_linkToDeath(vela->asBinder().get(), recipient.get(), &gDeaths));
    int32_t out;
    EXPECT_EQ(STATUS_DEAD_OBJECT, vela->resCtlRelease(1, &out).getStatus());

    auto waiter = std::async(std::launch::async, [] {
        return IVela::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(kVelaInstance)));
    });
    EXPECT_EQ(std::future_status::timeout, waiter.wait_for(std::chrono::milliseconds(200)));
    child = startChild("serve");
    auto fresh = waiter.get();
    ASSERT_NE(nullptr, fresh);
    EXPECT_NE(vela->asBinder().get(), fresh->asBinder().get());
    EXPECT_TRUE(fresh->resCtlRelease(1, &out).isOk());
    EXPECT_EQ(2, out);
    EXPECT_EQ(1, gDeaths.load());
    killChild(child);
}

TEST(Death, DeletedRecipientIsNotCalled) {
    auto service = ndk::SharedRefBase::make<FakeVela>();
    ASSERT_TRUE(declareVela());
    ASSERT_EQ(EX_NONE, AServiceManager_addService(service->asBinder().get(), kVelaInstance));
    ndk::SpAIBinder binder(AServiceManager_checkService(kVelaInstance));
    std::atomic<int> deleted{0}, kept{0};
    AIBinder_DeathRecipient* recipient = AIBinder_DeathRecipient_new(onDied);
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(binder.get(), recipient, &deleted));
    AIBinder_DeathRecipient_delete(recipient);
    // Links are notified in the order they were made: once the later one has run, the deleted
    // one has had its chance.
    ndk::ScopedAIBinder_DeathRecipient witness(AIBinder_DeathRecipient_new(onDied));
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(binder.get(), witness.get(), &kept));
    ASSERT_EQ(STATUS_OK, HostBinder_stopService(kVelaInstance));
    ASSERT_TRUE(waitUntil([&] { return kept == 1; }));
    EXPECT_EQ(0, deleted.load());
}
