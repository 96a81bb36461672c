// One connection between two processes (or two ends in one process). Either end may send
// transactions: binder objects passed in parcels are exported by the sender and become
// proxies at the receiver, which reports back when it lets go of them.
#pragma once

#include "binder.h"
#include "parcel.h"
#include "wire.h"

#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

class Session : public std::enable_shared_from_this<Session> {
public:
    // Takes ownership of `fd` and starts reading it. A server end exports `root` as object 0.
    static std::shared_ptr<Session> start(int fd, std::string instance, AIBinder* root);
    ~Session();

    // A new strong reference to the peer's object 0.
    AIBinder* rootProxy();
    binder_status_t transact(RemoteBinder* target, transaction_code_t code,
                             std::unique_ptr<AParcel> in, AParcel** out, binder_flags_t flags);
    // Closes the connection; the reader then tears the session down.
    void shutdown();
    bool alive() const;
    const std::string& instance() const { return mInstance; }
    bool serverSide() const { return mRoot != nullptr; }

    // Called by a proxy of this session when its last strong reference goes.
    void proxyGone(RemoteBinder* proxy);

private:
    struct Pending {
        bool done = false;
        binder_status_t status = STATUS_OK;
        std::unique_ptr<AParcel> reply;
        std::condition_variable cv;
    };
    struct Export {
        AIBinder* binder;  // one strong reference held while the peer holds any
        uint64_t count;
    };

    Session(int fd, std::string instance, AIBinder* root);
    // Reads and handles messages until the connection ends or a transaction arrives; a
    // transaction is run on this thread after the reading has been handed to another one.
    void readLoop();
    bool readFully(void* buffer, size_t size);
    // One receive; descriptors that come with the bytes are queued in mInFds.
    ssize_t receive(void* buffer, size_t size);
    // An incoming transaction, resolved and ready to run.
    struct Incoming {
        WireHeader header;
        AIBinder* target = nullptr;  // one strong reference, released once it has run
        std::unique_ptr<AParcel> in;
    };
    void runTransaction(Incoming incoming);
    // False when the connection must end. Fills *incoming when a transaction is to run.
    bool handle(const WireHeader& h, std::vector<uint32_t>& offsets, std::vector<uint8_t>& data,
                std::vector<int>& fds, Incoming* incoming);
    void teardown();
    // What a parcel puts on the wire.
    struct Outgoing {
        const std::vector<uint8_t>* data = nullptr;  // the parcel's bytes, or `patched`
        std::vector<uint8_t> patched;  // a copy with object references, only when it has any
        std::vector<uint32_t> offsets;
        const std::vector<int>* fds = nullptr;  // the parcel's descriptors, sent beside it
    };
    bool send(const WireHeader& h, const Outgoing& out);
    void sendReply(uint64_t txId, binder_status_t status, AParcel* reply);
    // Turns the parcel's objects into wire references (exporting local binders). `out` refers
    // to the parcel, which must outlive it.
    binder_status_t flatten(const AParcel& parcel, Outgoing* out);
    // Turns wire references back into binders held by the parcel.
    binder_status_t unflatten(AParcel* parcel, const std::vector<uint32_t>& offsets);
    AIBinder* proxyForLocked(uint64_t id);
    AIBinder* exportedLocked(uint64_t id);

    const int mFd;
    const std::string mInstance;
    AIBinder* const mRoot;  // identifies a server end; its reference lives in mExports
    pid_t mPeerPid = 0;
    uid_t mPeerUid = 0;

    // Bytes received but not consumed yet; touched only by the thread that reads at the time.
    std::vector<uint8_t> mReadBuffer;
    size_t mReadStart = 0;
    size_t mReadEnd = 0;
    std::deque<int> mInFds;  // received descriptors not yet claimed by a message

    std::mutex mWriteMutex;
    mutable std::mutex mMutex;  // guards everything below
    bool mDead = false;
    bool mClosing = false;  // shut down by us; the reader has not seen the end yet
    uint64_t mNextTxId = 1;
    std::map<uint64_t, Pending*> mPending;
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
