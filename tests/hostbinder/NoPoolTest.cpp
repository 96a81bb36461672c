// A process that never starts binder threads (a plain client): what it sends still leaves, and
// a connection that died is still released, since neither needs a thread that waits for work.
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>

#include <atomic>
#include <filesystem>

#include "Probe.h"
#include "Waiter.h"

using namespace hbtest;

namespace {

constexpr const char* kInstance = "hostbinder.test.IProbe/nopool";
constexpr transaction_code_t kMeasure = FIRST_CALL_TRANSACTION;      // replies with its data size
constexpr transaction_code_t kRestart = FIRST_CALL_TRANSACTION + 1;  // the service dies and returns

// More than a socket takes at once, within what a device process may receive.
constexpr int32_t kOnewayBytes = 400 * 1024;
constexpr int32_t kTwoWayBytes = 900 * 1024;

std::function<void(AParcel*)> payload(int32_t bytes) {
    return [bytes](AParcel* in) {
        for (int32_t i = 0; i < bytes / 8; ++i) AParcel_writeInt64(in, i);
    };
}

size_t openDescriptors() {
    size_t n = 0;
    for ([[maybe_unused]] auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++n;
    return n;
}

int sendBigCallsWithoutThreads() {
    ndk::SpAIBinder probe(AServiceManager_waitForService(kInstance));
    if (!asProbe(probe)) return 3;
    // Nobody but the sender is there to write what the socket does not take at once.
    if (callProbe(probe, kMeasure, payload(kOnewayBytes), nullptr, FLAG_ONEWAY) != STATUS_OK) {
        return 4;
    }
    int32_t measured = 0;
    if (callProbe(probe, kMeasure, payload(kTwoWayBytes), &measured) != STATUS_OK) return 5;
    return measured >= kTwoWayBytes ? 0 : 6;
}
[[maybe_unused]] const int bigCallsRole = childRole("big-calls", sendBigCallsWithoutThreads);

int outliveDeadConnectionsWithoutThreads() {
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new([](void*) {}));
    size_t baseline = 0;
    for (int i = 0; i < 20; ++i) {
        {
            ndk::SpAIBinder probe(AServiceManager_waitForService(kInstance));
            if (!asProbe(probe)) return 3;
            // Its death notice can never be delivered here.
            if (AIBinder_linkToDeath(probe.get(), recipient.get(), nullptr) != STATUS_OK) return 4;
            if (callProbe(probe, kRestart, nullptr) != STATUS_DEAD_OBJECT) return 5;
        }
        if (i == 0) baseline = openDescriptors();
    }
    return openDescriptors() <= baseline + 1 ? 0 : 6;
}
[[maybe_unused]] const int deadConnectionsRole =
        childRole("dead-connections", outliveDeadConnectionsWithoutThreads);

}  // namespace

// Device: a transaction is copied into the receiver by the sending thread itself; nothing of it
// waits for a thread of the sender's.
TEST(NoBinderThreads, WhatTheSocketDidNotTakeStillLeaves) {
    std::atomic<int64_t> received{0};
    ndk::SpAIBinder probe = newProbe([&](transaction_code_t, const AParcel* in, AParcel* out) {
        received += AParcel_getDataSize(in);
        return AParcel_writeInt32(out, AParcel_getDataSize(in));
    });
    ASSERT_TRUE(serveProbe(probe, kInstance));
    EXPECT_EQ(0, runChild("big-calls"));
    EXPECT_TRUE(paxtest::waitUntil([&] { return received >= kOnewayBytes + kTwoWayBytes; }));
    HostBinder_stopService(kInstance);
}

// Device: a dead peer's node is freed when the last reference goes, whether or not the death
// notice has been read; the notice itself holds only the recipient and its cookie.
TEST(NoBinderThreads, DeadConnectionsAreReleased) {
    std::atomic<AIBinder*> self{nullptr};
    ndk::SpAIBinder probe = newProbe([&](transaction_code_t code, const AParcel*, AParcel*) {
        if (code == kRestart) {
            HostBinder_stopService(kInstance);
            AServiceManager_addService(self.load(), kInstance);
        }
        return STATUS_OK;
    });
    self = probe.get();
    ASSERT_TRUE(serveProbe(probe, kInstance));
    EXPECT_EQ(0, runChild("dead-connections"));
    HostBinder_stopService(kInstance);
}
