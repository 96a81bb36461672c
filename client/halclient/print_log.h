// Logs each transaction that reaches a callback client, through the stub's log hook.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/BnVelaCallback.h>

namespace velaHalclient {

// The host's generator hands the hook a JSON record; a device's hands it a TransactionLog.
#ifdef __ANDROID__
void printLog(const ::aidl::vendor::norvo::hardware::vela::BnVelaCallback::TransactionLog& log);
#else
void printLog(const Json::Value& log);
#endif

// Points BnVelaCallback::logFunc at printLog.
void installPrintLog();

}  // namespace velaHalclient
