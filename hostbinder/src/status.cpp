// AStatus: an exception code, a service-specific error or a transaction error, and a message.
#include "status.h"

#include <android/binder_status.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

struct AStatus {
    // As given or received: pruned when read, as on the device.
    int32_t exception = EX_NONE;
    int32_t serviceSpecific = 0;
    binder_status_t status = STATUS_OK;
    std::string message;
};

namespace {
AStatus* make(int32_t exception, int32_t serviceSpecific, binder_status_t status,
              const char* message) {
    auto* s = new (std::nothrow) AStatus;
    if (s == nullptr) return nullptr;
    s->exception = exception;
    s->serviceSpecific = exception == EX_SERVICE_SPECIFIC ? serviceSpecific : 0;
    s->status = exception == EX_TRANSACTION_FAILED ? status : STATUS_OK;
    if (message != nullptr) s->message = message;
    return s;
}

const char* exceptionName(int32_t e) {
    switch (e) {
        case EX_NONE:
            return "EX_NONE";
        case EX_SECURITY:
            return "EX_SECURITY";
        case EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC:
            return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE:
            return "EX_PARCELABLE";
        case EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:
            return "EX_UNKNOWN";
    }
}
}  // namespace

// Written from libbinder_ndk's status.cpp: the lists are the codes the NDK's header names.
binder_status_t pruneStatus(binder_status_t status) {
    switch (status) {
        case STATUS_OK:
        case STATUS_UNKNOWN_ERROR:
        case STATUS_NO_MEMORY:
        case STATUS_INVALID_OPERATION:
        case STATUS_BAD_VALUE:
        case STATUS_BAD_TYPE:
        case STATUS_NAME_NOT_FOUND:
        case STATUS_PERMISSION_DENIED:
        case STATUS_NO_INIT:
        case STATUS_ALREADY_EXISTS:
        case STATUS_DEAD_OBJECT:
        case STATUS_FAILED_TRANSACTION:
        case STATUS_BAD_INDEX:
        case STATUS_NOT_ENOUGH_DATA:
        case STATUS_WOULD_BLOCK:
        case STATUS_TIMED_OUT:
        case STATUS_UNKNOWN_TRANSACTION:
        case STATUS_FDS_NOT_ALLOWED:
        case STATUS_UNEXPECTED_NULL:
            return status;
        default:
            return STATUS_UNKNOWN_ERROR;
    }
}

binder_exception_t pruneException(int32_t exception) {
    switch (exception) {
        case EX_NONE:
        case EX_SECURITY:
        case EX_BAD_PARCELABLE:
        case EX_ILLEGAL_ARGUMENT:
        case EX_NULL_POINTER:
        case EX_ILLEGAL_STATE:
        case EX_NETWORK_MAIN_THREAD:
        case EX_UNSUPPORTED_OPERATION:
        case EX_SERVICE_SPECIFIC:
        case EX_PARCELABLE:
        case EX_TRANSACTION_FAILED:
            return static_cast<binder_exception_t>(exception);
        default:
            return EX_TRANSACTION_FAILED;
    }
}

AStatus* statusFromWire(int32_t exception, int32_t serviceSpecific, const char* message) {
    return make(exception, serviceSpecific, STATUS_OK, message);
}

extern "C" {

AStatus* AStatus_newOk() {
    return make(EX_NONE, 0, STATUS_OK, nullptr);
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return make(pruneException(exception), 0, STATUS_FAILED_TRANSACTION, nullptr);
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    return make(pruneException(exception), 0, STATUS_FAILED_TRANSACTION, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return make(EX_SERVICE_SPECIFIC, serviceSpecific, STATUS_OK, nullptr);
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return make(EX_SERVICE_SPECIFIC, serviceSpecific, STATUS_OK, message);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) return AStatus_newOk();
    return make(EX_TRANSACTION_FAILED, 0, pruneStatus(status), nullptr);
}

bool AStatus_isOk(const AStatus* status) {
    return status != nullptr && status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status == nullptr ? EX_TRANSACTION_FAILED : pruneException(status->exception);
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    return status == nullptr ? 0 : status->serviceSpecific;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    return status == nullptr ? STATUS_UNEXPECTED_NULL : pruneStatus(status->status);
}

const char* AStatus_getMessage(const AStatus* status) {
    return status == nullptr ? "" : status->message.c_str();
}

const char* AStatus_getDescription(const AStatus* status) {
    std::string text;
    if (status == nullptr) {
        text = "(null status)";
    } else if (status->exception == EX_NONE) {
        text = "No error";
    } else {
        text = std::string("Status(") + std::to_string(status->exception) + ", " +
               exceptionName(status->exception) + "): ";
        if (status->exception == EX_SERVICE_SPECIFIC) {
            text += std::to_string(status->serviceSpecific) + ": ";
        } else if (status->exception == EX_TRANSACTION_FAILED) {
            text += std::to_string(status->status) + ": ";
        }
        text += "'" + status->message + "'";
    }
    return strdup(text.c_str());
}

void AStatus_deleteDescription(const char* description) {
    free(const_cast<char*>(description));
}

void AStatus_delete(AStatus* status) {
    delete status;
}

}  // extern "C"
