// A two-way call that the peer, while handling it, answers with a call back into this process:
// the callback runs on the thread that is blocked waiting for the reply, with or without binder
// threads (kernel binder_transaction() picks the waiting thread as the target, and
// IPCThreadState::waitForResponse runs what arrives for it).
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "Probe.h"

using namespace hbtest;

namespace {

constexpr const char* kInstance = "hostbinder.test.IProbe/nested";
// The call carries a callback; the service calls it (two-way), then answers with its result.
constexpr transaction_code_t kCallMeBack = FIRST_CALL_TRANSACTION;
constexpr transaction_code_t kCallback = FIRST_CALL_TRANSACTION + 1;

pid_t threadId() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

// The service side: calls back on the callback it was given, as many levels deep as asked.
ndk::SpAIBinder newCallingBackService() {
    return newProbe([](transaction_code_t, const AParcel* in, AParcel* out) -> binder_status_t {
        AIBinder* raw = nullptr;
        binder_status_t status = AParcel_readStrongBinder(in, &raw);
        ndk::SpAIBinder callback(raw);
        if (status != STATUS_OK || !asProbe(callback)) return STATUS_BAD_VALUE;
        int32_t answer = 0;
        status = callProbe(callback, kCallback, nullptr, &answer);
        if (status != STATUS_OK) return status;
        return AParcel_writeInt32(out, answer);
    });
}

// Calls the service with a callback that answers with the thread it ran on.
binder_status_t callWithCallback(pid_t* callbackThread) {
    ndk::SpAIBinder service(AServiceManager_checkService(kInstance));
    if (!asProbe(service)) return STATUS_NAME_NOT_FOUND;
    ndk::SpAIBinder callback = newProbe([](transaction_code_t, const AParcel*, AParcel* out) {
        return AParcel_writeInt32(out, threadId());
    });
    int32_t answer = 0;
    binder_status_t status = callProbe(
            service, kCallMeBack,
            [&](AParcel* in) { AParcel_writeStrongBinder(in, callback.get()); }, &answer);
    *callbackThread = answer;
    return status;
}

int callbackWithoutThreads() {
    ndk::SpAIBinder service(AServiceManager_waitForService(kInstance));
    pid_t ranOn = 0;
    if (callWithCallback(&ranOn) != STATUS_OK) return 3;
    return ranOn == threadId() ? 0 : 4;
}
[[maybe_unused]] const int noThreadsRole = childRole("nested-no-threads", callbackWithoutThreads);

}  // namespace

// Device: the callback targets the blocked caller, so it sees that thread's thread_local state.
TEST(NestedCall, RunsOnTheCallersOwnThread) {
    ndk::SpAIBinder service = newCallingBackService();
    ASSERT_TRUE(serveProbe(service, kInstance));
    pid_t ranOn = 0;
    EXPECT_EQ(STATUS_OK, callWithCallback(&ranOn));
    EXPECT_EQ(threadId(), ranOn);
    // And from a thread that is not the test's main thread, at the same time.
    pid_t otherRanOn = 0;
    pid_t other = 0;
    std::thread([&] {
        other = threadId();
        EXPECT_EQ(STATUS_OK, callWithCallback(&otherRanOn));
    }).join();
    EXPECT_EQ(other, otherRanOn);
    HostBinder_stopService(kInstance);
}

// Device: no binder thread is needed for it, as the waiting thread runs it.
TEST(NestedCall, RunsInAProcessWithoutBinderThreads) {
    ndk::SpAIBinder service = newCallingBackService();
    ASSERT_TRUE(serveProbe(service, kInstance));
    EXPECT_EQ(0, runChild("nested-no-threads"));
    HostBinder_stopService(kInstance);
}
