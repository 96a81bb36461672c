#include "print_log.h"

#include <android/log.h>

#include <functional>
#include <mutex>
#include <string>

namespace velaHalclient {

using ::aidl::vendor::norvo::hardware::vela::BnVelaCallback;

namespace {

constexpr char kPrintLogFormat[] =
        "BnVelaCallback::logFunc NDK BACKEND method_name %s exception_code %d exception_message "
        "%s transaction_error %d service_specific_error_code %d";

void writeTransactionLine(const char* methodName, int exceptionCode, const char* exceptionMessage,
                          int transactionError, int serviceSpecificErrorCode) {
    // No tag: the line belongs to the transaction, not to this library.
    __android_log_print(ANDROID_LOG_INFO, nullptr, kPrintLogFormat, methodName, exceptionCode,
                        exceptionMessage, transactionError, serviceSpecificErrorCode);
}

// The record type that the generated hook takes on this platform.
template <typename Hook>
struct HookRecord;
template <typename Record>
struct HookRecord<std::function<void(const Record&)>> {
    using type = Record;
};
using LogRecord = HookRecord<decltype(BnVelaCallback::logFunc)>::type;
using PrintLogFn = void (*)(const LogRecord&);

std::mutex logFuncMutex;

}  // namespace

#ifdef __ANDROID__

void printLog(const BnVelaCallback::TransactionLog& log) {
    writeTransactionLine(log.method_name.c_str(), log.exception_code, log.exception_message.c_str(),
                         log.transaction_error, log.service_specific_error_code);
}

#else

namespace {

// The record comes from generated code, but a field of an unexpected type must not throw on
// a binder thread.
const Json::Value& field(const Json::Value& record, const char* key) {
    static const Json::Value kMissing;
    if (!record.isObject()) return kMissing;
    const Json::Value* found = record.find(key, key + std::char_traits<char>::length(key));
    return found != nullptr ? *found : kMissing;
}

std::string textOf(const Json::Value& value) {
    return value.isString() ? value.asString() : std::string();
}

int intOf(const Json::Value& value) {
    return value.isInt() ? value.asInt() : 0;
}

}  // namespace

void printLog(const Json::Value& log) {
    const Json::Value& status = field(log, "binder_status");
    writeTransactionLine(textOf(field(log, "method_name")).c_str(),
                         intOf(field(status, "exception_code")),
                         textOf(field(status, "exception_message")).c_str(),
                         intOf(field(status, "transaction_error")),
                         intOf(field(status, "service_specific_error_code")));
}

#endif

void installPrintLog() {
    const PrintLogFn wanted = &printLog;
    std::lock_guard<std::mutex> lock(logFuncMutex);
    // Written only when something else is installed: binder threads read the hook without a
    // lock, so rewriting it at every construction would race with them.
    const PrintLogFn* current = BnVelaCallback::logFunc.target<PrintLogFn>();
    if (current == nullptr || *current != wanted) BnVelaCallback::logFunc = wanted;
}

}  // namespace velaHalclient
