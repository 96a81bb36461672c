// The parcel's internal form, shared by the parcel functions and the transport.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "budget.h"

// Where a binder object sits in the data, and the binder itself (one strong reference held).
struct ParcelObject {
    uint32_t offset;
    AIBinder* binder;
};

// A binder object takes this many bytes in the data: kind, padding, and a 64-bit id.
constexpr uint32_t kObjectSize = 16;
enum ObjectKind : int32_t {
    kObjectNull = 0,
    kObjectSenderLocal = 1,    // an object of the sender; id is the sender's export id
    kObjectReceiverLocal = 2,  // an object of the receiver; id is the receiver's export id
    kObjectInProcess = 3,      // not yet sent: the binder is in the object list
};

struct AParcel {
    std::vector<uint8_t> data;
    // The binder AIBinder_prepareTransaction made this parcel for (compared, never used):
    // AIBinder_transact refuses a parcel made for another.
    const AIBinder* preparedFor = nullptr;
    // mutable: reading moves the position of a const parcel, as in the NDK.
    mutable uint32_t position = 0;
    std::vector<ParcelObject> objects;  // in increasing offset order
    // Descriptors that travel beside the data (owned; closed with the parcel). Only the
    // runtime's own transactions use them.
    std::vector<ndk::ScopedFileDescriptor> fds;
    // A parcel that arrived holds its space in the process's receive budget until it goes.
    BudgetClaim claim;

    // Every call makes a request parcel and reads a reply parcel on the calling thread, and
    // frees both there: each thread keeps a few freed parcels' memory and data buffers, so that
    // a call in a steady state allocates neither (parcel_memory.cpp).
    AParcel();
    // A parcel that arrived: its bytes are the ones read off the connection.
    explicit AParcel(std::vector<uint8_t>&& received);
    AParcel(const AParcel&) = delete;
    AParcel& operator=(const AParcel&) = delete;
    ~AParcel();
    static void* operator new(size_t size);
    static void* operator new(size_t size, const std::nothrow_t&) noexcept;
    static void operator delete(void* memory) noexcept;

    void clearObjects();
    void closeFds();
    // Drops the objects that overlap [begin, end) before those bytes are overwritten.
    void forgetObjectsIn(uint32_t begin, uint32_t end);
};

// Largest parcel the runtime accepts, in bytes.
constexpr uint32_t kMaxParcelSize = 16u << 20;
// Largest number of binder objects in one parcel.
constexpr uint32_t kMaxParcelObjects = 4096;
// What a transaction's parcel reserves before its arguments are written.
constexpr size_t kParcelReserve = 1024;
// Largest number of descriptors in one parcel.
constexpr uint32_t kMaxParcelFds = 16;
