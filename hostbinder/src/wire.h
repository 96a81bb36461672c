// What travels on a connection: a fixed header, the offsets of the binder objects in the
// data, then the data. Every size in it is checked before anything is allocated.
#pragma once

#include <cstdint>

constexpr uint32_t kWireMagic = 0x314e4248;  // "HBN1"
// The object a service end exports first: the binder it serves.
constexpr uint64_t kWireRootObject = 0;

enum WireType : uint32_t {
    kWireTransact = 1,
    kWireReply = 2,
    // The receiver lets go of `count` references to object `target` of the peer's.
    kWireRelease = 3,
};

struct WireHeader {
    uint32_t magic;
    uint32_t type;
    uint64_t txId;
    uint64_t target;  // transact: the receiver's object; release: the object released
    uint32_t code;    // transact: the code; release: how many references
    uint32_t flags;
    int32_t status;  // reply: the transaction's status
    uint32_t objectCount;
    uint32_t dataSize;
    uint32_t fdCount;  // descriptors passed beside the message, received with its first byte
    // transact: the receiver's call (its txId) that the sender is handling while it makes this
    // one, so that the receiver runs it on the thread waiting for that call's reply; else 0.
    uint64_t nestedIn;
};
static_assert(sizeof(WireHeader) == 56, "the header is part of the wire format");
