// What a process may have received and not yet freed. On a device every process maps one
// buffer of BINDER_VM_SIZE (1 MiB - 2 pages, ProcessState.cpp) into which the driver copies
// each transaction and reply sent to it; a transaction's space is taken until the receiver
// frees the parcel, and one-way calls together may take at most half of it (binder_alloc.c,
// free_async_space). What does not fit fails at the sender with STATUS_FAILED_TRANSACTION.
#pragma once

#include <cstddef>
#include <mutex>

class ReceiveBudget {
public:
    static ReceiveBudget& get();
    // 1 MiB - 2 pages of this machine.
    static size_t capacity();
    // The space a message takes: its data and its object offsets (64-bit each on the device),
    // each rounded up to 8 bytes, as the driver rounds them.
    static size_t sizeOf(size_t dataSize, size_t objectCount);
    // Whether a message of this size could ever fit, with nothing else in flight.
    static bool couldFit(size_t bytes, bool oneway);

    // Takes `bytes`; false, and nothing taken, when they do not fit now.
    bool take(size_t bytes, bool oneway);
    void give(size_t bytes, bool oneway);

private:
    std::mutex mMutex;
    size_t mUsed = 0;        // everything in flight to this process
    size_t mOnewayUsed = 0;  // the one-way part of it
};

// A received parcel's hold on the budget, given back when the parcel goes.
class BudgetClaim {
public:
    BudgetClaim() = default;
    ~BudgetClaim() { release(); }
    BudgetClaim(const BudgetClaim&) = delete;
    BudgetClaim& operator=(const BudgetClaim&) = delete;

    void hold(size_t bytes, bool oneway) {
        release();
        mBytes = bytes;
        mOneway = oneway;
    }
    void release() {
        if (mBytes > 0) ReceiveBudget::get().give(mBytes, mOneway);
        mBytes = 0;
    }

private:
    size_t mBytes = 0;
    bool mOneway = false;
};
