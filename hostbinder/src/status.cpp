// AStatus: an exception code, a service-specific error or a transaction error, and a message.
#include <android/binder_status.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

struct AStatus {
    binder_exception_t exception = EX_NONE;
    int32_t serviceSpecific = 0;
    binder_status_t status = STATUS_OK;
    std::string message;
};

namespace {
AStatus* make(binder_exception_t exception, int32_t serviceSpecific, binder_status_t status,
              const char* message) {
    auto* s = new (std::nothrow) AStatus;
    if (s == nullptr) return nullptr;
    s->exception = exception;
    s->serviceSpecific = exception == EX_SERVICE_SPECIFIC ? serviceSpecific : 0;
    s->status = exception == EX_TRANSACTION_FAILED ? status : STATUS_OK;
    if (message != nullptr) s->message = message;
    return s;
}

const char* exceptionName(binder_exception_t e) {
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

extern "C" {

AStatus* AStatus_newOk() {
    return make(EX_NONE, 0, STATUS_OK, nullptr);
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return make(exception, 0, STATUS_FAILED_TRANSACTION, nullptr);
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    return make(exception, 0, STATUS_FAILED_TRANSACTION, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return make(EX_SERVICE_SPECIFIC, serviceSpecific, STATUS_OK, nullptr);
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return make(EX_SERVICE_SPECIFIC, serviceSpecific, STATUS_OK, message);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) return AStatus_newOk();
    return make(EX_TRANSACTION_FAILED, 0, status, nullptr);
}

bool AStatus_isOk(const AStatus* status) {
    return status != nullptr && status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status == nullptr ? EX_TRANSACTION_FAILED : status->exception;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    return status == nullptr ? 0 : status->serviceSpecific;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    return status == nullptr ? STATUS_UNEXPECTED_NULL : status->status;
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
