// The host runtime's headers must declare every binder NDK function that the library, the
// service and the generated code call with exactly the NDK's signature, or code that builds
// here could fail to build (or misbehave) against the real libbinder_ndk. Compile-time only:
// each line states the NDK's declared type and fails the build on any drift.
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel.h>
#include <android/binder_process.h>
#include <android/binder_status.h>

#include <type_traits>

#define NDK_SIGNATURE(function, type) \
    static_assert(std::is_same_v<decltype(&function), type>, #function " differs from the NDK")

// Callback types.
static_assert(std::is_same_v<AIBinder_Class_onCreate, void* (*)(void*)>);
static_assert(std::is_same_v<AIBinder_Class_onDestroy, void (*)(void*)>);
static_assert(
        std::is_same_v<AIBinder_Class_onTransact, binder_status_t (*)(AIBinder*, transaction_code_t,
                                                                      const AParcel*, AParcel*)>);
static_assert(std::is_same_v<AIBinder_onDump,
                             binder_status_t (*)(AIBinder*, int, const char**, uint32_t)>);
static_assert(std::is_same_v<AIBinder_DeathRecipient_onBinderDied, void (*)(void*)>);
static_assert(std::is_same_v<AParcel_stringAllocator, bool (*)(void*, int32_t, char**)>);

// Binders.
NDK_SIGNATURE(AIBinder_Class_define,
              AIBinder_Class* (*)(const char*, AIBinder_Class_onCreate, AIBinder_Class_onDestroy,
                                  AIBinder_Class_onTransact));
NDK_SIGNATURE(AIBinder_Class_setOnDump, void (*)(AIBinder_Class*, AIBinder_onDump));
NDK_SIGNATURE(AIBinder_new, AIBinder* (*)(const AIBinder_Class*, void*));
NDK_SIGNATURE(AIBinder_isRemote, bool (*)(const AIBinder*));
NDK_SIGNATURE(AIBinder_associateClass, bool (*)(AIBinder*, const AIBinder_Class*));
NDK_SIGNATURE(AIBinder_getUserData, void* (*)(AIBinder*));
NDK_SIGNATURE(AIBinder_incStrong, void (*)(AIBinder*));
NDK_SIGNATURE(AIBinder_decStrong, void (*)(AIBinder*));
NDK_SIGNATURE(AIBinder_getCallingPid, pid_t (*)());
NDK_SIGNATURE(AIBinder_dump, binder_status_t (*)(AIBinder*, int, const char**, uint32_t));
NDK_SIGNATURE(AIBinder_linkToDeath,
              binder_status_t (*)(AIBinder*, AIBinder_DeathRecipient*, void*));
NDK_SIGNATURE(AIBinder_unlinkToDeath,
              binder_status_t (*)(AIBinder*, AIBinder_DeathRecipient*, void*));
NDK_SIGNATURE(AIBinder_prepareTransaction, binder_status_t (*)(AIBinder*, AParcel**));
NDK_SIGNATURE(AIBinder_transact, binder_status_t (*)(AIBinder*, transaction_code_t, AParcel**,
                                                     AParcel**, binder_flags_t));
NDK_SIGNATURE(AIBinder_Weak_new, AIBinder_Weak* (*)(AIBinder*));
NDK_SIGNATURE(AIBinder_Weak_delete, void (*)(AIBinder_Weak*));
NDK_SIGNATURE(AIBinder_Weak_promote, AIBinder* (*)(AIBinder_Weak*));
NDK_SIGNATURE(AIBinder_DeathRecipient_new,
              AIBinder_DeathRecipient* (*)(AIBinder_DeathRecipient_onBinderDied));
NDK_SIGNATURE(AIBinder_DeathRecipient_delete, void (*)(AIBinder_DeathRecipient*));

// Parcels.
NDK_SIGNATURE(AParcel_delete, void (*)(AParcel*));
NDK_SIGNATURE(AParcel_setDataPosition, binder_status_t (*)(const AParcel*, int32_t));
NDK_SIGNATURE(AParcel_getDataPosition, int32_t (*)(const AParcel*));
NDK_SIGNATURE(AParcel_getDataSize, int32_t (*)(const AParcel*));
NDK_SIGNATURE(AParcel_writeStrongBinder, binder_status_t (*)(AParcel*, AIBinder*));
NDK_SIGNATURE(AParcel_readStrongBinder, binder_status_t (*)(const AParcel*, AIBinder**));
NDK_SIGNATURE(AParcel_writeStatusHeader, binder_status_t (*)(AParcel*, const AStatus*));
NDK_SIGNATURE(AParcel_readStatusHeader, binder_status_t (*)(const AParcel*, AStatus**));
NDK_SIGNATURE(AParcel_writeString, binder_status_t (*)(AParcel*, const char*, int32_t));
NDK_SIGNATURE(AParcel_readString,
              binder_status_t (*)(const AParcel*, void*, AParcel_stringAllocator));
NDK_SIGNATURE(AParcel_writeInt32, binder_status_t (*)(AParcel*, int32_t));
NDK_SIGNATURE(AParcel_readInt32, binder_status_t (*)(const AParcel*, int32_t*));
NDK_SIGNATURE(AParcel_writeInt64, binder_status_t (*)(AParcel*, int64_t));
NDK_SIGNATURE(AParcel_readInt64, binder_status_t (*)(const AParcel*, int64_t*));
NDK_SIGNATURE(AParcel_writeBool, binder_status_t (*)(AParcel*, bool));
NDK_SIGNATURE(AParcel_readBool, binder_status_t (*)(const AParcel*, bool*));
NDK_SIGNATURE(AParcel_writeByte, binder_status_t (*)(AParcel*, int8_t));
NDK_SIGNATURE(AParcel_readByte, binder_status_t (*)(const AParcel*, int8_t*));
NDK_SIGNATURE(AParcel_writeChar, binder_status_t (*)(AParcel*, char16_t));
NDK_SIGNATURE(AParcel_readChar, binder_status_t (*)(const AParcel*, char16_t*));
NDK_SIGNATURE(AParcel_writeFloat, binder_status_t (*)(AParcel*, float));
NDK_SIGNATURE(AParcel_readFloat, binder_status_t (*)(const AParcel*, float*));
NDK_SIGNATURE(AParcel_writeDouble, binder_status_t (*)(AParcel*, double));
NDK_SIGNATURE(AParcel_readDouble, binder_status_t (*)(const AParcel*, double*));

// Statuses.
NDK_SIGNATURE(AStatus_newOk, AStatus* (*)());
NDK_SIGNATURE(AStatus_fromExceptionCode, AStatus* (*)(binder_exception_t));
NDK_SIGNATURE(AStatus_fromExceptionCodeWithMessage, AStatus* (*)(binder_exception_t, const char*));
NDK_SIGNATURE(AStatus_fromServiceSpecificError, AStatus* (*)(int32_t));
NDK_SIGNATURE(AStatus_fromServiceSpecificErrorWithMessage, AStatus* (*)(int32_t, const char*));
NDK_SIGNATURE(AStatus_fromStatus, AStatus* (*)(binder_status_t));
NDK_SIGNATURE(AStatus_isOk, bool (*)(const AStatus*));
NDK_SIGNATURE(AStatus_getExceptionCode, binder_exception_t (*)(const AStatus*));
NDK_SIGNATURE(AStatus_getServiceSpecificError, int32_t (*)(const AStatus*));
NDK_SIGNATURE(AStatus_getStatus, binder_status_t (*)(const AStatus*));
NDK_SIGNATURE(AStatus_getMessage, const char* (*)(const AStatus*));
NDK_SIGNATURE(AStatus_getDescription, const char* (*)(const AStatus*));
NDK_SIGNATURE(AStatus_deleteDescription, void (*)(const char*));
NDK_SIGNATURE(AStatus_delete, void (*)(AStatus*));

// Service manager and process.
NDK_SIGNATURE(AServiceManager_addService, binder_exception_t (*)(AIBinder*, const char*));
NDK_SIGNATURE(AServiceManager_checkService, AIBinder* (*)(const char*));
NDK_SIGNATURE(AServiceManager_waitForService, AIBinder* (*)(const char*));
NDK_SIGNATURE(AServiceManager_isDeclared, bool (*)(const char*));
NDK_SIGNATURE(ABinderProcess_startThreadPool, void (*)());
NDK_SIGNATURE(ABinderProcess_joinThreadPool, void (*)());
NDK_SIGNATURE(ABinderProcess_setThreadPoolMaxThreadCount, bool (*)(uint32_t));
