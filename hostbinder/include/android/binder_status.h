// Binder status codes and AStatus, the host runtime's equivalent of the NDK header of this name.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define HOSTBINDER_API __attribute__((visibility("default")))

enum {
    STATUS_OK = 0,
    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),
    STATUS_NO_MEMORY = -12,
    STATUS_INVALID_OPERATION = -38,
    STATUS_BAD_VALUE = -22,
    STATUS_BAD_TYPE = (STATUS_UNKNOWN_ERROR + 1),
    STATUS_NAME_NOT_FOUND = -2,
    STATUS_PERMISSION_DENIED = -1,
    STATUS_NO_INIT = -19,
    STATUS_ALREADY_EXISTS = -17,
    STATUS_DEAD_OBJECT = -32,
    STATUS_FAILED_TRANSACTION = (STATUS_UNKNOWN_ERROR + 2),
    STATUS_BAD_INDEX = -75,
    STATUS_NOT_ENOUGH_DATA = -61,
    STATUS_WOULD_BLOCK = -11,
    STATUS_TIMED_OUT = -110,
    STATUS_UNKNOWN_TRANSACTION = -74,
    STATUS_FDS_NOT_ALLOWED = (STATUS_UNKNOWN_ERROR + 7),
    STATUS_UNEXPECTED_NULL = (STATUS_UNKNOWN_ERROR + 8),
};
typedef int32_t binder_status_t;

enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    EX_HAS_REPLY_HEADER = -128,
    EX_TRANSACTION_FAILED = -129,
};
typedef int32_t binder_exception_t;

struct AStatus;
typedef struct AStatus AStatus;

HOSTBINDER_API AStatus* AStatus_newOk(void);
HOSTBINDER_API AStatus* AStatus_fromExceptionCode(binder_exception_t exception);
HOSTBINDER_API AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception,
                                                             const char* message);
HOSTBINDER_API AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific);
HOSTBINDER_API AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                                    const char* message);
// A transaction error: STATUS_OK gives an ok status, anything else EX_TRANSACTION_FAILED.
HOSTBINDER_API AStatus* AStatus_fromStatus(binder_status_t status);
// A null status is not ok.
HOSTBINDER_API bool AStatus_isOk(const AStatus* status);
HOSTBINDER_API binder_exception_t AStatus_getExceptionCode(const AStatus* status);
HOSTBINDER_API int32_t AStatus_getServiceSpecificError(const AStatus* status);
HOSTBINDER_API binder_status_t AStatus_getStatus(const AStatus* status);
// Never null: an empty string when there is no message.
HOSTBINDER_API const char* AStatus_getMessage(const AStatus* status);
// A readable description; free it with AStatus_deleteDescription.
HOSTBINDER_API const char* AStatus_getDescription(const AStatus* status);
HOSTBINDER_API void AStatus_deleteDescription(const char* description);
HOSTBINDER_API void AStatus_delete(AStatus* status);

#ifdef __cplusplus
}  // extern "C"
#endif
