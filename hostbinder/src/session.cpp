// A session's reading, writing and teardown.
#include "session.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "budget.h"

namespace {
// The incoming two-way calls this thread is running, innermost last: a call it makes to the
// same peer meanwhile is nested in the innermost one from that peer.
struct Handling {
    const void* session;
    uint64_t txId;
};
thread_local std::vector<Handling> tHandling;
}  // namespace

CallingIdentity& callingIdentity() {
    thread_local CallingIdentity identity{getuid(), getpid(), false};
    return identity;
}

std::shared_ptr<Session> Session::start(ndk::ScopedFileDescriptor fd, std::string instance,
                                        AIBinder* root, const ucred& peer) {
    std::shared_ptr<Session> s(
            new Session(std::move(fd), std::move(instance), root, peer.pid, peer.uid));
    SessionRegistry::get().add(s);
    uint32_t armed;
    {
        std::lock_guard<std::mutex> lock(s->mMutex);
        armed = s->mArmed = s->wantedEventsLocked();
    }
    Dispatcher::get().add(s->mChannel.fd(), s->mWatchId, armed, s);
    return s;
}

Session::Session(ndk::ScopedFileDescriptor fd, std::string instance, AIBinder* root, pid_t peerPid,
                 uid_t peerUid)
    : mInstance(std::move(instance)),
      mRoot(root),
      mPeerPid(peerPid),
      mPeerUid(peerUid),
      mWatchId(Dispatcher::get().newId()),
      mChannel(std::move(fd), "a connection of " + mInstance + " to pid " +
                                      std::to_string(static_cast<int>(peerPid))) {
    if (mRoot != nullptr) {
        AIBinder_incStrong(mRoot);
        mExports[kWireRootObject] = Export{mRoot, UINT64_MAX};
        mExportIds[mRoot] = kWireRootObject;
    }
}

Session::~Session() = default;

bool Session::alive() const {
    if (mChannel.isShut()) return false;
    std::lock_guard<std::mutex> lock(mMutex);
    return !mDead;
}

void Session::shutdown() {
    // From now on nobody is handed this connection, though its reader may not have noticed
    // the end yet.
    mChannel.shutdown();
}

// Incoming data concerns the binder threads only when this process has binders the peer can
// call (the root object of a served connection, callbacks handed over): otherwise all that
// comes is replies, which their callers read, so data wakes nobody and only the end of the
// connection is watched, which the kernel reports whatever the mask. A process that only
// calls then reads its replies with no epoll call on the way, as a device's caller gets its
// reply from the driver without waking the process's idle threads; one with callbacks gives
// the connection back to its threads, and takes it from them, around every call.
uint32_t Session::wantedEventsLocked() const {
    uint32_t want = EPOLLRDHUP;
    if (!mReading && !mExports.empty()) want |= EPOLLIN;
    if (mChannel.wantsWrite()) want |= EPOLLOUT;
    return want;
}

void Session::rearmLocked() {
    if (mDead) return;
    const uint32_t want = wantedEventsLocked();
    if (want == mArmed) return;
    Dispatcher::get().rearm(mChannel.fd(), mWatchId, want);
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
    if (mChannel.wantsWrite()) flush();
    if (events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) {
        serve();
        return;
    }
    std::lock_guard<std::mutex> lock(mMutex);
    rearmLocked();
}

// --- Reading -------------------------------------------------------------------------------

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
        if (mChannel.takeFrame(&frame, &bad)) {
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
        const Channel::Read r = mChannel.readMore(false);
        if (r == Channel::Read::kWouldBlock) break;
        if (r == Channel::Read::kClosed) {
            closed = true;
            break;
        }
    }
    if (closed) teardown();
    const bool more = !closed && mChannel.frameBuffered();
    {
        std::lock_guard<std::mutex> lock(mMutex);
        endReadingLocked(more);
    }
    if (incoming.target != nullptr) {
        Dispatcher::get().enterBusy();
        runTransaction(std::move(incoming));
        Dispatcher::get().leaveBusy();
    }
}

void Session::readUntilAnswered(Pending* mine) {
    bool closed = false;
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (mine->done || !mine->nested.empty()) break;
        }
        Frame frame;
        bool bad = false;
        if (mChannel.takeFrame(&frame, &bad)) {
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
            const bool oneway = (incoming.header.flags & FLAG_ONEWAY) != 0;
            if (!oneway && (code == kPingTransaction || code == kInterfaceTransaction)) {
                runTransaction(std::move(incoming));
            } else {
                postTransaction(std::move(incoming));
            }
            continue;
        }
        if (bad || mChannel.readMore(true) == Channel::Read::kClosed) {
            closed = true;
            break;
        }
    }
    if (closed) teardown();
}

bool Session::handle(Frame& frame, Incoming* incoming) {
    const WireHeader& h = frame.header;
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
            auto reply = std::make_unique<AParcel>(std::move(frame.data));
            for (auto& fd : frame.fds) reply->fds.push_back(std::move(fd));
            binder_status_t status = h.status;
            if (status == STATUS_OK) {
                binder_status_t flat = unflatten(reply.get(), frame.offsets);
                if (flat != STATUS_OK) status = flat;
            }
            // A reply takes the caller's buffer until the caller frees it; one that does not
            // fit fails the call (the driver's BR_FAILED_REPLY).
            const size_t bytes = ReceiveBudget::sizeOf(h.dataSize, h.objectCount);
            if (status == STATUS_OK && !reply->data.empty()) {
                if (ReceiveBudget::get().take(bytes, false)) {
                    reply->claim.hold(bytes, false);
                } else {
                    status = STATUS_FAILED_TRANSACTION;
                    reply.reset();
                }
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
            auto in = std::make_unique<AParcel>(std::move(frame.data));
            for (auto& fd : frame.fds) in->fds.push_back(std::move(fd));
            binder_status_t status = unflatten(in.get(), frame.offsets);
            AIBinder* target = nullptr;
            if (status == STATUS_OK) {
                std::lock_guard<std::mutex> lock(mMutex);
                target = exportedLocked(h.target);
                if (target == nullptr) status = STATUS_BAD_VALUE;
            }
            if (status == STATUS_OK) {
                const size_t bytes = ReceiveBudget::sizeOf(h.dataSize, h.objectCount);
                if (ReceiveBudget::get().take(bytes, oneway)) {
                    in->claim.hold(bytes, oneway);
                } else {
                    // Two-way: answered with the failure without running, so the sender sees
                    // what a device's sender sees. One-way: the sender has gone on already.
                    status = STATUS_FAILED_TRANSACTION;
                    if (oneway) logDroppedOneway(bytes);
                    AIBinder_decStrong(target);
                }
            }
            if (status != STATUS_OK) {
                if (!oneway) sendReply(h.txId, status, nullptr);
                return true;
            }
            Incoming call{h, target, std::move(in)};
            if (!oneway && h.nestedIn != 0) {
                std::lock_guard<std::mutex> lock(mMutex);
                if (deliverNestedLocked(call)) return true;
            }
            // Admitted while this thread holds the read turn, so in the order they came.
            if (oneway && !admitOneway(call)) return true;
            *incoming = std::move(call);
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

void Session::logDroppedOneway(size_t bytes) {
    static std::atomic<int64_t> lastLog{0};
    const int64_t now = monotonicMillis();
    int64_t last = lastLog.load();
    // One line a second at most: a flood of them must not become a flood of logging.
    if (now - last >= 1000 && lastLog.compare_exchange_strong(last, now)) {
        hostbinderLog(
                "dropping a one-way call of %zu bytes from pid %d to %s: this process "
                "has no room for it (a device fails it at the sender)",
                bytes, static_cast<int>(mPeerPid), mInstance.c_str());
    }
}

void Session::execute(Incoming& incoming) {
    const WireHeader& h = incoming.header;
    const bool oneway = (h.flags & FLAG_ONEWAY) != 0;
    CallingIdentity saved = callingIdentity();
    callingIdentity() = {mPeerUid, mPeerPid, true};
    if (!oneway) tHandling.push_back({this, h.txId});
    AParcel reply;
    binder_status_t status = dispatchLocal(static_cast<LocalBinder*>(incoming.target), h.code,
                                           incoming.in.get(), &reply);
    if (!oneway) tHandling.pop_back();
    callingIdentity() = saved;
    // Freed before the reply goes: its space is the receiver's again once the call is done.
    incoming.in.reset();
    if (!oneway) sendReply(h.txId, status, &reply);
}

void Session::runTransaction(Incoming incoming) {
    AIBinder* const target = incoming.target;
    const bool oneway = (incoming.header.flags & FLAG_ONEWAY) != 0;
    execute(incoming);  // frees the data before the next one-way call is handed out
    if (oneway) {
        OnewayWaiting next;
        while (nextOneway(target, &next)) {
            next.session->execute(next.incoming);
            AIBinder_decStrong(next.incoming.target);
            next = OnewayWaiting{};
        }
    }
    AIBinder_decStrong(target);
}

bool Session::deliverNestedLocked(Incoming& incoming) {
    for (Pending* p = mPending; p != nullptr; p = p->next) {
        if (p->txId == incoming.header.nestedIn && !p->done) {
            p->nested.push_back(std::move(incoming));
            p->cv.notify_one();
            return true;
        }
    }
    return false;  // not waiting (any more): it runs as any other call
}

namespace {
std::mutex gOnewayMutex;
}  // namespace

std::unordered_map<AIBinder*, std::deque<Session::OnewayWaiting>>& Session::onewayLines() {
    // Never destroyed: a binder thread may still finish a call while the process exits.
    static auto* lines = new std::unordered_map<AIBinder*, std::deque<OnewayWaiting>>;
    return *lines;
}

bool Session::admitOneway(Incoming& incoming) {
    std::lock_guard<std::mutex> lock(gOnewayMutex);
    auto& lines = onewayLines();
    auto it = lines.find(incoming.target);
    if (it == lines.end()) {
        lines.emplace(incoming.target, std::deque<OnewayWaiting>{});
        return true;
    }
    it->second.push_back(OnewayWaiting{shared_from_this(), std::move(incoming)});
    return false;
}

bool Session::nextOneway(AIBinder* target, OnewayWaiting* next) {
    std::lock_guard<std::mutex> lock(gOnewayMutex);
    auto& lines = onewayLines();
    auto it = lines.find(target);
    if (it == lines.end()) return false;
    if (it->second.empty()) {
        lines.erase(it);
        return false;
    }
    *next = std::move(it->second.front());
    it->second.pop_front();
    return true;
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
    // What can never fit in the receiver's buffer fails here, as the driver fails it; what
    // does not fit now is refused by the receiver.
    if (!ReceiveBudget::couldFit(ReceiveBudget::sizeOf(in->data.size(), in->objects.size()),
                                 (flags & FLAG_ONEWAY) != 0)) {
        return STATUS_FAILED_TRANSACTION;
    }
    Outgoing request;
    binder_status_t status = flatten(*in, &request);
    if (status != STATUS_OK) return status;

    if (flags & FLAG_ONEWAY) {
        if (!alive()) return STATUS_DEAD_OBJECT;
        return send(h, request) ? STATUS_OK : STATUS_DEAD_OBJECT;
    }

    // Made while handling a call from this same peer: the peer runs it on the thread that
    // waits for that call (kernel binder_transaction() walks the thread's transaction stack
    // for a thread of the target process).
    for (auto it = tHandling.rbegin(); it != tHandling.rend(); ++it) {
        if (it->session == this) {
            h.nestedIn = it->txId;
            break;
        }
    }
    Pending pending;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mDead) return STATUS_DEAD_OBJECT;
        h.txId = pending.txId = mNextTxId++;
        pending.next = mPending;
        mPending = &pending;
    }
    // Nothing can answer before the request has left, so waiting for it costs the caller
    // nothing. A failed send ends the session, which answers `pending`.
    send(h, request, true);
    in.reset();  // its binders need not be held while waiting for the reply

    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        if (!pending.nested.empty()) {
            Incoming call = std::move(pending.nested.front());
            pending.nested.erase(pending.nested.begin());
            lock.unlock();
            runTransaction(std::move(call));
            lock.lock();
            continue;
        }
        if (pending.done) break;
        if (!mReading && !mDead) {
            // Nobody reads this connection now: the caller reads its own reply.
            mReading = true;
            rearmLocked();
            lock.unlock();
            readUntilAnswered(&pending);
            const bool more = mChannel.frameBuffered();
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

bool Session::send(const WireHeader& h, const Outgoing& out, bool waitToLeave) {
    const Channel::Sent sent = mChannel.send(h, out);
    if (sent != Channel::Sent::kQueued) return sent == Channel::Sent::kAll;
    // Binder threads write the rest when the socket takes more. A process without them has
    // nobody else to do it: the sender waits until its bytes have left, as a device's sender
    // returns only once the driver has its transaction.
    if (waitToLeave || !Dispatcher::get().hasThreads()) mChannel.flushWaiting();
    std::lock_guard<std::mutex> state(mMutex);
    rearmLocked();
    return !mChannel.isShut();
}

void Session::flush() {
    mChannel.flush();
    std::lock_guard<std::mutex> state(mMutex);
    rearmLocked();
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
    mChannel.sweep(nowMs);
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
    Dispatcher::get().remove(mChannel.fd(), mWatchId);
    mChannel.dropReceived();
    SessionRegistry::get().remove(this);
    // Dropping the exports may destroy the caller's objects: no lock is held here.
    for (AIBinder* b : exports) AIBinder_decStrong(b);
    for (AIBinder* b : proxies) {
        std::vector<DeathLink> links = static_cast<RemoteBinder*>(b)->die();
        AIBinder_decStrong(b);
        // The notice holds only what it delivers: one waiting for binder threads that a
        // process never starts must not keep the proxy, and through it this session and its
        // socket.
        if (links.empty()) continue;
        Dispatcher::get().post([links = std::move(links)] {
            for (const DeathLink& link : links) {
                if (!link.recipient->deleted.load()) link.recipient->onDied(link.cookie);
            }
        });
    }
}
