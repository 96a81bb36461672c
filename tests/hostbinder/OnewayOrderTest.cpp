// One-way calls to one binder: the driver queues them on the binder's node and hands out the
// next only when the previous one's buffer is freed (binder.c: has_async_transaction and
// async_todo), so they run one at a time, in the order they were sent.
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "Probe.h"
#include "Waiter.h"

using namespace hbtest;

namespace {
constexpr const char* kInstance = "hostbinder.test.IProbe/oneway";
constexpr transaction_code_t kRecord = FIRST_CALL_TRANSACTION;
constexpr int32_t kCalls = 100;
}  // namespace

// Device: one-way calls to one binder never overlap and keep the order they were sent in.
TEST(OnewayOrder, AHundredCallsRunOneAtATimeInOrder) {
    std::mutex mutex;
    std::vector<int32_t> seen;
    std::atomic<int> running{0};
    std::atomic<int> mostAtOnce{0};
    std::atomic<int> done{0};  // the last thing a call touches
    ndk::SpAIBinder probe = newProbe([&](transaction_code_t, const AParcel* in, AParcel*) {
        const int now = ++running;
        int most = mostAtOnce.load();
        while (now > most && !mostAtOnce.compare_exchange_weak(most, now)) {
        }
        int32_t sequence = -1;
        AParcel_readInt32(in, &sequence);
        std::this_thread::yield();  // leaves room for another call to overlap, were it allowed
        {
            std::lock_guard<std::mutex> lock(mutex);
            seen.push_back(sequence);
        }
        --running;
        ++done;
        return STATUS_OK;
    });
    ASSERT_TRUE(serveProbe(probe, kInstance));
    ndk::SpAIBinder remote(AServiceManager_checkService(kInstance));
    ASSERT_TRUE(asProbe(remote));
    for (int32_t i = 0; i < kCalls; ++i) {
        ASSERT_EQ(STATUS_OK,
                  callProbe(
                          remote, kRecord, [i](AParcel* in) { AParcel_writeInt32(in, i); }, nullptr,
                          FLAG_ONEWAY));
    }
    ASSERT_TRUE(paxtest::waitUntil([&] { return done == kCalls; }));
    std::vector<int32_t> expected(kCalls);
    for (int32_t i = 0; i < kCalls; ++i) expected[i] = i;
    EXPECT_EQ(expected, seen);
    EXPECT_EQ(1, mostAtOnce.load());
    HostBinder_stopService(kInstance);
}
