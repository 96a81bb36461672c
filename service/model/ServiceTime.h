// What a call's context tells the service, made replaceable for a replay: the time, and who is
// calling.
//
// A live service reads the steady clock and the binder's calling pid and uid. A replay drives
// an in-process service from a record: its clock is moved by the record, so that an hour of
// calls plays in a moment, and the caller of each direct call is the recorded one, not the
// replaying process.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>

namespace aidl::vendor::norvo::hardware::vela::impl {

using ServiceClock = std::chrono::steady_clock;

// A clock that stands still until set. Atomic, so that the service's threads may read it while
// the replay moves it.
class VirtualClock {
public:
    ServiceClock::time_point now() const {
        return ServiceClock::time_point(ServiceClock::duration(mNow.load()));
    }
    void set(ServiceClock::time_point at) { mNow.store(at.time_since_epoch().count()); }

private:
    std::atomic<ServiceClock::rep> mNow{0};
};

// The caller of the call this thread is serving: the binder's, unless a ScopedCaller says.
pid_t callingPid();
uid_t callingUid();

// For the lifetime of this object, this thread's calls into the service come from `pid`/`uid`.
class ScopedCaller {
public:
    ScopedCaller(pid_t pid, uid_t uid);
    ~ScopedCaller();
    ScopedCaller(const ScopedCaller&) = delete;
    ScopedCaller& operator=(const ScopedCaller&) = delete;

private:
    const bool mHadOuter;
    const pid_t mOuterPid;
    const uid_t mOuterUid;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
