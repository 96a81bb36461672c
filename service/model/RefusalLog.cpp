#include "RefusalLog.h"

#include "ServiceLimits.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

// Per thread: each binder thread serves one call at a time, and the name is needed only
// inside it, so no lock is taken for it.
thread_local const char* tServing = nullptr;

}  // namespace

void RefusalLog::add(pid_t pid, int32_t result, const std::string& reason) {
    Refusal entry;
    entry.sequence = ++mSequence;
    entry.when = std::chrono::system_clock::now();
    entry.at = std::chrono::steady_clock::now();
    entry.pid = pid;
    entry.call = ServingCall::current();
    entry.result = result;
    // A reason may quote what the caller sent: kept as long as a value may be, no longer.
    entry.reason = reason.substr(0, 2 * ServiceLimits::kMaxText);
    mEntries.push_back(std::move(entry));
    while (mEntries.size() > kKept) mEntries.pop_front();
}

ServingCall::ServingCall(const char* name) : mOuter(tServing) {
    tServing = name;
}

ServingCall::~ServingCall() {
    tServing = mOuter;
}

const char* ServingCall::current() {
    return tServing != nullptr ? tServing : "";
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
