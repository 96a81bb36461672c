#include "ServiceTime.h"

#include <android/binder_ibinder.h>

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

thread_local bool tOverridden = false;
thread_local pid_t tPid = 0;
thread_local uid_t tUid = 0;

}  // namespace

pid_t callingPid() {
    return tOverridden ? tPid : AIBinder_getCallingPid();
}

uid_t callingUid() {
    return tOverridden ? tUid : AIBinder_getCallingUid();
}

// Nested overrides restore the outer one, so that a helper may make calls of its own.
ScopedCaller::ScopedCaller(pid_t pid, uid_t uid)
    : mHadOuter(tOverridden), mOuterPid(tPid), mOuterUid(tUid) {
    tOverridden = true;
    tPid = pid;
    tUid = uid;
}

ScopedCaller::~ScopedCaller() {
    tOverridden = mHadOuter;
    tPid = mOuterPid;
    tUid = mOuterUid;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
