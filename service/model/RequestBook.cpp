#include "RequestBook.h"

#include <android/binder_ibinder.h>
#include <android/log.h>

#include <algorithm>
#include <cinttypes>
#include <set>

#include "RequestItemKey.h"
#include "RequestLease.h"
#include "ServiceWords.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

RequestBook::RequestBook(ServiceState& state, ListenerRegistry& listeners, std::mutex& lock)
    : mState(state),
      mListeners(listeners),
      mLock(lock),
      mTimer(std::make_unique<ExpiryTimer>(
              [this](int32_t handle, ServiceClock::time_point deadline) {
                  onExpired(handle, deadline);
              },
              /*ownThread=*/!state.virtualClock)),
      mHolders(std::make_unique<HolderWatch>(
              [this](uint64_t token, pid_t pid) { onHolderGone(token, pid); })) {}

RequestBook::~RequestBook() {
    mHolders.reset();
    mTimer.reset();
}

bool RequestBook::readResources(const std::vector<VelaRequestData>& items, size_t first,
                                bool lenient, ResourceTable::Values* out, std::string* why) const {
    for (size_t i = first; i < items.size(); ++i) {
        const VelaRequestData& item = items[i];
        const std::string where = "item " + std::to_string(i);
        const RequestItemKey named = keyOfItem(item);
        if (named.kind == RequestItemKey::Kind::kEmpty) continue;
        if (named.kind == RequestItemKey::Kind::kBadPath) {
            *why = where + ": path refused (empty, too long or with a \"..\" component)";
            return false;
        }
        const ResourceKey& key = named.key;
        // A path may be set to an empty text; an opcode needs a value.
        const bool missing = !item.value || (!key.isPath() && item.value->empty());
        if (missing) {
            if (lenient) continue;
            *why = where + ": " + key.toString() + " carries no value";
            return false;
        }
        if (item.value->size() > ServiceLimits::kMaxText) {
            *why = where + ": value longer than " + std::to_string(ServiceLimits::kMaxText) +
                   " bytes";
            return false;
        }
        // A declared integer resource refuses what it cannot hold, rather than let a claim that
        // max or min cannot order sit beside the others.
        if (const ResourceInfo* info = mState.config.infoFor(key)) {
            if (auto problem = info->problemWith(*item.value)) {
                *why = where + ": " + info->name + ": " + *problem;
                return false;
            }
        }
        out->emplace_back(std::move(key), *item.value);
    }
    return true;
}

int32_t RequestBook::acquireLocked(const VelaRequestParcel& parcel) {
    const auto& items = parcel.requestDatas;
    Request request;
    request.kind = parcel.requestType;
    request.package = parcel.packageName.value_or("");
    request.identity = parcel.identity.value_or("");
    request.durationMs = parcel.param2;
    request.pid = callingPid();
    request.made = mState.now();
    const std::string kind = requestKindName(request.kind);

    size_t firstResource = 0;
    if (request.kind == kKindEvent || request.kind == kKindSaControl) {
        // The leading item names the scenario by event id; an SA request is that item alone.
        if (items.empty() || (request.kind == kKindSaControl && items.size() != 1)) {
            return mState.reject(kResultBadRequest,
                                 kind + " request needs exactly one leading event item, got " +
                                         std::to_string(items.size()) + " items");
        }
        if (items[0].id < 0) {
            return mState.reject(kResultBadRequest, kind + " request for negative event id " +
                                                            std::to_string(items[0].id));
        }
        request.event = items[0].id;
        firstResource = 1;
        if (const Scenario* scenario = mState.config.scenarioFor(*request.event)) {
            request.resources = scenario->resources;
        } else {
            serviceLog(ANDROID_LOG_INFO,
                       "event %d has no scenario configured: only its own resources are held",
                       *request.event);
        }
    }
    std::string why;
    if (!readResources(items, firstResource, /*lenient=*/false, &request.resources, &why)) {
        return mState.reject(kResultBadRequest, kind + " request: " + why);
    }
    if (mState.requests.size() >= ServiceLimits::kMaxRequests) {
        return mState.reject(
                kResultLimitReached,
                "too many active requests (" + std::to_string(ServiceLimits::kMaxRequests) + ")");
    }

    request.handle = mState.newHandle();
    // A replayed caller's pid names no process here: its end comes from the record instead.
    request.watch = mState.virtualClock ? 0 : mHolders->watch(request.pid);
    request.leaseMs = leaseFor(mState.config, request).value_or(0);
    const int64_t holdMs = request.durationMs > 0 ? request.durationMs : request.leaseMs;
    if (holdMs > 0) {
        request.deadline = request.made + std::chrono::milliseconds(
                                                  std::min(holdMs, ServiceLimits::kMaxDurationMs));
        mTimer->arm(request.handle, *request.deadline);
    }
    const int32_t handle = request.handle;
    std::vector<Change> changes = mState.table.hold(Holder::request(handle), request.resources);
    ++mState.counters.granted;
    const std::string description = describeRequest(mState, request);
    serviceLog(ANDROID_LOG_INFO, "acquire %s", description.c_str());
    mState.record("acquire " + description);
    if (mState.trace)
        mState.trace->begin(handle, requestTitle(mState, request), requestArgs(request));

    if (parcel.callback != nullptr) {
        // One answer per request: the values in force for what it asked, once it took effect.
        std::vector<VelaRequestData> answer;
        std::set<ResourceKey> seen;
        for (const auto& entry : request.resources) {
            if (seen.insert(entry.first).second) answer.push_back(mState.itemFor(entry.first));
        }
        mListeners.answerLocked(parcel.callback, std::move(answer));
    }
    mState.changeLog.setCause(ChangeCause::kAcquire, holderWords(mState, request));
    mState.requests.emplace(handle, std::move(request));
    publishLocked(changes);
    return handle;
}

int32_t RequestBook::releaseLocked(int32_t handle, const char* why) {
    auto it = mState.requests.find(handle);
    if (it == mState.requests.end()) {
        return mState.reject(
                kResultUnknownHandle,
                std::string(why) + ": no active request with handle " + std::to_string(handle) +
                        (mState.isOfThisRun(handle) ? "" : " (not a handle of this run)"));
    }
    if (it->second.deadline) mTimer->cancel(handle, *it->second.deadline);
    serviceLog(ANDROID_LOG_INFO, "%s handle %d (%s)", why, handle,
               counted(it->second.resources.size(), "resource").c_str());
    mState.record(std::string(why) + " handle " + std::to_string(handle));
    ++mState.counters.released;
    endLocked(it, ChangeCause::kRelease);
    return kResultOk;
}

void RequestBook::onExpired(int32_t handle, ServiceClock::time_point deadline) {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mState.requests.find(handle);
    if (it == mState.requests.end() || it->second.deadline != deadline) return;
    const bool lease = it->second.leaseMs > 0;
    const char* what = lease ? "lease" : "expire";
    const int64_t ms = lease ? it->second.leaseMs : it->second.durationMs;
    serviceLog(ANDROID_LOG_INFO, "%s handle %d after %" PRId64 " ms", what, handle, ms);
    mState.record(std::string(what) + " handle " + std::to_string(handle) + " after " +
                  std::to_string(ms) + " ms");
    ++mState.counters.expired;
    endLocked(it, lease ? ChangeCause::kLease : ChangeCause::kExpiry);
}

void RequestBook::endLocked(std::map<int32_t, Request>::iterator request, ChangeCause cause) {
    std::vector<Change> changes = mState.table.drop(Holder::request(request->first));
    mHolders->unwatch(request->second.watch);
    if (mState.trace) mState.trace->end(request->first, endWord(cause));
    mState.changeLog.setCause(cause, holderWords(mState, request->second));
    mState.requests.erase(request);
    publishLocked(changes);
}

int32_t RequestBook::ruleLocked(int32_t ruleId, int32_t status,
                                const std::vector<VelaRequestData>& items) {
    if (items.size() > ServiceLimits::kMaxItems) {
        return mState.reject(kResultBadRequest, "rule " + std::to_string(ruleId) + " with " +
                                                        std::to_string(items.size()) + " items");
    }
    std::vector<Change> changes;
    std::string what;
    if (status != 0) {
        Rule rule{ruleId, status, {}};
        std::string why;
        // Rule items name resources without a value to mean "leave it": they are skipped.
        if (!readResources(items, 0, /*lenient=*/true, &rule.resources, &why)) {
            return mState.reject(kResultBadRequest, "rule " + std::to_string(ruleId) + ": " + why);
        }
        if (mState.rules.count(ruleId) == 0 && mState.rules.size() >= ServiceLimits::kMaxRules) {
            return mState.reject(kResultLimitReached, "too many rules on");
        }
        changes = mState.table.hold(Holder::rule(ruleId), rule.resources);
        serviceLog(ANDROID_LOG_INFO, "rule %d on (status %d, %zu resources)", ruleId, status,
                   rule.resources.size());
        what = "rule " + std::to_string(ruleId) + " on status " + std::to_string(status) +
               " resources " + std::to_string(rule.resources.size());
        mState.rules[ruleId] = std::move(rule);
    } else if (mState.rules.erase(ruleId) != 0) {
        changes = mState.table.drop(Holder::rule(ruleId));
        serviceLog(ANDROID_LOG_INFO, "rule %d off", ruleId);
        what = "rule " + std::to_string(ruleId) + " off";
    } else {
        serviceLog(ANDROID_LOG_INFO, "rule %d off (was not on)", ruleId);
    }
    if (!what.empty()) {
        mState.changeLog.setCause(ChangeCause::kRule, what);
        mState.record(what);
        if (mState.trace) mState.trace->instant("rule", what, {});
    }
    publishLocked(changes);
    return kResultOk;
}

void RequestBook::publishLocked(const std::vector<Change>& changes) {
    mState.changeLog.record(changes);
    if (changes.empty()) return;
    // Written under the lock on purpose: the files (and the timeline) must change in the order
    // the values did.
    for (const Change& change : changes) {
        std::string error;
        if (mState.mirror && change.key.isPath() &&
            !mState.mirror->apply(change.key.path, change.after, &error)) {
            serviceLog(ANDROID_LOG_ERROR, "sysfs mirror: %s", error.c_str());
        }
        if (mState.trace)
            mState.trace->counter(traceTrack(mState, change.key), change.after.value_or(""));
    }
    mListeners.notifyLocked(changes);
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
