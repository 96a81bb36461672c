// What made each resource's value in force change, recently: when, from what to what, the
// cause (an acquire, a release, an expiry, a lease running out, a holder gone, a rule, thermal)
// and the request or rule behind it. Kept in memory and bounded both ways, the oldest changes of
// a resource first and, past the resource limit, the resource that changed longest ago.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ResourceTable.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

enum class ChangeCause {
    kAcquire,
    kRelease,
    kExpiry,
    kLease,
    kHolderGone,
    kRule,
    kThermal,
    kOther
};
const char* changeCauseName(ChangeCause cause);
// The word a request's end is written with on the timeline ("released", "expired", "lease",
// "holder gone").
const char* endWord(ChangeCause cause);

struct LoggedChange {
    std::chrono::system_clock::time_point when;
    std::optional<std::string> before;
    std::optional<std::string> after;
    ChangeCause cause = ChangeCause::kOther;
    std::string by;  // the request or rule behind it, in words
};

class ChangeLog {
public:
    static constexpr size_t kPerResource = 16;
    static constexpr size_t kResources = 1024;

    // What the changes recorded next come from. Each record() uses it up, so that a change
    // nobody named a cause for shows as "other" rather than as the previous one's.
    void setCause(ChangeCause cause, std::string by);
    void record(const std::vector<Change>& changes);

    // The recent changes of a resource, oldest first; empty when it has none.
    std::vector<LoggedChange> changesOf(const ResourceKey& key) const;
    std::vector<ResourceKey> keys() const;

private:
    struct Entry {
        std::deque<LoggedChange> changes;
        uint64_t last = 0;  // the order of its latest change among all resources
    };

    std::map<ResourceKey, Entry> mByKey;
    ChangeCause mCause = ChangeCause::kOther;
    std::string mBy;
    uint64_t mOrder = 0;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
