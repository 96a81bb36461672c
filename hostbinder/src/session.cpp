// A session's reading, writing and teardown.
#include "session.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {
constexpr size_t kInitialReadBuffer = 16 * 1024;
// Long enough for any honest sender on one machine, short enough that a peer cannot park
// half messages on us.
constexpr int64_t kFrameTimeoutMillis = 3000;
// A peer that takes none of its replies for this long is treated as gone.
constexpr int64_t kDrainTimeoutMillis = 3000;
// Bytes we keep for a peer that does not read; past this it is disconnected.
constexpr size_t kOutboundLimit = 1u << 20;
// Room for the most descriptors one message may carry.
constexpr size_t kFdControlSize = CMSG_SPACE(sizeof(int) * kMaxParcelFds);

// One non-blocking send; descriptors (when given) go with the first byte.
ssize_t sendSome(int fd, const iovec* iov, int count, const std::vector<int>* fds) {
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
        memcpy(CMSG_DATA(c), fds->data(), bytes);
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

void closeAll(const std::vector<int>& fds) {
    for (int fd : fds) close(fd);
}
}  // namespace

CallingIdentity& callingIdentity() {
    thread_local CallingIdentity identity{getuid(), getpid(), false};
    return identity;
}

std::shared_ptr<Session> Session::start(int fd, std::string instance, AIBinder* root) {
    std::shared_ptr<Session> s(new Session(fd, std::move(instance), root));
    ucred cred{};
    socklen_t len = sizeof(cred);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0) {
        s->mPeerPid = cred.pid;
        s->mPeerUid = cred.uid;
    }
    SessionRegistry::get().add(s);
    Dispatcher::get().add(fd, s->mWatchId, EPOLLIN, s);
    return s;
}

Session::Session(int fd, std::string instance, AIBinder* root)
    : mFd(fd),
      mInstance(std::move(instance)),
      mRoot(root),
      mWatchId(Dispatcher::get().newId()),
      mArmed(EPOLLIN) {
    if (mRoot != nullptr) {
        AIBinder_incStrong(mRoot);
        mExports[kWireRootObject] = Export{mRoot, UINT64_MAX};
        mExportIds[mRoot] = kWireRootObject;
    }
}

Session::~Session() {
    for (const Queued& q : mOutQueue) closeAll(q.fds);
    for (int fd : mInFds) close(fd);
    // Closed only here: a late reply or release after the peer went must not write to a
    // descriptor number that has meanwhile been reused.
    close(mFd);
}

bool Session::alive() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return !mDead && !mClosing;
}

void Session::shutdown() {
    {
        // From now on nobody is handed this connection, though its reader may not have
        // noticed the end yet.
        std::lock_guard<std::mutex> lock(mMutex);
        mClosing = true;
    }
    ::shutdown(mFd, SHUT_RDWR);
}

void Session::rearmLocked() {
    if (mDead) return;
    uint32_t want = mReading ? 0u : static_cast<uint32_t>(EPOLLIN);
    if (mWantWrite.load()) want |= EPOLLOUT;
    if (want == mArmed) return;
    Dispatcher::get().rearm(mFd, mWatchId, want);
    mArmed = want;
}

void Session::wakeWaiterLocked() {
    for (Pending* p = mPending; p != nullptr; p = p->next) {
        if (!p->done) {
            p->cv.notify_one();
            return;
        }
    }
}

void Session::onEvent(uint32_t events) {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mArmed = 0;  // one-shot: the registration reports nothing more until re-armed
    }
    if (mWantWrite.load()) flush();
    if (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) {
        serve();
        return;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    rearmLocked();
}

// --- Reading -------------------------------------------------------------------------------

ssize_t Session::receive(void* buffer, size_t size, int flags) {
    alignas(cmsghdr) char control[kFdControlSize];
    iovec iov{buffer, size};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    ssize_t n = recvmsg(mFd, &msg, flags | MSG_CMSG_CLOEXEC);
    if (n < 0) return n;
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd;
            memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
            mInFds.push_back(fd);
        }
    }
    // Descriptors lost to a short control buffer would shift every later message's.
    if (msg.msg_flags & MSG_CTRUNC) {
        errno = EPROTO;
        return -1;
    }
    return n;
}

Session::Read Session::readMore(bool block) {
    if (mReadEnd == mReadBuffer.size()) {
        if (mReadStart > 0) {
            std::memmove(mReadBuffer.data(), mReadBuffer.data() + mReadStart,
                         mReadEnd - mReadStart);
            mReadEnd -= mReadStart;
            mReadStart = 0;
        } else {
            // Grows only as bytes really arrive, so a header that promises much costs little.
            mReadBuffer.resize(std::max(kInitialReadBuffer, mReadBuffer.size() * 2));
        }
    }
    ssize_t n = receive(mReadBuffer.data() + mReadEnd, mReadBuffer.size() - mReadEnd,
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

bool Session::frameBuffered() const {
    const size_t available = mReadEnd - mReadStart;
    if (available < sizeof(WireHeader)) return false;
    WireHeader h;
    memcpy(&h, mReadBuffer.data() + mReadStart, sizeof(h));
    return !validHeader(h) || available >= sizeof(h) + size_t{h.objectCount} * 4 + h.dataSize;
}

bool Session::takeFrame(Frame* frame, bool* bad) {
    *bad = false;
    const size_t available = mReadEnd - mReadStart;
    if (available < sizeof(WireHeader)) return false;
    const uint8_t* at = mReadBuffer.data() + mReadStart;
    WireHeader h;
    memcpy(&h, at, sizeof(h));
    if (!validHeader(h)) {
        *bad = true;  // not our protocol, or lying about sizes: the connection cannot be trusted
        return false;
    }
    const size_t offsetBytes = size_t{h.objectCount} * 4;
    const size_t total = sizeof(h) + offsetBytes + h.dataSize;
    if (available < total) return false;
    if (mInFds.size() < h.fdCount) {
        *bad = true;
        return false;
    }
    frame->header = h;
    frame->offsets.resize(h.objectCount);
    if (offsetBytes > 0) memcpy(frame->offsets.data(), at + sizeof(h), offsetBytes);
    frame->data.assign(at + sizeof(h) + offsetBytes, at + total);
    frame->fds.assign(mInFds.begin(), mInFds.begin() + h.fdCount);
    mInFds.erase(mInFds.begin(), mInFds.begin() + h.fdCount);
    mReadStart += total;
    if (mReadStart == mReadEnd) {
        mReadStart = mReadEnd = 0;
        mPartialSince.store(0);
    } else {
        mPartialSince.store(monotonicMillis());
    }
    return true;
}

void Session::serve() {
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mReading || mDead) {
            rearmLocked();
            return;
        }
        mReading = true;
    }
    Incoming incoming;
    bool closed = false;
    for (;;) {
        Frame frame;
        bool bad = false;
        if (takeFrame(&frame, &bad)) {
            if (!handle(frame, &incoming)) {
                closed = true;
                break;
            }
            if (incoming.target != nullptr) break;
            continue;
        }
        if (bad) {
            closed = true;
            break;
        }
        const Read r = readMore(false);
        if (r == Read::kWouldBlock) break;
        if (r == Read::kClosed) {
            closed = true;
            break;
        }
    }
    if (closed) teardown();
    const bool more = !closed && frameBuffered();
    {
        std::lock_guard<std::mutex> lock(mMutex);
        endReadingLocked(more);
    }
    if (incoming.target != nullptr) {
        Dispatcher::get().ensureSpare();
        runTransaction(std::move(incoming));
    }
}

void Session::readUntilAnswered(Pending* mine) {
    bool closed = false;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (mine->done) break;
        }
        Frame frame;
        bool bad = false;
        if (takeFrame(&frame, &bad)) {
            Incoming incoming;
            if (!handle(frame, &incoming)) {
                closed = true;
                break;
            }
            if (incoming.target == nullptr) continue;
            // Incoming calls belong to binder threads, never to a caller's thread. Only the
            // runtime's own questions (is it alive, what interface), which run no code of the
            // process, are answered here: a peer asks them while handling our call, and a
            // process without binder threads must still be able to make that call.
            const uint32_t code = incoming.header.code;
            if (code == kPingTransaction || code == kInterfaceTransaction) {
                runTransaction(std::move(incoming));
            } else {
                postTransaction(std::move(incoming));
            }
            continue;
        }
        if (bad || readMore(true) == Read::kClosed) {
            closed = true;
            break;
        }
    }
    if (closed) teardown();
}

bool Session::handle(Frame& frame, Incoming* incoming) {
    const WireHeader& h = frame.header;
    struct FdCloser {
        std::vector<int>& fds;
        ~FdCloser() { closeAll(fds); }
    } closeUnclaimed{frame.fds};
    switch (h.type) {
        case kWireRelease: {
            AIBinder* drop = nullptr;
            {
                std::lock_guard<std::mutex> lock(mMutex);
                auto it = mExports.find(h.target);
                if (it == mExports.end() || h.target == kWireRootObject) return true;
                if (it->second.count <= h.code) {
                    drop = it->second.binder;
                    mExportIds.erase(drop);
                    mExports.erase(it);
                } else {
                    it->second.count -= h.code;
                }
            }
            if (drop != nullptr) AIBinder_decStrong(drop);
            return true;
        }
        case kWireReply: {
            auto reply = std::make_unique<AParcel>();
            reply->data = std::move(frame.data);
            reply->fds.swap(frame.fds);
            binder_status_t status = h.status;
            if (status == STATUS_OK) {
                binder_status_t flat = unflatten(reply.get(), frame.offsets);
                if (flat != STATUS_OK) status = flat;
            }
            std::lock_guard<std::mutex> lock(mMutex);
            Pending* p = mPending;
            while (p != nullptr && (p->txId != h.txId || p->done)) p = p->next;
            if (p == nullptr) return false;  // a reply nobody asked for
            p->status = status;
            p->reply = std::move(reply);
            p->done = true;
            p->cv.notify_one();
            return true;
        }
        case kWireTransact: {
            const bool oneway = (h.flags & FLAG_ONEWAY) != 0;
            auto in = std::make_unique<AParcel>();
            in->data = std::move(frame.data);
            in->fds.swap(frame.fds);
            binder_status_t status = unflatten(in.get(), frame.offsets);
            AIBinder* target = nullptr;
            if (status == STATUS_OK) {
                std::lock_guard<std::mutex> lock(mMutex);
                target = exportedLocked(h.target);
                if (target == nullptr) status = STATUS_BAD_VALUE;
            }
            if (status != STATUS_OK) {
                if (!oneway) sendReply(h.txId, status, nullptr);
                return true;
            }
            *incoming = Incoming{h, target, std::move(in)};
            return true;
        }
    }
    return false;
}

void Session::postTransaction(Incoming incoming) {
    auto held = std::make_shared<Incoming>(std::move(incoming));
    std::shared_ptr<Session> self = shared_from_this();
    Dispatcher::get().post([self, held] { self->runTransaction(std::move(*held)); });
}

void Session::runTransaction(Incoming incoming) {
    const WireHeader& h = incoming.header;
    CallingIdentity saved = callingIdentity();
    callingIdentity() = {mPeerUid, mPeerPid, true};
    AParcel reply;
    binder_status_t status = dispatchLocal(static_cast<LocalBinder*>(incoming.target), h.code,
                                           incoming.in.get(), &reply);
    callingIdentity() = saved;
    incoming.in.reset();
    if ((h.flags & FLAG_ONEWAY) == 0) sendReply(h.txId, status, &reply);
    AIBinder_decStrong(incoming.target);
}

// --- Calling -------------------------------------------------------------------------------

binder_status_t Session::transact(RemoteBinder* target, transaction_code_t code,
                                  std::unique_ptr<AParcel> in, AParcel** out,
                                  binder_flags_t flags) {
    WireHeader h{};
    h.type = kWireTransact;
    h.target = target->remoteId;
    h.code = code;
    h.flags = flags;
    Outgoing request;
    binder_status_t status = flatten(*in, &request);
    if (status != STATUS_OK) return status;

    if (flags & FLAG_ONEWAY) {
        if (!alive()) return STATUS_DEAD_OBJECT;
        return send(h, request) ? STATUS_OK : STATUS_DEAD_OBJECT;
    }

    Pending pending;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mDead) return STATUS_DEAD_OBJECT;
        h.txId = pending.txId = mNextTxId++;
        pending.next = mPending;
        mPending = &pending;
    }
    send(h, request);  // a failed send ends the session, which answers `pending`
    in.reset();        // its binders need not be held while waiting for the reply

    std::unique_lock<std::mutex> lock(mMutex);
    while (!pending.done) {
        if (!mReading && !mDead) {
            // Nobody reads this connection now: the caller reads its own reply.
            mReading = true;
            rearmLocked();
            lock.unlock();
            readUntilAnswered(&pending);
            const bool more = frameBuffered();
            lock.lock();
            endReadingLocked(more);
            continue;
        }
        pending.cv.wait(lock);
    }
    for (Pending** p = &mPending; *p != nullptr; p = &(*p)->next) {
        if (*p == &pending) {
            *p = pending.next;
            break;
        }
    }
    lock.unlock();
    if (pending.status != STATUS_OK) return pending.status;
    if (pending.reply == nullptr) pending.reply = std::make_unique<AParcel>();
    *out = pending.reply.release();
    return STATUS_OK;
}

// --- Writing -------------------------------------------------------------------------------

bool Session::send(const WireHeader& h, const Outgoing& out) {
    WireHeader header = h;
    header.magic = kWireMagic;
    header.objectCount = static_cast<uint32_t>(out.offsets.size());
    header.dataSize = out.data == nullptr ? 0 : static_cast<uint32_t>(out.data->size());
    header.fdCount = out.fds == nullptr ? 0 : static_cast<uint32_t>(out.fds->size());
    if (header.fdCount > kMaxParcelFds) return false;
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
    if (mWriteFailed) return false;
    if (mOutQueue.empty()) {
        // The common path: the socket takes it all at once.
        while (sent < total) {
            ssize_t n = sendSome(mFd, iov + first, 3 - first, sent == 0 ? out.fds : nullptr);
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
            if (n <= 0) {
                failWrites(nullptr);
                return false;
            }
            sent += static_cast<size_t>(n);
            auto left = static_cast<size_t>(n);
            while (first < 3 && left >= iov[first].iov_len) left -= iov[first++].iov_len;
            if (first < 3) {
                iov[first].iov_base = static_cast<uint8_t*>(iov[first].iov_base) + left;
                iov[first].iov_len -= left;
            }
        }
        if (sent == total) return true;
    } else if (mOutBytes > kOutboundLimit) {
        failWrites("it leaves its replies unread");
        return false;
    }
    // Whatever the socket did not take waits, in order, for a binder thread to write it.
    Queued q;
    q.bytes.reserve(total - sent);
    for (int i = first; i < 3; ++i) {
        const auto* bytes = static_cast<const uint8_t*>(iov[i].iov_base);
        q.bytes.insert(q.bytes.end(), bytes, bytes + iov[i].iov_len);
    }
    if (sent == 0 && out.fds != nullptr) {
        for (int fd : *out.fds) q.fds.push_back(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    }
    mOutBytes += q.bytes.size();
    mOutQueue.push_back(std::move(q));
    if (!mWantWrite.exchange(true)) mStalledSince.store(monotonicMillis());
    std::lock_guard<std::mutex> state(mMutex);
    rearmLocked();
    return true;
}

void Session::flush() {
    std::lock_guard<std::mutex> lock(mWriteMutex);
    while (!mOutQueue.empty() && !mWriteFailed) {
        Queued& q = mOutQueue.front();
        iovec iov{q.bytes.data() + q.sent, q.bytes.size() - q.sent};
        ssize_t n = sendSome(mFd, &iov, 1, q.sent == 0 ? &q.fds : nullptr);
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        if (n <= 0) {
            failWrites(nullptr);
            break;
        }
        closeAll(q.fds);
        q.fds.clear();
        q.sent += static_cast<size_t>(n);
        mOutBytes -= static_cast<size_t>(n);
        mStalledSince.store(monotonicMillis());
        if (q.sent == q.bytes.size()) mOutQueue.pop_front();
    }
    if (mOutQueue.empty()) {
        mWantWrite.store(false);
        mStalledSince.store(0);
    }
    std::lock_guard<std::mutex> state(mMutex);
    rearmLocked();
}

void Session::failWrites(const char* why) {
    if (why != nullptr) {
        hostbinderLog("closing a connection of %s to pid %d: %s (%zu bytes waiting)",
                      mInstance.c_str(), static_cast<int>(mPeerPid), why, mOutBytes);
    }
    mWriteFailed = true;
    for (const Queued& q : mOutQueue) closeAll(q.fds);
    mOutQueue.clear();
    mOutBytes = 0;
    mWantWrite.store(false);
    mStalledSince.store(0);
    shutdown();
}

void Session::sendReply(uint64_t txId, binder_status_t status, AParcel* reply) {
    WireHeader h{};
    h.type = kWireReply;
    h.txId = txId;
    h.status = status;
    Outgoing out;
    if (status == STATUS_OK && reply != nullptr) {
        binder_status_t flat = flatten(*reply, &out);
        if (flat != STATUS_OK) {
            h.status = flat;
            out = Outgoing{};
        }
    }
    send(h, out);
}

// This thread stops reading: the connection is watched again, a caller waiting for its reply
// may read it, and messages that came in the same read get a thread of their own, since the
// socket will not announce them again.
void Session::endReadingLocked(bool more) {
    mReading = false;
    rearmLocked();
    wakeWaiterLocked();
    if (more) {
        std::shared_ptr<Session> self = shared_from_this();
        Dispatcher::get().post([self] { self->serve(); });
    }
}

// --- Ending --------------------------------------------------------------------------------

void Session::sweep(int64_t nowMs) {
    const int64_t partial = mPartialSince.load();
    if (partial != 0 && nowMs - partial > kFrameTimeoutMillis && alive()) {
        hostbinderLog("closing a connection of %s to pid %d: half a message for over %lld ms",
                      mInstance.c_str(), static_cast<int>(mPeerPid),
                      static_cast<long long>(kFrameTimeoutMillis));
        shutdown();
        return;
    }
    const int64_t stalled = mStalledSince.load();
    if (stalled != 0 && nowMs - stalled > kDrainTimeoutMillis) {
        std::lock_guard<std::mutex> lock(mWriteMutex);
        if (!mOutQueue.empty() && !mWriteFailed) failWrites("it leaves its replies unread");
    }
}

void Session::teardown() {
    std::vector<AIBinder*> exports;
    std::vector<AIBinder*> proxies;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mDead) return;
        mDead = true;
        for (Pending* p = mPending; p != nullptr; p = p->next) {
            if (p->done) continue;
            p->status = STATUS_DEAD_OBJECT;
            p->done = true;
            p->cv.notify_one();
        }
        // The root goes too: a service that keeps proxies of this connection's callbacks
        // would otherwise keep itself alive through them.
        for (auto& entry : mExports) exports.push_back(entry.second.binder);
        mExports.clear();
        mExportIds.clear();
        for (auto& entry : mProxies) {
            if (entry.second->tryIncStrong()) proxies.push_back(entry.second);
        }
    }
    Dispatcher::get().remove(mFd, mWatchId);
    for (int fd : mInFds) close(fd);
    mInFds.clear();
    SessionRegistry::get().remove(this);
    // Dropping the exports may destroy the caller's objects: no lock is held here.
    for (AIBinder* b : exports) AIBinder_decStrong(b);
    for (AIBinder* b : proxies) {
        std::vector<DeathLink> links = static_cast<RemoteBinder*>(b)->die();
        // The reference travels with the task and goes when the task does, whether it ran or
        // was dropped because the process is exiting: a proxy kept by a notice that never ran
        // would keep this session, and everything it holds, for ever.
        std::shared_ptr<AIBinder> held(b, [](AIBinder* p) { AIBinder_decStrong(p); });
        Dispatcher::get().post([held, links = std::move(links)] {
            for (const DeathLink& link : links) {
                if (!link.recipient->deleted.load()) link.recipient->onDied(link.cookie);
            }
        });
    }
}
