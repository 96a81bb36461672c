// AIBinder, classes, transactions, weak references and death recipients.
#pragma once

#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t transaction_code_t;
typedef uint32_t binder_flags_t;

enum {
    FIRST_CALL_TRANSACTION = 0x00000001,
    LAST_CALL_TRANSACTION = 0x00ffffff,
};
enum {
    FLAG_ONEWAY = 0x01,
    FLAG_CLEAR_BUF = 0x20,
};

struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;
struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;
struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

typedef void* (*AIBinder_Class_onCreate)(void* args);
typedef void (*AIBinder_Class_onDestroy)(void* userData);
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);
typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);
// Writes the object's state to `fd`; the descriptor stays the caller's.
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);

// Classes live for the life of the process.
HOSTBINDER_API AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                                     AIBinder_Class_onCreate onCreate,
                                                     AIBinder_Class_onDestroy onDestroy,
                                                     AIBinder_Class_onTransact onTransact);
HOSTBINDER_API const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz);
// What binders of this class do when dumped; without it a dump succeeds and writes nothing.
HOSTBINDER_API void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump);

// A new local binder holding one strong reference; onCreate(args) gives its user data.
HOSTBINDER_API AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args);
HOSTBINDER_API bool AIBinder_isRemote(const AIBinder* binder);
HOSTBINDER_API bool AIBinder_isAlive(const AIBinder* binder);
HOSTBINDER_API binder_status_t AIBinder_ping(AIBinder* binder);
// Asks the object to write its state to `fd` (passed to its process for the call) and waits.
HOSTBINDER_API binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args,
                                             uint32_t numArgs);
HOSTBINDER_API void AIBinder_incStrong(AIBinder* binder);
HOSTBINDER_API void AIBinder_decStrong(AIBinder* binder);
HOSTBINDER_API int32_t AIBinder_debugGetRefCount(AIBinder* binder);
// Local binder: true when it was made with `clazz`. Remote binder: asks the peer for its
// descriptor once, then true when it matches and no other class was associated before.
HOSTBINDER_API bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz);
HOSTBINDER_API const AIBinder_Class* AIBinder_getClass(AIBinder* binder);
// The user data of a local binder; null for a remote one.
HOSTBINDER_API void* AIBinder_getUserData(AIBinder* binder);
HOSTBINDER_API uid_t AIBinder_getCallingUid(void);
HOSTBINDER_API pid_t AIBinder_getCallingPid(void);
HOSTBINDER_API bool AIBinder_isHandlingTransaction(void);

// Makes the parcel to write a transaction's arguments into; *in receives it.
HOSTBINDER_API binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in);
// Always consumes *in (deleted and set to null). On success *out holds the reply.
HOSTBINDER_API binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code,
                                                 AParcel** in, AParcel** out, binder_flags_t flags);

HOSTBINDER_API AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
HOSTBINDER_API void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);
// A strong reference, or null when the binder is gone.
HOSTBINDER_API AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder);

HOSTBINDER_API AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied);
// Unlinks the recipient from every binder it is linked to, then frees it.
HOSTBINDER_API void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);
// STATUS_DEAD_OBJECT when the binder is already dead; STATUS_INVALID_OPERATION for a local one.
HOSTBINDER_API binder_status_t AIBinder_linkToDeath(AIBinder* binder,
                                                    AIBinder_DeathRecipient* recipient,
                                                    void* cookie);
HOSTBINDER_API binder_status_t AIBinder_unlinkToDeath(AIBinder* binder,
                                                      AIBinder_DeathRecipient* recipient,
                                                      void* cookie);

#ifdef __cplusplus
}  // extern "C"
#endif
