// Framing, non-blocking reads and writes, and the outbound queue of one connection.
#include "channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "log.h"
#include "parcel.h"

namespace {
constexpr size_t kInitialReadBuffer = 16 * 1024;
// Room for the most descriptors one message may carry.
constexpr size_t kFdControlSize = CMSG_SPACE(sizeof(int) * kMaxParcelFds);

// One non-blocking send; descriptors (when given) go with the first byte.
ssize_t sendSome(int fd, const iovec* iov, int count,
                 const std::vector<ndk::ScopedFileDescriptor>* fds) {
    alignas(cmsghdr) char control[kFdControlSize];
    msghdr msg{};
    msg.msg_iov = const_cast<iovec*>(iov);
    msg.msg_iovlen = static_cast<size_t>(count);
    if (fds != nullptr && !fds->empty()) {
        const size_t bytes = sizeof(int) * fds->size();
        msg.msg_control = control;
        msg.msg_controllen = CMSG_SPACE(bytes);
        cmsghdr* c = CMSG_FIRSTHDR(&msg);
        c->cmsg_level = SOL_SOCKET;
        c->cmsg_type = SCM_RIGHTS;
        c->cmsg_len = CMSG_LEN(bytes);
        for (size_t i = 0; i < fds->size(); ++i) {
            const int raw = (*fds)[i].get();
            memcpy(CMSG_DATA(c) + i * sizeof(int), &raw, sizeof(int));
        }
    }
    ssize_t n;
    do {
        n = sendmsg(fd, &msg, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    return n;
}

bool validHeader(const WireHeader& h) {
    return h.magic == kWireMagic && h.dataSize <= kMaxParcelSize &&
           h.objectCount <= kMaxParcelObjects && h.fdCount <= kMaxParcelFds &&
           (h.type == kWireTransact || h.type == kWireReply || h.type == kWireRelease);
}
}  // namespace

Channel::Channel(ndk::ScopedFileDescriptor fd, std::string name)
    : mFd(std::move(fd)), mName(std::move(name)) {}

// --- Reading ---------------------------------------------------------------------------------

ssize_t Channel::receive(void* buffer, size_t size, int flags) {
    alignas(cmsghdr) char control[kFdControlSize];
    iovec iov{buffer, size};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    ssize_t n = recvmsg(mFd.get(), &msg, flags | MSG_CMSG_CLOEXEC);
    if (n < 0) return n;
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
            mInFds.emplace_back(fd);
        }
    }
    // Descriptors lost to a short control buffer would shift every later message's.
    if (msg.msg_flags & MSG_CTRUNC) {
        errno = EPROTO;
        return -1;
    }
    return n;
}

Channel::Read Channel::readMore(bool block) {
    if (mReadEnd == mReadCapacity) {
        if (mReadStart > 0) {
            std::memmove(mReadBuffer.get(), mReadBuffer.get() + mReadStart, mReadEnd - mReadStart);
            mReadEnd -= mReadStart;
            mReadStart = 0;
        } else {
            // Grows only as bytes really arrive, so a header that promises much costs little.
            const size_t capacity = std::max(kInitialReadBuffer, mReadCapacity * 2);
            std::unique_ptr<uint8_t[]> grown(new uint8_t[capacity]);
            if (mReadEnd > 0) std::memcpy(grown.get(), mReadBuffer.get(), mReadEnd);
            mReadBuffer = std::move(grown);
            mReadCapacity = capacity;
        }
    }
    ssize_t n = receive(mReadBuffer.get() + mReadEnd, mReadCapacity - mReadEnd,
                        block ? 0 : MSG_DONTWAIT);
    if (n > 0) {
        mReadEnd += static_cast<size_t>(n);
        if (mPartialSince.load() == 0) mPartialSince.store(monotonicMillis());
        return Read::kMore;
    }
    if (n < 0 && errno == EINTR) return Read::kMore;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return Read::kWouldBlock;
    return Read::kClosed;
}

bool Channel::frameBuffered() const {
    const size_t available = mReadEnd - mReadStart;
    if (available < sizeof(WireHeader)) return false;
    WireHeader h;
    memcpy(&h, mReadBuffer.get() + mReadStart, sizeof(h));
    return !validHeader(h) || available >= sizeof(h) + size_t{h.objectCount} * 4 + h.dataSize;
}

bool Channel::takeFrame(Frame* frame, bool* bad) {
    *bad = false;
    const size_t available = mReadEnd - mReadStart;
    if (available < sizeof(WireHeader)) return false;
    const uint8_t* at = mReadBuffer.get() + mReadStart;
    WireHeader h;
    memcpy(&h, at, sizeof(h));
    if (!validHeader(h)) {
        *bad = true;  // not our protocol, or lying about sizes: the connection cannot be trusted
        return false;
    }
    const size_t offsetBytes = size_t{h.objectCount} * 4;
    const size_t total = sizeof(h) + offsetBytes + h.dataSize;
    if (available < total) return false;
    // Descriptors arrive with a message's first byte, so a whole message has all of its own.
    if (mInFds.size() < h.fdCount) {
        *bad = true;
        return false;
    }
    frame->header = h;
    frame->offsets.resize(h.objectCount);
    if (offsetBytes > 0) memcpy(frame->offsets.data(), at + sizeof(h), offsetBytes);
    frame->data.assign(at + sizeof(h) + offsetBytes, at + total);
    frame->fds.clear();
    for (uint32_t i = 0; i < h.fdCount; ++i) {
        frame->fds.push_back(std::move(mInFds.front()));
        mInFds.pop_front();
    }
    mReadStart += total;
    if (mReadStart == mReadEnd) {
        mReadStart = mReadEnd = 0;
        mPartialSince.store(0);
    } else {
        mPartialSince.store(monotonicMillis());
    }
    return true;
}

void Channel::dropReceived() {
    mInFds.clear();
}

// --- Writing ---------------------------------------------------------------------------------

Channel::Sent Channel::send(const WireHeader& h, const Outgoing& out) {
    WireHeader header = h;
    header.magic = kWireMagic;
    header.objectCount = static_cast<uint32_t>(out.offsets.size());
    header.dataSize = out.data == nullptr ? 0 : static_cast<uint32_t>(out.data->size());
    header.fdCount = out.fds == nullptr ? 0 : static_cast<uint32_t>(out.fds->size());
    if (header.fdCount > kMaxParcelFds) return Sent::kFailed;
    iovec iov[3] = {
            {&header, sizeof(header)},
            {const_cast<uint32_t*>(out.offsets.data()), out.offsets.size() * sizeof(uint32_t)},
            {out.data == nullptr ? nullptr : const_cast<uint8_t*>(out.data->data()),
             header.dataSize},
    };
    const size_t total = iov[0].iov_len + iov[1].iov_len + iov[2].iov_len;
    size_t sent = 0;
    int first = 0;  // the first piece not wholly sent

    std::lock_guard<std::mutex> lock(mWriteMutex);
    if (mWriteFailed) return Sent::kFailed;
    if (mOutQueue.empty()) {
        // The common path: the socket takes it all at once.
        while (sent < total) {
            ssize_t n = sendSome(mFd.get(), iov + first, 3 - first, sent == 0 ? out.fds : nullptr);
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
            if (n <= 0) {
                failLocked(nullptr);
                return Sent::kFailed;
            }
            sent += static_cast<size_t>(n);
            auto left = static_cast<size_t>(n);
            while (first < 3 && left >= iov[first].iov_len) left -= iov[first++].iov_len;
            if (first < 3) {
                iov[first].iov_base = static_cast<uint8_t*>(iov[first].iov_base) + left;
                iov[first].iov_len -= left;
            }
        }
        if (sent == total) return Sent::kAll;
    } else if (mOutBytes > kOutboundLimit) {
        failLocked("it leaves its replies unread");
        return Sent::kFailed;
    }
    // Whatever the socket did not take waits, in order, for a flush.
    Queued q;
    q.bytes.reserve(total - sent);
    for (int i = first; i < 3; ++i) {
        const auto* bytes = static_cast<const uint8_t*>(iov[i].iov_base);
        q.bytes.insert(q.bytes.end(), bytes, bytes + iov[i].iov_len);
    }
    if (sent == 0 && out.fds != nullptr) {
        // The parcel keeps its own; the queue owns copies until they leave.
        for (const auto& fd : *out.fds) q.fds.push_back(fd.dup());
    }
    mOutBytes += q.bytes.size();
    mOutQueue.push_back(std::move(q));
    if (!mWantWrite.exchange(true)) mStalledSince.store(monotonicMillis());
    return Sent::kQueued;
}

bool Channel::flushLocked() {
    while (!mOutQueue.empty() && !mWriteFailed) {
        Queued& q = mOutQueue.front();
        iovec iov{q.bytes.data() + q.sent, q.bytes.size() - q.sent};
        ssize_t n = sendSome(mFd.get(), &iov, 1, q.sent == 0 ? &q.fds : nullptr);
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        if (n <= 0) {
            failLocked(nullptr);
            break;
        }
        q.fds.clear();
        q.sent += static_cast<size_t>(n);
        mOutBytes -= static_cast<size_t>(n);
        mStalledSince.store(monotonicMillis());
        if (q.sent == q.bytes.size()) mOutQueue.pop_front();
    }
    if (mOutQueue.empty()) {
        mWantWrite.store(false);
        mStalledSince.store(0);
        return true;
    }
    return false;
}

bool Channel::flush() {
    std::lock_guard<std::mutex> lock(mWriteMutex);
    return flushLocked();
}

bool Channel::flushWaiting() {
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mWriteMutex);
            if (flushLocked()) return true;
            if (mWriteFailed) return false;
            const int64_t stalled = mStalledSince.load();
            if (stalled != 0 && monotonicMillis() - stalled > kDrainTimeoutMillis) {
                failLocked("it leaves its replies unread");
                return false;
            }
        }
        // No lock while waiting: others may queue, flush or shut the connection meanwhile.
        pollfd p{mFd.get(), POLLOUT, 0};
        (void)poll(&p, 1, static_cast<int>(kDrainTimeoutMillis));
    }
}

size_t Channel::queuedBytes() const {
    std::lock_guard<std::mutex> lock(mWriteMutex);
    return mOutBytes;
}

void Channel::failLocked(const char* why) {
    if (why != nullptr) {
        hostbinderLog("closing %s: %s (%zu bytes waiting)", mName.c_str(), why, mOutBytes);
    }
    mWriteFailed = true;
    mOutQueue.clear();
    mOutBytes = 0;
    mWantWrite.store(false);
    mStalledSince.store(0);
    shutdown();
}

// --- Ending ----------------------------------------------------------------------------------

void Channel::shutdown() {
    mShut.store(true);
    // The descriptor itself stays open until the channel goes: a late reply or release after
    // the peer went must not write to a number that has meanwhile been reused.
    ::shutdown(mFd.get(), SHUT_RDWR);
}

void Channel::sweep(int64_t nowMs) {
    const int64_t partial = mPartialSince.load();
    if (partial != 0 && nowMs - partial > kFrameTimeoutMillis && !isShut()) {
        hostbinderLog("closing %s: half a message for over %lld ms", mName.c_str(),
                      static_cast<long long>(kFrameTimeoutMillis));
        shutdown();
        return;
    }
    const int64_t stalled = mStalledSince.load();
    if (stalled != 0 && nowMs - stalled > kDrainTimeoutMillis) {
        std::lock_guard<std::mutex> lock(mWriteMutex);
        if (!mOutQueue.empty() && !mWriteFailed) failLocked("it leaves its replies unread");
    }
}
