#include "session.h"

#include "thread_pool.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {
constexpr size_t kReadBufferSize = 64 * 1024;

// Room for the most descriptors one message may carry.
constexpr size_t kFdControlSize = CMSG_SPACE(sizeof(int) * kMaxParcelFds);

// Writes the pieces in order with as few system calls as the socket allows; descriptors go
// with the first byte.
bool writeFully(int fd, iovec* iov, int count, const std::vector<int>* fds) {
    alignas(cmsghdr) char control[kFdControlSize];
    bool fdsPending = fds != nullptr && !fds->empty();
    while (count > 0) {
        msghdr msg{};
        msg.msg_iov = iov;
        msg.msg_iovlen = static_cast<size_t>(count);
        if (fdsPending) {
            const size_t bytes = sizeof(int) * fds->size();
            msg.msg_control = control;
            msg.msg_controllen = CMSG_SPACE(bytes);
            cmsghdr* c = CMSG_FIRSTHDR(&msg);
            c->cmsg_level = SOL_SOCKET;
            c->cmsg_type = SCM_RIGHTS;
            c->cmsg_len = CMSG_LEN(bytes);
            memcpy(CMSG_DATA(c), fds->data(), bytes);
        }
        ssize_t n = sendmsg(fd, &msg, MSG_NOSIGNAL);
        if (n > 0) fdsPending = false;
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        auto sent = static_cast<size_t>(n);
        while (count > 0 && sent >= iov->iov_len) {
            sent -= iov->iov_len;
            ++iov;
            --count;
        }
        if (count > 0) {
            iov->iov_base = static_cast<uint8_t*>(iov->iov_base) + sent;
            iov->iov_len -= sent;
        }
    }
    return true;
}

constexpr uint64_t kRootId = 0;
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
    ThreadPool::get().post([s] { s->readLoop(); });
    return s;
}

Session::Session(int fd, std::string instance, AIBinder* root)
    : mFd(fd), mInstance(std::move(instance)), mRoot(root) {
    if (mRoot != nullptr) {
        AIBinder_incStrong(mRoot);
        mExports[kRootId] = Export{mRoot, UINT64_MAX};
        mExportIds[mRoot] = kRootId;
    }
}

Session::~Session() {
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

AIBinder* Session::rootProxy() {
    std::lock_guard<std::mutex> lock(mMutex);
    return proxyForLocked(kRootId);
}

AIBinder* Session::proxyForLocked(uint64_t id) {
    auto it = mProxies.find(id);
    if (it != mProxies.end() && it->second->tryIncStrong()) {
        it->second->acquired++;
        return it->second;
    }
    auto* proxy = new RemoteBinder(shared_from_this(), id);
    proxy->acquired = 1;
    if (mDead) proxy->dead = true;
    mProxies[id] = proxy;
    return proxy;
}

AIBinder* Session::exportedLocked(uint64_t id) {
    auto it = mExports.find(id);
    if (it == mExports.end()) return nullptr;
    AIBinder_incStrong(it->second.binder);
    return it->second.binder;
}

void Session::proxyGone(RemoteBinder* proxy) {
    WireHeader release{};
    {
        std::lock_guard<std::mutex> lock(mMutex);
        auto it = mProxies.find(proxy->remoteId);
        if (it != mProxies.end() && it->second == proxy) mProxies.erase(it);
        if (mDead || proxy->remoteId == kRootId || proxy->acquired == 0) return;
        release.magic = kWireMagic;
        release.type = kWireRelease;
        release.target = proxy->remoteId;
        release.code = proxy->acquired;
    }
    send(release, Outgoing{});
}

binder_status_t Session::flatten(const AParcel& parcel, Outgoing* out) {
    out->data = &parcel.data;
    if (!parcel.fds.empty()) out->fds = &parcel.fds;
    if (parcel.objects.empty()) return STATUS_OK;
    out->patched = parcel.data;
    out->data = &out->patched;
    std::lock_guard<std::mutex> lock(mMutex);
    if (mDead) return STATUS_DEAD_OBJECT;
    for (const ParcelObject& o : parcel.objects) {
        int32_t kind;
        uint64_t id;
        if (o.binder->isRemote()) {
            auto* remote = static_cast<RemoteBinder*>(o.binder);
            // A proxy can only go back to the process it came from.
            if (remote->session.get() != this) return STATUS_BAD_VALUE;
            kind = kObjectReceiverLocal;
            id = remote->remoteId;
        } else {
            kind = kObjectSenderLocal;
            auto known = mExportIds.find(o.binder);
            if (known != mExportIds.end()) {
                id = known->second;
                mExports[id].count++;
            } else {
                id = mNextExportId++;
                AIBinder_incStrong(o.binder);
                mExports[id] = Export{o.binder, 1};
                mExportIds[o.binder] = id;
            }
        }
        memcpy(out->patched.data() + o.offset, &kind, sizeof(kind));
        memcpy(out->patched.data() + o.offset + 8, &id, sizeof(id));
        out->offsets.push_back(o.offset);
    }
    return STATUS_OK;
}

binder_status_t Session::unflatten(AParcel* parcel, const std::vector<uint32_t>& offsets) {
    binder_status_t result = STATUS_OK;
    uint32_t nextFree = 0;
    std::lock_guard<std::mutex> lock(mMutex);
    for (uint32_t offset : offsets) {
        // Objects must be aligned, in order, apart, and inside the data.
        if (offset % 4 != 0 || offset < nextFree || offset > parcel->data.size() ||
            parcel->data.size() - offset < kObjectSize) {
            result = STATUS_BAD_VALUE;
            continue;
        }
        nextFree = offset + kObjectSize;
        int32_t kind;
        uint64_t id;
        memcpy(&kind, parcel->data.data() + offset, sizeof(kind));
        memcpy(&id, parcel->data.data() + offset + 8, sizeof(id));
        AIBinder* binder = nullptr;
        if (kind == kObjectSenderLocal) {
            // Taken even when the parcel is refused, so that the release we send when the
            // parcel goes balances what the sender counted.
            binder = proxyForLocked(id);
        } else if (kind == kObjectReceiverLocal) {
            binder = exportedLocked(id);
        }
        if (binder == nullptr) {
            result = STATUS_BAD_VALUE;
            continue;
        }
        parcel->objects.push_back({offset, binder});
    }
    return result;
}

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
    std::lock_guard<std::mutex> lock(mWriteMutex);
    if (!writeFully(mFd, iov, 3, out.fds)) {
        shutdown();
        return false;
    }
    return true;
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
        h.txId = mNextTxId++;
        mPending[h.txId] = &pending;
    }
    send(h, request);  // a failed send ends the session, which answers `pending`
    in.reset();    // its binders need not be held while waiting for the reply
    std::unique_lock<std::mutex> lock(mMutex);
    pending.cv.wait(lock, [&] { return pending.done; });
    mPending.erase(h.txId);
    lock.unlock();
    if (pending.status != STATUS_OK) return pending.status;
    if (pending.reply == nullptr) pending.reply = std::make_unique<AParcel>();
    *out = pending.reply.release();
    return STATUS_OK;
}

ssize_t Session::receive(void* buffer, size_t size) {
    alignas(cmsghdr) char control[kFdControlSize];
    iovec iov{buffer, size};
    msghdr msg{};
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof(control);
    ssize_t n = recvmsg(mFd, &msg, MSG_CMSG_CLOEXEC);
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
    if (msg.msg_flags & MSG_CTRUNC) return -1;
    return n;
}

bool Session::readFully(void* buffer, size_t size) {
    auto* p = static_cast<uint8_t*>(buffer);
    while (size > 0) {
        if (mReadStart == mReadEnd) {
            if (size >= kReadBufferSize) {  // large payloads go straight to their place
                ssize_t n = receive(p, size);
                if (n < 0 && errno == EINTR) continue;
                if (n <= 0) return false;
                p += n;
                size -= static_cast<size_t>(n);
                continue;
            }
            if (mReadBuffer.empty()) mReadBuffer.resize(kReadBufferSize);
            ssize_t n = receive(mReadBuffer.data(), mReadBuffer.size());
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            mReadStart = 0;
            mReadEnd = static_cast<size_t>(n);
        }
        const size_t take = std::min(size, mReadEnd - mReadStart);
        memcpy(p, mReadBuffer.data() + mReadStart, take);
        mReadStart += take;
        p += take;
        size -= take;
    }
    return true;
}

void Session::readLoop() {
    for (;;) {
        WireHeader h;
        if (!readFully(&h, sizeof(h))) break;
        if (h.magic != kWireMagic || h.dataSize > kMaxParcelSize ||
            h.objectCount > kMaxParcelObjects || h.fdCount > kMaxParcelFds ||
            (h.type != kWireTransact && h.type != kWireReply && h.type != kWireRelease)) {
            break;  // not our protocol, or lying about sizes: the connection cannot be trusted
        }
        std::vector<uint32_t> offsets(h.objectCount);
        std::vector<uint8_t> data(h.dataSize);
        if (h.objectCount > 0 && !readFully(offsets.data(), h.objectCount * 4)) break;
        if (h.dataSize > 0 && !readFully(data.data(), h.dataSize)) break;
        if (mInFds.size() < h.fdCount) break;
        std::vector<int> fds(mInFds.begin(), mInFds.begin() + h.fdCount);
        mInFds.erase(mInFds.begin(), mInFds.begin() + h.fdCount);
        Incoming incoming;
        if (!handle(h, offsets, data, fds, &incoming)) break;
        if (incoming.target != nullptr) {
            // Another thread goes on reading, so replies to nested calls made by this
            // transaction still arrive; this thread runs the transaction at once.
            std::shared_ptr<Session> self = shared_from_this();
            ThreadPool::get().post([self] { self->readLoop(); });
            runTransaction(std::move(incoming));
            return;
        }
    }
    teardown();
}

bool Session::handle(const WireHeader& h, std::vector<uint32_t>& offsets,
                     std::vector<uint8_t>& data, std::vector<int>& fds, Incoming* incoming) {
    struct FdCloser {
        std::vector<int>& fds;
        ~FdCloser() {
            for (int fd : fds) close(fd);
        }
    } closeUnclaimed{fds};
    switch (h.type) {
        case kWireRelease: {
            AIBinder* drop = nullptr;
            {
                std::lock_guard<std::mutex> lock(mMutex);
                auto it = mExports.find(h.target);
                if (it == mExports.end() || h.target == kRootId) return true;
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
            reply->data = std::move(data);
            reply->fds.swap(fds);
            binder_status_t status = h.status;
            if (status == STATUS_OK) {
                binder_status_t flat = unflatten(reply.get(), offsets);
                if (flat != STATUS_OK) status = flat;
            }
            std::lock_guard<std::mutex> lock(mMutex);
            auto it = mPending.find(h.txId);
            if (it == mPending.end()) return false;  // a reply nobody asked for
            it->second->status = status;
            it->second->reply = std::move(reply);
            it->second->done = true;
            it->second->cv.notify_one();
            return true;
        }
        case kWireTransact: {
            const bool oneway = (h.flags & FLAG_ONEWAY) != 0;
            auto in = std::make_unique<AParcel>();
            in->data = std::move(data);
            in->fds.swap(fds);
            binder_status_t status = unflatten(in.get(), offsets);
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

void Session::teardown() {
    std::vector<AIBinder*> exports;
    std::vector<AIBinder*> proxies;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mDead = true;
        for (auto& entry : mPending) {
            entry.second->status = STATUS_DEAD_OBJECT;
            entry.second->done = true;
            entry.second->cv.notify_one();
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
    for (int fd : mInFds) close(fd);
    mInFds.clear();
    SessionRegistry::get().remove(this);
    // Dropping the exports may destroy the caller's objects: no lock is held here.
    for (AIBinder* b : exports) AIBinder_decStrong(b);
    for (AIBinder* b : proxies) {
        auto* proxy = static_cast<RemoteBinder*>(b);
        std::vector<DeathLink> links = proxy->die();
        ThreadPool::get().post([proxy, links = std::move(links)] {
            for (const DeathLink& link : links) {
                if (!link.recipient->deleted.load()) link.recipient->onDied(link.cookie);
            }
            AIBinder_decStrong(proxy);
        });
    }
}

SessionRegistry& SessionRegistry::get() {
    static SessionRegistry* registry = new SessionRegistry;
    return *registry;
}

void SessionRegistry::add(const std::shared_ptr<Session>& s) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSessions.push_back(s);
}

void SessionRegistry::remove(Session* s) {
    std::shared_ptr<Session> last;  // destroyed after the lock is released
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = std::find_if(mSessions.begin(), mSessions.end(),
                           [s](const std::shared_ptr<Session>& p) { return p.get() == s; });
    if (it != mSessions.end()) {
        last = std::move(*it);
        mSessions.erase(it);
    }
}

std::shared_ptr<Session> SessionRegistry::clientFor(const std::string& instance) {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto& s : mSessions) {
        if (!s->serverSide() && s->instance() == instance && s->alive()) return s;
    }
    return nullptr;
}

std::vector<std::shared_ptr<Session>> SessionRegistry::sessionsOf(const std::string& instance) {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::shared_ptr<Session>> out;
    for (auto& s : mSessions) {
        if (s->instance() == instance) out.push_back(s);
    }
    return out;
}

int32_t SessionRegistry::count() {
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<int32_t>(mSessions.size());
}
