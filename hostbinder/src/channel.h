// The bytes of one connection: a stream socket, cut into messages. It knows nothing of
// binders or calls; the session above it gives meaning to what it carries.
//
// Reading belongs to one thread at a time (the session's read turn) and never waits unless
// asked to. Writing never blocks: what the socket does not take is queued, up to a bound, and
// leaves when someone flushes. A peer that leaves half a message or our bytes unread for too
// long is shut out (host-only guards: the device's driver has no such states).
#pragma once

#include <android/binder_auto_utils.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "wire.h"

// A complete message taken from the read buffer.
struct Frame {
    WireHeader header;
    std::vector<uint32_t> offsets;
    std::vector<uint8_t> data;
    std::vector<ndk::ScopedFileDescriptor> fds;
};

// What a message puts on the wire besides its header. It refers to the bytes and descriptors
// of a parcel, which must outlive it.
struct Outgoing {
    const std::vector<uint8_t>* data = nullptr;  // the parcel's bytes, or `patched`
    std::vector<uint8_t> patched;  // a copy with object references, only when it has any
    std::vector<uint32_t> offsets;
    const std::vector<ndk::ScopedFileDescriptor>* fds =
            nullptr;  // the parcel's descriptors, sent beside it
};

class Channel {
public:
    // Bytes we keep for a peer that does not read; past this it is disconnected.
    static constexpr size_t kOutboundLimit = 1u << 20;
    // Long enough for any honest sender on one machine, short enough that a peer cannot park
    // half messages, or leave our bytes unread, on us.
    static constexpr int64_t kFrameTimeoutMillis = 3000;
    static constexpr int64_t kDrainTimeoutMillis = 3000;

    // `fd` is a connected stream socket; `name` says which connection in log lines.
    Channel(ndk::ScopedFileDescriptor fd, std::string name);
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    int fd() const { return mFd.get(); }

    // --- Reading: only by the holder of the read turn -----------------------------------
    enum class Read { kMore, kWouldBlock, kClosed };
    // One receive into the buffer; `block` waits for bytes.
    Read readMore(bool block);
    // A complete frame, or a header that breaks the protocol, is in the buffer.
    bool frameBuffered() const;
    // Takes the next complete frame. False with *bad set when the peer broke the protocol.
    bool takeFrame(Frame* frame, bool* bad);
    // Lets go of descriptors that no message claimed.
    void dropReceived();

    // --- Writing: from any thread -------------------------------------------------------
    enum class Sent { kAll, kQueued, kFailed };
    // Sends a message, or queues what the socket does not take.
    Sent send(const WireHeader& header, const Outgoing& out);
    // Writes what is queued, as far as the socket takes it now. True when nothing is left.
    bool flush();
    // Writes what is queued, waiting for the socket as long as the peer keeps taking bytes
    // (a peer that takes none for the drain timeout is shut out). True when nothing is left.
    bool flushWaiting();
    bool wantsWrite() const { return mWantWrite.load(); }
    size_t queuedBytes() const;

    // --- Ending ----------------------------------------------------------------------------
    // Ends both directions; the reader sees the end. Safe from any thread, more than once.
    void shutdown();
    bool isShut() const { return mShut.load(); }
    // Shuts the connection when the peer left a message half sent, or our bytes unread, for
    // too long; logs why.
    void sweep(int64_t nowMs);

private:
    struct Queued {
        std::vector<uint8_t> bytes;
        size_t sent = 0;
        std::vector<ndk::ScopedFileDescriptor> fds;  // they go with the first byte
    };

    ssize_t receive(void* buffer, size_t size, int flags);
    // Needs mWriteMutex.
    bool flushLocked();
    void failLocked(const char* why);

    const ndk::ScopedFileDescriptor mFd;
    const std::string mName;
    std::atomic<bool> mShut{false};

    // Touched only by the thread holding the read turn.
    // Left uninitialised: zero-filling 16 KiB on a connection's first read, and touching all
    // its pages, was the largest piece of a restarted service's first answer.
    std::unique_ptr<uint8_t[]> mReadBuffer;
    size_t mReadCapacity = 0;
    size_t mReadStart = 0;
    size_t mReadEnd = 0;
    std::deque<ndk::ScopedFileDescriptor> mInFds;  // received, not yet claimed by a message
    // When the frame now in the buffer began arriving; 0 between frames.
    std::atomic<int64_t> mPartialSince{0};

    mutable std::mutex mWriteMutex;  // guards the queue
    std::deque<Queued> mOutQueue;
    size_t mOutBytes = 0;
    bool mWriteFailed = false;
    std::atomic<bool> mWantWrite{false};
    std::atomic<int64_t> mStalledSince{0};  // when the queue last stopped draining; 0 if empty
};
