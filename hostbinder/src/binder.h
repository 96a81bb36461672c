// Local and remote binders, classes and death links.
#pragma once

#include <android/binder_ibinder.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class Session;

struct AIBinder_Class {
    std::string descriptor;
    AIBinder_Class_onCreate onCreate;
    AIBinder_Class_onDestroy onDestroy;
    AIBinder_Class_onTransact onTransact;
    AIBinder_onDump onDump = nullptr;
};

// The state behind a death-recipient handle. Links hold it, so a recipient deleted while a
// death is being delivered is simply skipped.
struct DeathRecipientState {
    AIBinder_DeathRecipient_onBinderDied onDied;
    std::atomic<bool> deleted{false};
};

struct AIBinder_DeathRecipient {
    std::shared_ptr<DeathRecipientState> state;
};

struct DeathLink {
    std::shared_ptr<DeathRecipientState> recipient;
    void* cookie;
};

// Reference counting: `strong` keeps the object usable; the strong references together hold
// one weak reference, and the memory goes when `weak` reaches zero.
struct AIBinder {
    std::atomic<int32_t> strong{1};
    std::atomic<int32_t> weak{1};
    std::atomic<const AIBinder_Class*> clazz{nullptr};

    virtual ~AIBinder() = default;
    virtual bool isRemote() const = 0;
    // Runs once, when the last strong reference goes.
    virtual void onLastStrongRef() = 0;

    void incStrong() { strong.fetch_add(1, std::memory_order_relaxed); }
    void decStrong();
    // Takes a strong reference unless the object is already being destroyed.
    bool tryIncStrong();
    void incWeak() { weak.fetch_add(1, std::memory_order_relaxed); }
    void decWeak();
};

struct LocalBinder : AIBinder {
    void* userData = nullptr;
    bool isRemote() const override { return false; }
    void onLastStrongRef() override;
};

struct RemoteBinder : AIBinder {
    RemoteBinder(std::shared_ptr<Session> s, uint64_t id) : session(std::move(s)), remoteId(id) {}
    bool isRemote() const override { return true; }
    void onLastStrongRef() override;

    const std::shared_ptr<Session> session;
    const uint64_t remoteId;
    // How many times the peer sent us this object; returned to it when we let go.
    // Guarded by the session's mutex.
    uint32_t acquired = 0;

    std::mutex mutex;  // guards the fields below
    bool dead = false;
    std::vector<DeathLink> links;
    std::string descriptor;  // asked of the peer on first association
    bool descriptorKnown = false;

    // Marks the binder dead and hands back its links, each to be notified once.
    std::vector<DeathLink> die();
};

struct AIBinder_Weak {
    AIBinder* binder;
};

// Transaction codes that the runtime answers itself, as on a device.
constexpr transaction_code_t kPingTransaction = 0x5f504e47;       // '_PNG'
constexpr transaction_code_t kInterfaceTransaction = 0x5f4e5446;  // '_NTF'
// Carries a descriptor to write to, then the argument count and the arguments.
constexpr transaction_code_t kDumpTransaction = 0x5f444d50;  // '_DMP'

// Runs an incoming transaction on a local binder: checks the interface token, answers the
// runtime's own codes, and calls the class's onTransact otherwise.
binder_status_t dispatchLocal(LocalBinder* binder, transaction_code_t code, const AParcel* in,
                              AParcel* out);
