// The receive budget at its edges: a process receives at most 1 MiB - 2 pages of transaction
// data at once (ProcessState.cpp, BINDER_VM_SIZE), shared by everything in flight to it, half
// of it for one-way calls (binder_alloc.c); what does not fit fails at the sender with
// STATUS_FAILED_TRANSACTION, and what was received counts until it is freed.
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <unistd.h>

#include <atomic>
#include <future>

#include "Probe.h"
#include "Waiter.h"

using namespace hbtest;

namespace {

constexpr const char* kInstance = "hostbinder.test.IProbe/budget";
constexpr transaction_code_t kTake = FIRST_CALL_TRANSACTION;        // takes the data, answers 0
constexpr transaction_code_t kHold = FIRST_CALL_TRANSACTION + 1;    // waits for the gate first
constexpr transaction_code_t kAnswer = FIRST_CALL_TRANSACTION + 2;  // answers with int32 bytes

size_t capacity() {
    return (1u << 20) - 2 * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

class Budget : public ::testing::Test {
protected:
    void SetUp() override {
        probe = newProbe([this](transaction_code_t code, const AParcel* in, AParcel* out) {
            ++received;
            if (code == kHold) gate.pass();
            int32_t bytes = 0;
            if (code == kAnswer) AParcel_readInt32(in, &bytes);
            for (int32_t i = 0; i < bytes / 4; ++i) AParcel_writeInt32(out, i);
            ++finished;
            return STATUS_OK;
        });
        ASSERT_TRUE(serveProbe(probe, kInstance));
        remote = ndk::SpAIBinder(AServiceManager_checkService(kInstance));
        ASSERT_TRUE(asProbe(remote));
    }
    void TearDown() override {
        gate.open();
        // A held one-way call may still be returning: the fixture it uses must outlive it.
        EXPECT_TRUE(paxtest::waitUntil([&] { return finished == received; }));
        HostBinder_stopService(kInstance);
    }

    // A call whose parcel holds exactly `bytes` of data, interface token included.
    binder_status_t callWith(size_t bytes, transaction_code_t code, binder_flags_t flags = 0) {
        return callProbe(
                remote, code,
                [bytes](AParcel* in) {
                    while (static_cast<size_t>(AParcel_getDataSize(in)) < bytes) {
                        AParcel_writeInt32(in, 0);
                    }
                },
                nullptr, flags);
    }
    // A call answered with `bytes` of data; the reply is kept in *reply.
    binder_status_t answeredWith(int32_t bytes, ndk::ScopedAParcel* reply) {
        AParcel* in = nullptr;
        AIBinder_prepareTransaction(remote.get(), &in);
        AParcel_writeInt32(in, bytes);
        AParcel* out = nullptr;
        const binder_status_t status = AIBinder_transact(remote.get(), kAnswer, &in, &out, 0);
        reply->set(out);
        return status;
    }

    ndk::SpAIBinder probe;
    ndk::SpAIBinder remote;
    std::atomic<int> received{0};
    std::atomic<int> finished{0};
    paxtest::Gate gate;
};

}  // namespace

// Device: a transaction that fills the buffer exactly is delivered; one 8-byte word more fails
// at the sender without reaching the receiver.
TEST_F(Budget, ExactlyFullPassesAndOneWordMoreFails) {
    EXPECT_EQ(STATUS_OK, callWith(capacity(), kTake));
    EXPECT_EQ(1, received.load());
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, callWith(capacity() + 4, kTake));
    EXPECT_EQ(1, received.load());
}

// Device: everything in flight shares the buffer; the space comes back once the receiver has
// run the call and freed its data.
TEST_F(Budget, TwoTransactionsInFlightShareIt) {
    const size_t big = capacity() * 3 / 5;
    auto held = std::async(std::launch::async, [&] { return callWith(big, kHold); });
    ASSERT_TRUE(gate.arrived.waitFor(1));
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, callWith(big, kTake));
    gate.open();
    EXPECT_EQ(STATUS_OK, held.get());
    EXPECT_EQ(STATUS_OK, callWith(big, kTake));
}

// Device: one-way calls may take half of it; more than half fails at the sender.
TEST_F(Budget, OnewayGetsHalf) {
    EXPECT_EQ(STATUS_OK, callWith(capacity() / 2, kTake, FLAG_ONEWAY));
    EXPECT_TRUE(paxtest::waitUntil([&] { return received == 1; }));
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, callWith(capacity() / 2 + 4, kTake, FLAG_ONEWAY));
    // The one-way part is full while a one-way call is held; two-way calls still fit.
    EXPECT_EQ(STATUS_OK, callWith(capacity() / 2, kHold, FLAG_ONEWAY));
    ASSERT_TRUE(gate.arrived.waitFor(1));
    EXPECT_EQ(STATUS_OK, callWith(capacity() / 4, kTake));
    gate.open();
}

// Device: a reply takes the caller's buffer until the caller frees the reply parcel.
TEST_F(Budget, AReplyCountsUntilTheCallerFreesIt) {
    const int32_t big = static_cast<int32_t>(capacity() * 3 / 5);
    ndk::ScopedAParcel first, second;
    ASSERT_EQ(STATUS_OK, answeredWith(big, &first));
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, answeredWith(big, &second));
    first.set(nullptr);
    EXPECT_EQ(STATUS_OK, answeredWith(big, &second));
}
