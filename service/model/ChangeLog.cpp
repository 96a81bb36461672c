#include "ChangeLog.h"

#include <algorithm>

namespace aidl::vendor::norvo::hardware::vela::impl {

const char* changeCauseName(ChangeCause cause) {
    switch (cause) {
        case ChangeCause::kAcquire:
            return "acquire";
        case ChangeCause::kRelease:
            return "release";
        case ChangeCause::kExpiry:
            return "expiry";
        case ChangeCause::kLease:
            return "lease";
        case ChangeCause::kHolderGone:
            return "holder gone";
        case ChangeCause::kRule:
            return "rule";
        case ChangeCause::kThermal:
            return "thermal";
        case ChangeCause::kOther:
            break;
    }
    return "other";
}

const char* endWord(ChangeCause cause) {
    switch (cause) {
        case ChangeCause::kRelease:
            return "released";
        case ChangeCause::kExpiry:
            return "expired";
        case ChangeCause::kAcquire:
        case ChangeCause::kLease:
        case ChangeCause::kHolderGone:
        case ChangeCause::kRule:
        case ChangeCause::kThermal:
        case ChangeCause::kOther:
            break;
    }
    return changeCauseName(cause);
}

void ChangeLog::setCause(ChangeCause cause, std::string by) {
    mCause = cause;
    mBy = std::move(by);
}

void ChangeLog::record(const std::vector<Change>& changes) {
    const auto now = std::chrono::system_clock::now();
    for (const Change& change : changes) {
        auto found = mByKey.find(change.key);
        if (found == mByKey.end()) {
            if (mByKey.size() >= kResources) {
                // Room for a newcomer: the resource whose latest change is the oldest goes.
                auto oldest = std::min_element(
                        mByKey.begin(), mByKey.end(),
                        [](const auto& a, const auto& b) { return a.second.last < b.second.last; });
                mByKey.erase(oldest);
            }
            found = mByKey.emplace(change.key, Entry{}).first;
        }
        Entry& entry = found->second;
        entry.changes.push_back(LoggedChange{now, change.before, change.after, mCause, mBy});
        while (entry.changes.size() > kPerResource) entry.changes.pop_front();
        entry.last = ++mOrder;
    }
    mCause = ChangeCause::kOther;
    mBy.clear();
}

std::vector<LoggedChange> ChangeLog::changesOf(const ResourceKey& key) const {
    auto found = mByKey.find(key);
    if (found == mByKey.end()) return {};
    return {found->second.changes.begin(), found->second.changes.end()};
}

std::vector<ResourceKey> ChangeLog::keys() const {
    std::vector<ResourceKey> keys;
    for (const auto& entry : mByKey) keys.push_back(entry.first);
    return keys;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
