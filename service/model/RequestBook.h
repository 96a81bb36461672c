// Requests and rules: what they claim, how long they hold it, and what their coming and going
// changes. Every change of a value in force goes out from here: to the sysfs mirror, to the
// timeline and to the listeners that hear that resource.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ExpiryTimer.h"
#include "HolderWatch.h"
#include "ListenerRegistry.h"
#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

class RequestBook {
public:
    // `lock` is the service lock; the expiry and holder-watch threads take it to end a request
    // (and take nothing of their own meanwhile: the service lock comes first).
    RequestBook(ServiceState& state, ListenerRegistry& listeners, std::mutex& lock);
    ~RequestBook();  // stops the holder-watch and expiry threads first
    RequestBook(const RequestBook&) = delete;
    RequestBook& operator=(const RequestBook&) = delete;

    // A control, SA-control, event or platform request: a handle, or a result below 0.
    int32_t acquireLocked(const VelaRequestParcel& parcel);
    // `why` names the door it came through in the log ("release").
    int32_t releaseLocked(int32_t handle, const char* why);
    // A status of 0 turns the rule off.
    int32_t ruleLocked(int32_t ruleId, int32_t status, const std::vector<VelaRequestData>& items);

    // For a service on a virtual clock (ServiceState::virtualClock): the next deadline of a
    // timed request, and the end of every request due by `now`. Called without the lock.
    std::optional<ServiceClock::time_point> nextDeadline() { return mTimer->next(); }
    void expireDue(ServiceClock::time_point now) { mTimer->expireDue(now); }
    // A replayed holder's process ended: its requests among `handles` end. Takes the lock.
    void holderGone(pid_t pid, const std::vector<int32_t>& handles);

    // Sends the changes on to the mirror, the timeline and the listeners.
    void publishLocked(const std::vector<Change>& changes);

private:
    // Takes the items' resources from `first` on. Strict: an item that names a resource but
    // carries no value is an error. Lenient (rules): such an item is skipped.
    bool readResources(const std::vector<VelaRequestData>& items, size_t first, bool lenient,
                       ResourceTable::Values* out, std::string* why) const;
    void onExpired(int32_t handle, ServiceClock::time_point deadline);
    // Ends every request of a process that is gone (RequestBookHolders.cpp).
    void onHolderGone(uint64_t token, pid_t pid);
    void endHoldersLocked(pid_t pid, const std::vector<int32_t>& handles);
    // What every end of a request shares once it has logged and counted: `cause` goes to the
    // change log as it is and to the timeline as its word.
    void endLocked(std::map<int32_t, Request>::iterator request, ChangeCause cause);

    ServiceState& mState;
    ListenerRegistry& mListeners;
    std::mutex& mLock;
    std::unique_ptr<ExpiryTimer> mTimer;
    std::unique_ptr<HolderWatch> mHolders;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
