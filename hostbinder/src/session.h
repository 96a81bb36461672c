// The protocol of one connection between two processes (or two ends in one process): calls,
// replies and the binder objects they carry; the bytes themselves are the channel's. Either
// end may send transactions: binder objects passed in parcels are exported by the sender and
// become proxies at the receiver, which reports back when it lets go of them.
//
// One thread reads at a time (it holds the read turn): a caller waiting for its reply when
// nobody else reads, or else a binder thread woken by the dispatcher.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "binder.h"
#include "channel.h"
#include "dispatcher.h"
#include "parcel.h"
#include "wire.h"

class Session : public Watched, public std::enable_shared_from_this<Session> {
public:
    // `fd` is a connected blocking socket whose peer is `peer` (SO_PEERCRED, which the caller
    // has read to vet it). A server end exports `root` as object 0.
    static std::shared_ptr<Session> start(ndk::ScopedFileDescriptor fd, std::string instance,
                                          AIBinder* root, const ucred& peer);
    ~Session() override;

    // A new strong reference to the peer's object 0.
    AIBinder* rootProxy();
    binder_status_t transact(RemoteBinder* target, transaction_code_t code,
                             std::unique_ptr<AParcel> in, AParcel** out, binder_flags_t flags);
    // Closes the connection; whoever reads next tears the session down.
    void shutdown();
    bool alive() const;
    const std::string& instance() const { return mInstance; }
    bool serverSide() const { return mRoot != nullptr; }

    // Called by a proxy of this session when its last strong reference goes.
    void proxyGone(RemoteBinder* proxy);

    void onEvent(uint32_t events) override;
    // Shuts the connection when the peer left a frame half sent, or our replies unread, for
    // too long.
    void sweep(int64_t nowMs);

private:
    // An incoming transaction, resolved and ready to run.
    struct Incoming {
        WireHeader header;
        AIBinder* target = nullptr;  // one strong reference, released once it has run
        std::unique_ptr<AParcel> in;
    };
    // A two-way call of ours waiting for its reply. Guarded by mMutex.
    struct Pending {
        uint64_t txId = 0;
        bool done = false;
        binder_status_t status = STATUS_OK;
        std::unique_ptr<AParcel> reply;
        // Calls the peer makes into us while handling this one: they run on the waiting thread.
        // A vector, as an empty one allocates nothing: every call has one, few use it.
        std::vector<Incoming> nested;
        std::condition_variable cv;
        Pending* next = nullptr;
    };
    // A one-way call read while another one to the same binder runs.
    struct OnewayWaiting {
        std::shared_ptr<Session> session;
        Incoming incoming;
    };
    struct Export {
        AIBinder* binder;  // one strong reference held while the peer holds any
        uint64_t count;
    };
    Session(ndk::ScopedFileDescriptor fd, std::string instance, AIBinder* root, pid_t peerPid,
            uid_t peerUid);

    // Reads on a binder thread until it would block or a transaction is to run, which it then
    // runs itself.
    void serve();
    // Reads on the caller's thread until `mine` is answered or has a nested call to run.
    void readUntilAnswered(Pending* mine);
    // False when the connection must end. Fills *incoming when a transaction is to run.
    bool handle(Frame& frame, Incoming* incoming);
    // Runs an incoming transaction and, for a one-way one, those that queued behind it for the
    // same binder.
    void runTransaction(Incoming incoming);
    void execute(Incoming& incoming);
    void logDroppedOneway(size_t bytes);
    // Hands a call nested in one of ours to the thread waiting for that one. Needs mMutex.
    bool deliverNestedLocked(Incoming& incoming);
    // One-way calls to one binder run one at a time, in the order they were read: the driver
    // keeps a node's one-way transactions in its async_todo list and hands out the next only
    // once the previous one's buffer is freed (drivers/android/binder.c,
    // has_async_transaction). A binder with an entry here has a one-way call running; the
    // entry holds those waiting behind it. Guarded by gOnewayMutex.
    static std::unordered_map<AIBinder*, std::deque<OnewayWaiting>>& onewayLines();
    // True when a one-way call may run now; otherwise it waits behind the one running.
    bool admitOneway(Incoming& incoming);
    // The next one-way call for `target`; false when none waits (its line then ends).
    static bool nextOneway(AIBinder* target, OnewayWaiting* next);
    void postTransaction(Incoming incoming);
    void teardown();

    // False when the connection is gone. What the socket does not take leaves through a
    // binder thread; with `waitToLeave`, or in a process that has none, the sender waits here
    // until it has left.
    bool send(const WireHeader& h, const Outgoing& out, bool waitToLeave = false);
    void sendReply(uint64_t txId, binder_status_t status, AParcel* reply);
    void flush();
    // What the epoll registration should report now. Needs mMutex.
    uint32_t wantedEventsLocked() const;
    // Arms the epoll registration for what is wanted now. Needs mMutex.
    void rearmLocked();
    // Hands the read turn to a caller still waiting, if any. Needs mMutex.
    void wakeWaiterLocked();
    // Ends this thread's read turn; `more`: messages are already buffered. Needs mMutex.
    void endReadingLocked(bool more);

    // Turns the parcel's objects into wire references (exporting local binders). `out` refers
    // to the parcel, which must outlive it.
    binder_status_t flatten(const AParcel& parcel, Outgoing* out);
    // Turns wire references back into binders held by the parcel.
    binder_status_t unflatten(AParcel* parcel, const std::vector<uint32_t>& offsets);
    AIBinder* proxyForLocked(uint64_t id);
    AIBinder* exportedLocked(uint64_t id);

    const std::string mInstance;
    AIBinder* const mRoot;  // identifies a server end; its reference lives in mExports
    const pid_t mPeerPid;
    const uid_t mPeerUid;
    const uint64_t mWatchId;
    Channel mChannel;

    mutable std::mutex mMutex;  // guards everything below
    bool mDead = false;
    bool mReading = false;  // someone holds the read turn
    uint32_t mArmed = 0;    // what the epoll registration may still report
    uint64_t mNextTxId = 1;
    Pending* mPending = nullptr;
    uint64_t mNextExportId = 1;
    std::unordered_map<uint64_t, Export> mExports;
    std::unordered_map<AIBinder*, uint64_t> mExportIds;
    std::unordered_map<uint64_t, RemoteBinder*> mProxies;
};

// Every live session of the process.
class SessionRegistry {
public:
    static SessionRegistry& get();
    void add(const std::shared_ptr<Session>& s);
    void remove(Session* s);
    // A live client session to `instance`, if one is open.
    std::shared_ptr<Session> clientFor(const std::string& instance);
    // Every session, either end, for `instance`.
    std::vector<std::shared_ptr<Session>> sessionsOf(const std::string& instance);
    // Connections this process accepted for `instance` and still serves.
    size_t servedCount(const std::string& instance);
    std::vector<std::shared_ptr<Session>> all();
    int32_t count();

private:
    std::mutex mMutex;
    std::vector<std::shared_ptr<Session>> mSessions;
};

// Identity of the caller of the transaction running on this thread.
struct CallingIdentity {
    uid_t uid;
    pid_t pid;
    bool handling;
};
CallingIdentity& callingIdentity();
