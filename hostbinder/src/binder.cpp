// AIBinder: reference counting, classes, transactions, weak references and death links.
#include "binder.h"

#include <android/binder_parcel_utils.h>
#include <fcntl.h>

#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "parcel.h"
#include "session.h"
#include "status.h"

void AIBinder::decStrong() {
    if (strong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        onLastStrongRef();
        decWeak();
    }
}

bool AIBinder::tryIncStrong() {
    int32_t current = strong.load(std::memory_order_relaxed);
    while (current > 0) {
        if (strong.compare_exchange_weak(current, current + 1, std::memory_order_acq_rel)) {
            return true;
        }
    }
    return false;
}

void AIBinder::decWeak() {
    if (weak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

void LocalBinder::onLastStrongRef() {
    const AIBinder_Class* c = clazz.load();
    if (c != nullptr && c->onDestroy != nullptr) c->onDestroy(userData);
}

void RemoteBinder::onLastStrongRef() {
    session->proxyGone(this);
}

std::vector<DeathLink> RemoteBinder::die() {
    std::lock_guard<std::mutex> lock(mutex);
    dead = true;
    return std::move(links);
}

namespace {
bool readDescriptor(const AParcel* in, std::string* out) {
    return ndk::AParcel_readString(in, out) == STATUS_OK;
}

// The interface token as a vendor process's libbinder writes it (Parcel::writeInterfaceToken):
// the caller's strict-mode policy, its work source, a word naming the partition, then the
// descriptor. Host parcels carry the same bytes so that they weigh what the device's weigh.
constexpr int32_t kStrictModePenaltyGather = INT32_MIN;
constexpr int32_t kUnsetWorkSource = -1;
constexpr int32_t kVendorHeader = ('V' << 24) | ('N' << 16) | ('D' << 8) | 'R';

binder_status_t writeInterfaceToken(AParcel* parcel, const std::string& descriptor) {
    binder_status_t status = AParcel_writeInt32(parcel, kStrictModePenaltyGather);
    if (status == STATUS_OK) status = AParcel_writeInt32(parcel, kUnsetWorkSource);
    if (status == STATUS_OK) status = AParcel_writeInt32(parcel, kVendorHeader);
    if (status == STATUS_OK) status = ndk::AParcel_writeString(parcel, descriptor);
    return status;
}

// Parcel::enforceInterface: a token from another partition, or for another interface, is
// refused before the class sees the call.
bool interfaceTokenIs(const AParcel* in, const std::string& descriptor) {
    int32_t policy = 0;
    int32_t workSource = 0;
    int32_t header = 0;
    std::string token;
    return AParcel_readInt32(in, &policy) == STATUS_OK &&
           AParcel_readInt32(in, &workSource) == STATUS_OK &&
           AParcel_readInt32(in, &header) == STATUS_OK && header == kVendorHeader &&
           readDescriptor(in, &token) && token == descriptor;
}

// A flag libbinder_ndk adds itself in a vendor process and so accepts from its callers.
constexpr binder_flags_t kPrivateVendorFlag = 0x10000000;

// Sends a transaction without the checks that AIBinder_transact makes of its callers: the
// runtime's own codes (ping, interface, dump) travel here.
binder_status_t transactUnchecked(AIBinder* binder, transaction_code_t code,
                                  std::unique_ptr<AParcel> input, AParcel** out,
                                  binder_flags_t flags) {
    *out = nullptr;
    if (binder->isRemote()) {
        auto* remote = static_cast<RemoteBinder*>(binder);
        {
            std::lock_guard<std::mutex> lock(remote->mutex);
            if (remote->dead) return STATUS_DEAD_OBJECT;
        }
        // Clearing the buffer after use is the driver's business; nothing here keeps one.
        return pruneStatus(remote->session->transact(remote, code, std::move(input), out,
                                                     flags & FLAG_ONEWAY));
    }
    // A local binder is called directly, as the device's runtime does in-process.
    input->position = 0;
    auto reply = std::make_unique<AParcel>();
    binder_status_t status = pruneStatus(
            dispatchLocal(static_cast<LocalBinder*>(binder), code, input.get(), reply.get()));
    if (status == STATUS_OK) *out = reply.release();
    return status;
}

binder_status_t transactUnchecked(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out) {
    std::unique_ptr<AParcel> input(*in);
    *in = nullptr;
    return transactUnchecked(binder, code, std::move(input), out, 0);
}

binder_status_t dispatchDump(LocalBinder* binder, const AParcel* in) {
    const AIBinder_Class* clazz = binder->clazz.load();
    int32_t count = 0;
    if (in->fds.size() != 1 || AParcel_readInt32(in, &count) != STATUS_OK || count < 0 ||
        count > AParcel_getDataSize(in) / 4) {
        return STATUS_BAD_VALUE;
    }
    std::vector<std::string> args(static_cast<size_t>(count));
    std::vector<const char*> argv;
    argv.reserve(args.size());
    for (std::string& arg : args) {
        if (ndk::AParcel_readString(in, &arg) != STATUS_OK) return STATUS_BAD_VALUE;
        argv.push_back(arg.c_str());
    }
    if (clazz == nullptr || clazz->onDump == nullptr) return STATUS_OK;
    return clazz->onDump(binder, in->fds[0].get(), argv.data(), static_cast<uint32_t>(count));
}
}  // namespace

binder_status_t dispatchLocal(LocalBinder* binder, transaction_code_t code, const AParcel* in,
                              AParcel* out) {
    const AIBinder_Class* clazz = binder->clazz.load();
    if (code == kPingTransaction) return STATUS_OK;
    if (code == kDumpTransaction) return dispatchDump(binder, in);
    if (code == kInterfaceTransaction) {
        return ndk::AParcel_writeString(out, clazz == nullptr ? std::string() : clazz->descriptor);
    }
    if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) {
        return STATUS_UNKNOWN_TRANSACTION;
    }
    if (clazz == nullptr || !interfaceTokenIs(in, clazz->descriptor)) return STATUS_BAD_TYPE;
    binder_status_t status = clazz->onTransact(binder, code, in, out);
    AParcel_setDataPosition(out, 0);
    return status;
}

extern "C" {

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr ||
        onTransact == nullptr) {
        return nullptr;
    }
    return new (std::nothrow) AIBinder_Class{interfaceDescriptor, onCreate, onDestroy, onTransact};
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) {
    if (clazz != nullptr) clazz->onDump = onDump;
}

const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) {
    return clazz == nullptr ? nullptr : clazz->descriptor.c_str();
}

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    if (clazz == nullptr) return nullptr;
    auto* binder = new (std::nothrow) LocalBinder;
    if (binder == nullptr) return nullptr;
    binder->clazz.store(clazz);
    binder->userData = clazz->onCreate(args);
    return binder;
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return binder != nullptr && binder->isRemote();
}

bool AIBinder_isAlive(const AIBinder* binder) {
    if (binder == nullptr) return false;
    if (!binder->isRemote()) return true;
    auto* remote = const_cast<RemoteBinder*>(static_cast<const RemoteBinder*>(binder));
    std::lock_guard<std::mutex> lock(remote->mutex);
    return !remote->dead && remote->session->alive();
}

binder_status_t AIBinder_ping(AIBinder* binder) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (!binder->isRemote()) return STATUS_OK;
    AParcel* in = AParcel_create();
    AParcel* out = nullptr;
    if (in == nullptr) return STATUS_NO_MEMORY;
    binder_status_t status = transactUnchecked(binder, kPingTransaction, &in, &out);
    AParcel_delete(out);
    return status;
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (fd < 0 || (args == nullptr && numArgs > 0) || numArgs > INT32_MAX) return STATUS_BAD_VALUE;
    if (!binder->isRemote()) {
        const AIBinder_Class* clazz = binder->clazz.load();
        if (clazz == nullptr || clazz->onDump == nullptr) return STATUS_OK;
        return clazz->onDump(binder, fd, args, numArgs);
    }
    AParcel* in = AParcel_create();
    if (in == nullptr) return STATUS_NO_MEMORY;
    // The parcel owns what it carries; the caller keeps its own descriptor.
    ndk::ScopedFileDescriptor copy(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (copy.get() < 0) {
        AParcel_delete(in);
        return STATUS_BAD_VALUE;
    }
    in->fds.push_back(std::move(copy));
    binder_status_t status = AParcel_writeInt32(in, static_cast<int32_t>(numArgs));
    for (uint32_t i = 0; status == STATUS_OK && i < numArgs; ++i) {
        const char* arg = args[i] == nullptr ? "" : args[i];
        status = AParcel_writeString(in, arg, static_cast<int32_t>(strlen(arg)));
        // The device converts each argument to UTF-16 first: one that does not convert is empty.
        if (status == STATUS_BAD_VALUE) status = AParcel_writeString(in, "", 0);
    }
    if (status != STATUS_OK) {
        AParcel_delete(in);
        return status;
    }
    AParcel* out = nullptr;
    status = transactUnchecked(binder, kDumpTransaction, &in, &out);
    AParcel_delete(out);
    return status;
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) binder->incStrong();
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr) binder->decStrong();
}

int32_t AIBinder_debugGetRefCount(AIBinder* binder) {
    return binder == nullptr ? -1 : binder->strong.load();
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    if (binder == nullptr || clazz == nullptr) return false;
    const AIBinder_Class* current = binder->clazz.load();
    if (current == clazz) return true;
    // A local binder has exactly one class: another class object, even one of the same
    // descriptor, is refused (AIBinder::associateClass), as it may hold other callbacks.
    if (!binder->isRemote()) return false;
    // A proxy takes the first class of its descriptor; later ones of that descriptor pass.
    if (current != nullptr) return current->descriptor == clazz->descriptor;

    auto* remote = static_cast<RemoteBinder*>(binder);
    std::string descriptor;
    {
        std::lock_guard<std::mutex> lock(remote->mutex);
        if (remote->descriptorKnown) descriptor = remote->descriptor;
    }
    if (descriptor.empty()) {
        AParcel* in = AParcel_create();
        AParcel* out = nullptr;
        if (in == nullptr ||
            transactUnchecked(binder, kInterfaceTransaction, &in, &out) != STATUS_OK) {
            return false;
        }
        bool ok = readDescriptor(out, &descriptor);
        AParcel_delete(out);
        if (!ok) return false;
        std::lock_guard<std::mutex> lock(remote->mutex);
        remote->descriptor = descriptor;
        remote->descriptorKnown = true;
    }
    if (descriptor != clazz->descriptor) return false;
    const AIBinder_Class* expected = nullptr;
    if (binder->clazz.compare_exchange_strong(expected, clazz)) return true;
    return expected == clazz || expected->descriptor == clazz->descriptor;
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->clazz.load();
}

void* AIBinder_getUserData(AIBinder* binder) {
    if (binder == nullptr || binder->isRemote()) return nullptr;
    return static_cast<LocalBinder*>(binder)->userData;
}

uid_t AIBinder_getCallingUid() {
    return callingIdentity().uid;
}
pid_t AIBinder_getCallingPid() {
    return callingIdentity().pid;
}
bool AIBinder_isHandlingTransaction() {
    return callingIdentity().handling;
}

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
    // The token names the interface, so a binder that has none cannot be called (the device
    // says so rather than send an empty token).
    const AIBinder_Class* clazz = binder->clazz.load();
    if (clazz == nullptr) return STATUS_INVALID_OPERATION;
    auto parcel = std::make_unique<AParcel>();
    // One allocation up front holds the arguments of nearly every call.
    parcel->data.reserve(kParcelReserve);
    parcel->preparedFor = binder;
    binder_status_t status = writeInterfaceToken(parcel.get(), clazz->descriptor);
    if (status != STATUS_OK) return status;
    *in = parcel.release();
    return STATUS_OK;
}

// The checks and their order are libbinder_ndk's (ibinder.cpp): only user codes, known flags,
// and a parcel prepared for this very binder.
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
    if (in == nullptr) return STATUS_UNEXPECTED_NULL;
    std::unique_ptr<AParcel> input(*in);
    *in = nullptr;
    if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) {
        return STATUS_UNKNOWN_TRANSACTION;
    }
    constexpr binder_flags_t kKnownFlags = FLAG_ONEWAY | FLAG_CLEAR_BUF | kPrivateVendorFlag;
    if ((flags & ~kKnownFlags) != 0) return STATUS_BAD_VALUE;
    if (binder == nullptr || input == nullptr || out == nullptr) return STATUS_UNEXPECTED_NULL;
    if (input->preparedFor != binder) return STATUS_BAD_VALUE;
    return transactUnchecked(binder, code, std::move(input), out, flags);
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    binder->incWeak();
    return new (std::nothrow) AIBinder_Weak{binder};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return;
    weakBinder->binder->decWeak();
    delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return nullptr;
    return weakBinder->binder->tryIncStrong() ? weakBinder->binder : nullptr;
}

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    if (onBinderDied == nullptr) return nullptr;
    auto state = std::make_shared<DeathRecipientState>();
    state->onDied = onBinderDied;
    return new (std::nothrow) AIBinder_DeathRecipient{std::move(state)};
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    // Links elsewhere keep the state alive but will not call it any more.
    recipient->state->deleted.store(true);
    delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (!binder->isRemote()) return STATUS_INVALID_OPERATION;
    auto* remote = static_cast<RemoteBinder*>(binder);
    std::lock_guard<std::mutex> lock(remote->mutex);
    if (remote->dead || !remote->session->alive()) return STATUS_DEAD_OBJECT;
    remote->links.push_back({recipient->state, cookie});
    return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (!binder->isRemote()) return STATUS_INVALID_OPERATION;
    auto* remote = static_cast<RemoteBinder*>(binder);
    std::lock_guard<std::mutex> lock(remote->mutex);
    if (remote->dead) return STATUS_DEAD_OBJECT;
    for (auto it = remote->links.begin(); it != remote->links.end(); ++it) {
        if (it->recipient == recipient->state && it->cookie == cookie) {
            remote->links.erase(it);
            return STATUS_OK;
        }
    }
    return STATUS_NAME_NOT_FOUND;
}

}  // extern "C"
