// The end of a holder's requests when its process is gone.
//
// Only requests follow their holder. A rule is the platform's policy, named by its id and
// switched off by whoever manages policy, often another process than the one that switched it
// on: tying it to its caller would let a restarting policy manager silently drop thermal or
// battery policy. Thermal and resource listeners are dropped already when their callback's
// process dies (ListenerRegistry), and thermal levels are reports of the hardware's state,
// which nobody holds.
#include <android/log.h>

#include <string>
#include <vector>

#include "RequestBook.h"
#include "ServiceWords.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

void RequestBook::onHolderGone(uint64_t token, pid_t pid) {
    std::lock_guard<std::mutex> lock(mLock);
    std::vector<int32_t> handles;
    for (const auto& [handle, request] : mState.requests) {
        if (request.watch == token) handles.push_back(handle);
    }
    endHoldersLocked(pid, handles);
}

void RequestBook::holderGone(pid_t pid, const std::vector<int32_t>& handles) {
    std::lock_guard<std::mutex> lock(mLock);
    std::vector<int32_t> held;
    for (int32_t handle : handles) {
        if (mState.requests.count(handle) != 0) held.push_back(handle);
    }
    endHoldersLocked(pid, held);
}

void RequestBook::endHoldersLocked(pid_t pid, const std::vector<int32_t>& handles) {
    if (handles.empty()) return;
    std::string list;
    for (int32_t handle : handles) list += (list.empty() ? "" : " ") + std::to_string(handle);
    serviceLog(ANDROID_LOG_INFO, "holder gone: pid %d ended holding %s (%s)", pid,
               counted(handles.size(), "request").c_str(), list.c_str());
    if (mState.recorder) mState.recorder->holderGone(pid, handles);
    if (mState.trace) {
        mState.trace->instant("holder gone", "pid " + std::to_string(pid), {{"handles", list}});
    }
    for (int32_t handle : handles) {
        auto it = mState.requests.find(handle);
        if (it->second.deadline) mTimer->cancel(handle, *it->second.deadline);
        mState.record("holder gone handle " + std::to_string(handle) + " pid " +
                      std::to_string(pid));
        endLocked(it, ChangeCause::kHolderGone);
    }
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
