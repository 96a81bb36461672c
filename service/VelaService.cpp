#include "VelaService.h"

#include <android/binder_ibinder.h>
#include <android/log.h>

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <sstream>

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

void logLine(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));
void logLine(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    __android_log_vprint(priority, kVelaLogTag, format, args);
    va_end(args);
}
#define LOGI(...) logLine(ANDROID_LOG_INFO, __VA_ARGS__)
#define LOGW(...) logLine(ANDROID_LOG_WARN, __VA_ARGS__)
#define LOGE(...) logLine(ANDROID_LOG_ERROR, __VA_ARGS__)

// Death links of listener callbacks, by token. A token rather than a pointer is the cookie, so
// a death that races with an unregistration or with the service going away finds nothing
// instead of a freed object. Lock order: gLinksLock, then a service's mLock; never the other
// way round.
std::mutex gLinksLock;
std::map<uint64_t, VelaService*> gLinks;
uint64_t gNextLink = 1;

void* cookieOf(uint64_t link) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(link));
}

const char* kindName(int32_t kind) {
    switch (kind) {
        case kKindControl:
            return "control";
        case kKindSaControl:
            return "SA control";
        case kKindEvent:
            return "event";
        case kKindPlatform:
            return "platform";
        default:
            return "request";
    }
}

std::string wallClock() {
    auto now = std::chrono::system_clock::now();
    time_t seconds = std::chrono::system_clock::to_time_t(now);
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()) % 1000;
    struct tm parts {};
    localtime_r(&seconds, &parts);
    char text[32];
    snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
             static_cast<int>(ms.count()));
    return text;
}

std::string orNone(const std::string& text) {
    return text.empty() ? "none" : text;
}

std::string counted(size_t n, const char* noun) {
    return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

}  // namespace

VelaService::VelaService() : VelaService(Options{}) {}

VelaService::VelaService(Options options)
    : mConfig(std::move(options.config)),
      mHistoryLimit(std::max<size_t>(options.historyLimit, 1)),
      mDeathRecipient(AIBinder_DeathRecipient_new(&VelaService::onClientDied)) {
    for (const ResourceInfo& info : mConfig.resources()) {
        if (info.defaultValue) mTable.setDefault(info.key, *info.defaultValue);
    }
    mProperties[kPowerModeProperty] = "0";
    if (!options.sysfsRoot.empty()) {
        mMirror = std::make_unique<SysfsMirror>(options.sysfsRoot);
        for (const auto& [key, value] : mTable.inForce()) {
            std::string error;
            if (key.isPath() && !mMirror->apply(key.path, value, &error)) {
                LOGE("sysfs mirror: %s", error.c_str());
            }
        }
    }
    mNotifier = std::make_unique<Notifier>();
    mTimer = std::make_unique<ExpiryTimer>(
            [this](int32_t handle, Clock::time_point deadline) { onExpired(handle, deadline); });
    LOGI("ready: %zu resources, %zu scenarios%s%s", mConfig.resources().size(),
         mConfig.scenarios().size(), mMirror ? ", sysfs mirror under " : "",
         mMirror ? mMirror->root().c_str() : "");
}

VelaService::~VelaService() {
    // Stop the threads first: both call back into this object.
    mTimer.reset();
    mNotifier.reset();
    {
        std::lock_guard<std::mutex> links(gLinksLock);
        for (auto it = gLinks.begin(); it != gLinks.end();) {
            it = it->second == this ? gLinks.erase(it) : std::next(it);
        }
    }
    // Deleting the recipient unlinks it from every callback it watches.
    mDeathRecipient = ::ndk::ScopedAIBinder_DeathRecipient();
}

// --- Requests ---------------------------------------------------------------------------

::ndk::ScopedAStatus VelaService::init() {
    LOGI("init from pid %d", AIBinder_getCallingPid());
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::resCtlRequest(const VelaRequestParcel& request, int32_t* out) {
    std::vector<std::string> dump;
    {
        std::lock_guard<std::mutex> lock(mLock);
        *out = controlLocked(request, &dump);
    }
    // A dump can run to thousands of lines: writing them must not hold up other clients.
    for (const std::string& line : dump) LOGI("%s", line.c_str());
    return ::ndk::ScopedAStatus::ok();
}

int32_t VelaService::controlLocked(const VelaRequestParcel& request,
                                   std::vector<std::string>* dump) {
    if (request.requestDatas.size() > kMaxItems) {
        return rejectLocked(kResultBadRequest,
                            "request of kind " + std::to_string(request.requestType) + " with " +
                                    std::to_string(request.requestDatas.size()) +
                                    " items (at most " + std::to_string(kMaxItems) + ")");
    }
    switch (request.requestType) {
        case kKindControl:
        case kKindSaControl:
        case kKindEvent:
        case kKindPlatform:
            return acquireLocked(request);
        case kKindDiagnostic:
            return diagnosticLocked(request, dump);
        case kKindThermal:
            return thermalNotifyLocked(request);
        case kKindNotify:
            return notifyLocked(request);
        default:
            return rejectLocked(kResultUnsupportedKind, "resCtlRequest: unsupported request kind " +
                                                              std::to_string(request.requestType));
    }
}

bool VelaService::readResources(const std::vector<VelaRequestData>& items, size_t first,
                                bool lenient, ResourceTable::Values* out, std::string* why) const {
    for (size_t i = first; i < items.size(); ++i) {
        const VelaRequestData& item = items[i];
        const std::string where = "item " + std::to_string(i);
        ResourceKey key;
        if (item.id != 0) {
            key = ResourceKey::ofOpcode(static_cast<uint32_t>(item.id));
        } else if (item.value2 && !item.value2->empty()) {
            if (!isAcceptablePath(*item.value2)) {
                *why = where + ": path refused (empty, too long or with a \"..\" component)";
                return false;
            }
            key = ResourceKey::ofPath(*item.value2);
        } else {
            continue;  // an empty slot
        }
        // A path may be set to an empty text; an opcode needs a value.
        const bool missing = !item.value || (!key.isPath() && item.value->empty());
        if (missing) {
            if (lenient) continue;
            *why = where + ": " + key.toString() + " carries no value";
            return false;
        }
        if (item.value->size() > kMaxText) {
            *why = where + ": value longer than " + std::to_string(kMaxText) + " bytes";
            return false;
        }
        out->emplace_back(std::move(key), *item.value);
    }
    return true;
}

int32_t VelaService::acquireLocked(const VelaRequestParcel& parcel) {
    const auto& items = parcel.requestDatas;
    Request request;
    request.kind = parcel.requestType;
    request.package = parcel.packageName.value_or("");
    request.identity = parcel.identity.value_or("");
    request.durationMs = parcel.param2;
    request.pid = AIBinder_getCallingPid();
    request.made = Clock::now();

    size_t firstResource = 0;
    if (request.kind == kKindEvent || request.kind == kKindSaControl) {
        // The leading item names the scenario by event id; an SA request is that item alone.
        if (items.empty() || (request.kind == kKindSaControl && items.size() != 1)) {
            return rejectLocked(kResultBadRequest,
                                std::string(kindName(request.kind)) +
                                        " request needs exactly one leading event item, got " +
                                        std::to_string(items.size()) + " items");
        }
        if (items[0].id < 0) {
            return rejectLocked(kResultBadRequest, std::string(kindName(request.kind)) +
                                                         " request for negative event id " +
                                                         std::to_string(items[0].id));
        }
        request.event = items[0].id;
        firstResource = 1;
        if (const Scenario* scenario = mConfig.scenarioFor(*request.event)) {
            request.resources = scenario->resources;
        } else {
            LOGI("event %d has no scenario configured: only its own resources are held",
                 *request.event);
        }
    }
    std::string why;
    if (!readResources(items, firstResource, /*lenient=*/false, &request.resources, &why)) {
        return rejectLocked(kResultBadRequest,
                            std::string(kindName(request.kind)) + " request: " + why);
    }
    if (mRequests.size() >= kMaxRequests) {
        return rejectLocked(kResultLimitReached,
                            "too many active requests (" + std::to_string(kMaxRequests) + ")");
    }

    request.handle = newHandleLocked();
    if (request.durationMs > 0) {
        request.deadline = request.made +
                           std::chrono::milliseconds(std::min(request.durationMs, kMaxDurationMs));
        mTimer->arm(request.handle, *request.deadline);
    }
    const int32_t handle = request.handle;
    std::vector<Change> changes = mTable.hold(Holder::request(handle), request.resources);
    ++mCounters.granted;
    const std::string description = describeLocked(request);
    LOGI("acquire %s", description.c_str());
    recordLocked("acquire " + description);

    if (parcel.callback != nullptr) {
        // One answer per request: the values in force for what it asked, once it took effect.
        std::vector<VelaRequestData> answer;
        std::set<ResourceKey> seen;
        for (const auto& entry : request.resources) {
            if (seen.insert(entry.first).second) answer.push_back(itemFor(entry.first));
        }
        queueDelivery(0, parcel.callback, std::move(answer));
    }
    mRequests.emplace(handle, std::move(request));
    publishLocked(changes);
    return handle;
}

::ndk::ScopedAStatus VelaService::resCtlRelease(int32_t handle, int32_t* out) {
    std::lock_guard<std::mutex> lock(mLock);
    *out = releaseLocked(handle, "release");
    return ::ndk::ScopedAStatus::ok();
}

int32_t VelaService::releaseLocked(int32_t handle, const char* why) {
    auto it = mRequests.find(handle);
    if (it == mRequests.end()) {
        return rejectLocked(
                kResultUnknownHandle,
                std::string(why) + ": no active request with handle " + std::to_string(handle));
    }
    if (it->second.deadline) mTimer->cancel(handle, *it->second.deadline);
    LOGI("%s handle %d (%s)", why, handle,
         counted(it->second.resources.size(), "resource").c_str());
    recordLocked(std::string(why) + " handle " + std::to_string(handle));
    ++mCounters.released;
    endRequestLocked(it);
    return kResultOk;
}

void VelaService::onExpired(int32_t handle, Clock::time_point deadline) {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mRequests.find(handle);
    if (it == mRequests.end() || it->second.deadline != deadline) return;
    LOGI("expire handle %d after %" PRId64 " ms", handle, it->second.durationMs);
    recordLocked("expire handle " + std::to_string(handle) + " after " +
                 std::to_string(it->second.durationMs) + " ms");
    ++mCounters.expired;
    endRequestLocked(it);
}

void VelaService::endRequestLocked(std::map<int32_t, Request>::iterator request) {
    std::vector<Change> changes = mTable.drop(Holder::request(request->first));
    mRequests.erase(request);
    publishLocked(changes);
}

::ndk::ScopedAStatus VelaService::ruleCtl(int32_t ruleId, int32_t status,
                                          const std::vector<VelaRequestData>& items, int32_t* out) {
    std::lock_guard<std::mutex> lock(mLock);
    if (items.size() > kMaxItems) {
        *out = rejectLocked(kResultBadRequest, "rule " + std::to_string(ruleId) + " with " +
                                                     std::to_string(items.size()) + " items");
        return ::ndk::ScopedAStatus::ok();
    }
    std::vector<Change> changes;
    if (status != 0) {
        Rule rule{ruleId, status, {}};
        std::string why;
        // Rule items name resources without a value to mean "leave it": they are skipped.
        if (!readResources(items, 0, /*lenient=*/true, &rule.resources, &why)) {
            *out = rejectLocked(kResultBadRequest, "rule " + std::to_string(ruleId) + ": " + why);
            return ::ndk::ScopedAStatus::ok();
        }
        if (mRules.count(ruleId) == 0 && mRules.size() >= kMaxRules) {
            *out = rejectLocked(kResultLimitReached, "too many rules on");
            return ::ndk::ScopedAStatus::ok();
        }
        changes = mTable.hold(Holder::rule(ruleId), rule.resources);
        LOGI("rule %d on (status %d, %zu resources)", ruleId, status, rule.resources.size());
        recordLocked("rule " + std::to_string(ruleId) + " on status " + std::to_string(status) +
                     " resources " + std::to_string(rule.resources.size()));
        mRules[ruleId] = std::move(rule);
    } else if (mRules.erase(ruleId) != 0) {
        changes = mTable.drop(Holder::rule(ruleId));
        LOGI("rule %d off", ruleId);
        recordLocked("rule " + std::to_string(ruleId) + " off");
    } else {
        LOGI("rule %d off (was not on)", ruleId);
    }
    publishLocked(changes);
    *out = kResultOk;
    return ::ndk::ScopedAStatus::ok();
}

int32_t VelaService::diagnosticLocked(const VelaRequestParcel& request,
                                      std::vector<std::string>* dump) {
    if (request.requestDatas.size() != 1) {
        return rejectLocked(kResultBadRequest, "diagnostic request needs exactly one item, got " +
                                                     std::to_string(request.requestDatas.size()));
    }
    const int32_t code = request.requestDatas[0].id;
    if (code >= kDumpToDoQueue && code <= kDumpRecords) {
        *dump = dumpLinesLocked(code);
        return kResultDone;
    }
    if (code == kHistoryOn || code == kHistoryOff) {
        mRecording = code == kHistoryOn;
        LOGI("history recording %s", mRecording ? "on" : "off");
        return kResultDone;
    }
    return rejectLocked(kResultBadRequest, "unknown diagnostic code " + std::to_string(code));
}

int32_t VelaService::thermalNotifyLocked(const VelaRequestParcel& request) {
    std::vector<VelaRequestData> levels;
    for (const VelaRequestData& item : request.requestDatas) {
        if (item.id == 0 && (!item.value || item.value->empty())) continue;  // an empty slot
        if (!item.value || item.value->empty() || item.value->size() > kMaxText) {
            return rejectLocked(kResultBadRequest, "thermal notification: subsystem " +
                                                         std::to_string(item.id) +
                                                         " without a usable level");
        }
        VelaRequestData level{};
        level.id = item.id;
        level.value = item.value;
        levels.push_back(std::move(level));
    }
    std::string text;
    for (const VelaRequestData& level : levels) {
        mThermalLevels[level.id] = *level.value;
        text += " " + std::to_string(level.id) + "=" + *level.value;
    }
    mThermalSequence = mThermalSequence == INT32_MAX ? 1 : mThermalSequence + 1;
    LOGI("thermal notification %d:%s", mThermalSequence, text.c_str());
    recordLocked("thermal" + text);
    for (const auto& [handle, listener] : mListeners) {
        if (!listener.thermal) continue;
        std::vector<VelaRequestData> mine;
        for (const VelaRequestData& level : levels) {
            if (listener.thermalIds.count(level.id) != 0) mine.push_back(level);
        }
        if (!mine.empty()) queueDelivery(handle, listener.callback, std::move(mine));
    }
    return mThermalSequence;
}

int32_t VelaService::notifyLocked(const VelaRequestParcel& request) {
    if (request.requestDatas.empty()) {
        return rejectLocked(kResultBadRequest, "notification without items");
    }
    const VelaRequestData& first = request.requestDatas[0];
    std::string values;
    if (request.paths) {
        for (const auto& text : *request.paths) values += " " + text.value_or("-");
    }
    LOGI("notify cmd %d param %d values%s", first.id, first.param,
         values.empty() ? " none" : values.c_str());
    recordLocked("notify cmd " + std::to_string(first.id) + " param " +
                 std::to_string(first.param) + " values" + (values.empty() ? " none" : values));
    return kResultOk;
}

::ndk::ScopedAStatus VelaService::setRelatedSysInfo(int32_t info, int64_t value, int32_t* out) {
    std::lock_guard<std::mutex> lock(mLock);
    LOGI("related system info %d = %" PRId64, info, value);
    recordLocked("sysinfo " + std::to_string(info) + "=" + std::to_string(value));
    *out = kResultOk;
    return ::ndk::ScopedAStatus::ok();
}

// --- Queries ----------------------------------------------------------------------------

::ndk::ScopedAStatus VelaService::resStateRequest(const VelaRequestParcel& request,
                                                  std::vector<VelaRequestData>* out) {
    std::lock_guard<std::mutex> lock(mLock);
    return stateLocked(request, out);
}

::ndk::ScopedAStatus VelaService::stateLocked(const VelaRequestParcel& request,
                                              std::vector<VelaRequestData>* out) {
    const auto& items = request.requestDatas;
    auto refuse = [this](const std::string& why) {
        rejectLocked(kResultBadRequest, why);
        return ::ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(kResultBadRequest,
                                                                         why.c_str());
    };
    if (items.size() > kMaxItems) {
        return refuse("state request with " + std::to_string(items.size()) + " items");
    }
    switch (request.requestType) {
        case kKindState:
            // One answer per item, in order, so that callers can read answers by position.
            for (const VelaRequestData& item : items) {
                VelaRequestData answer{};
                answer.id = item.id;
                if (item.id != 0) {
                    answer = itemFor(ResourceKey::ofOpcode(static_cast<uint32_t>(item.id)));
                } else if (item.value2 && isAcceptablePath(*item.value2)) {
                    answer = itemFor(ResourceKey::ofPath(*item.value2));
                } else if (item.value2) {
                    answer.value2 = item.value2->substr(0, kMaxText);
                }
                out->push_back(std::move(answer));
            }
            return ::ndk::ScopedAStatus::ok();
        case kKindHistory: {
            int32_t index = 0;
            for (const std::string& record : mHistory) {
                VelaRequestData answer{};
                answer.id = ++index;
                answer.value3 = record;
                out->push_back(std::move(answer));
            }
            return ::ndk::ScopedAStatus::ok();
        }
        case kKindPowerMode: {
            if (items.size() != 1) {
                return refuse("power-mode status needs exactly one item, got " +
                              std::to_string(items.size()));
            }
            const std::string& current = mProperties[kPowerModeProperty];
            VelaRequestData answer{};
            answer.id = items[0].id;
            answer.value = current == std::to_string(items[0].id) ? "1" : "0";
            out->push_back(std::move(answer));
            return ::ndk::ScopedAStatus::ok();
        }
        case kKindPowerUse: {
            // Always answered, with a number: callers read the first item unchecked.
            const PowerModel& power = mConfig.power();
            const int64_t mw = power.baseMw +
                               static_cast<int64_t>(power.perRequestMw) * mRequests.size() +
                               static_cast<int64_t>(power.perRuleMw) * mRules.size();
            VelaRequestData answer{};
            answer.id = static_cast<int32_t>(kPowerUseOpcode);
            answer.value = std::to_string(std::min<int64_t>(mw, INT32_MAX));
            out->push_back(std::move(answer));
            return ::ndk::ScopedAStatus::ok();
        }
        case kKindDataset:
            // Opcode resources only (the dataset's readers know no paths), and every entry
            // carries a value: callers read it unchecked.
            for (const auto& entry : mTable.inForce()) {
                if (!entry.first.isPath()) out->push_back(itemFor(entry.first));
            }
            return ::ndk::ScopedAStatus::ok();
        default: {
            const std::string why = "resStateRequest: unsupported request kind " +
                                    std::to_string(request.requestType);
            rejectLocked(kResultUnsupportedKind, why);
            return ::ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(kResultUnsupportedKind,
                                                                             why.c_str());
        }
    }
}

::ndk::ScopedAStatus VelaService::propertyGet(const std::string& key, std::string* out) {
    std::lock_guard<std::mutex> lock(mLock);
    if (key == "ro.vendor.vela.version") {
        *out = "1";
    } else if (key == "vendor.vela.history") {
        *out = mRecording ? "1" : "0";
    } else if (key == "vendor.vela.active_requests") {
        *out = std::to_string(mRequests.size());
    } else {
        auto it = mProperties.find(key);
        *out = it == mProperties.end() ? std::string() : it->second;
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::propertySet(const std::string& key, const std::string& value,
                                              int32_t* out) {
    std::lock_guard<std::mutex> lock(mLock);
    if (key.empty() || key.size() > 128 || key.rfind("ro.", 0) == 0 ||
        key == "vendor.vela.history" || key == "vendor.vela.active_requests") {
        *out = rejectLocked(kResultBadRequest,
                            "property \"" + key.substr(0, 128) +
                                    "\" cannot be set (empty, too long or read-only)");
    } else if (value.size() > kMaxPropertyValue) {
        *out = rejectLocked(kResultBadRequest, "property " + key + ": value of " +
                                                     std::to_string(value.size()) +
                                                     " bytes (at most " +
                                                     std::to_string(kMaxPropertyValue) + ")");
    } else {
        mProperties[key] = value;
        LOGI("property %s = %s", key.c_str(), value.c_str());
        *out = kResultOk;
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::reserved(int32_t* /*out*/) {
    return ::ndk::ScopedAStatus::fromExceptionCode(EX_UNSUPPORTED_OPERATION);
}

// --- Listeners --------------------------------------------------------------------------

::ndk::ScopedAStatus VelaService::resListeningRegister(
        const VelaRequestParcel& request, const std::shared_ptr<IVelaCallback>& callback,
        int32_t* out) {
    Listener listener;
    listener.callback = callback;
    std::string why;
    if (request.requestDatas.size() > kMaxItems) {
        why = std::to_string(request.requestDatas.size()) + " items";
    } else {
        for (const VelaRequestData& item : request.requestDatas) {
            if (item.id != 0) {
                listener.keys.push_back(ResourceKey::ofOpcode(static_cast<uint32_t>(item.id)));
            } else if (item.value2 && !item.value2->empty()) {
                if (!isAcceptablePath(*item.value2)) {
                    why = "path refused";
                    break;
                }
                listener.keys.push_back(ResourceKey::ofPath(*item.value2));
            }
        }
    }
    if (!why.empty()) {
        std::lock_guard<std::mutex> lock(mLock);
        *out = rejectLocked(kResultBadRequest, "resListeningRegister: " + why);
        return ::ndk::ScopedAStatus::ok();
    }
    *out = addListener(std::move(listener), "resource listener");
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::thermalListeningRegister(
        const std::vector<int32_t>& ids, const std::shared_ptr<IVelaCallback>& callback,
        int32_t* out) {
    if (ids.size() > kMaxItems) {
        std::lock_guard<std::mutex> lock(mLock);
        *out = rejectLocked(kResultBadRequest, "thermalListeningRegister: too many ids");
        return ::ndk::ScopedAStatus::ok();
    }
    Listener listener;
    listener.thermal = true;
    listener.thermalIds.insert(ids.begin(), ids.end());
    listener.callback = callback;
    *out = addListener(std::move(listener), "thermal listener");
    return ::ndk::ScopedAStatus::ok();
}

int32_t VelaService::addListener(Listener listener, const char* what) {
    if (listener.callback == nullptr) {
        std::lock_guard<std::mutex> lock(mLock);
        return rejectLocked(kResultBadRequest, std::string(what) + " without a callback");
    }
    listener.pid = AIBinder_getCallingPid();

    // Link outside the service lock: the runtime may run a death notification meanwhile.
    uint64_t link;
    {
        std::lock_guard<std::mutex> links(gLinksLock);
        link = gNextLink++;
        gLinks[link] = this;
    }
    ::ndk::SpAIBinder binder = listener.callback->asBinder();
    binder_status_t linked =
            AIBinder_linkToDeath(binder.get(), mDeathRecipient.get(), cookieOf(link));
    if (linked != STATUS_OK) {
        forgetLink(link);
        if (linked == STATUS_DEAD_OBJECT) {
            std::lock_guard<std::mutex> lock(mLock);
            return rejectLocked(kResultBadRequest, std::string(what) + ": the client is gone");
        }
        link = 0;  // a callback in this very process: it cannot die on its own
    }

    std::unique_lock<std::mutex> lock(mLock);
    if (mListeners.size() >= kMaxListeners) {
        const int32_t result = rejectLocked(
                kResultLimitReached, "too many listeners (" + std::to_string(kMaxListeners) + ")");
        lock.unlock();  // the link registry is never taken under the service lock
        if (link != 0) {
            AIBinder_unlinkToDeath(binder.get(), mDeathRecipient.get(), cookieOf(link));
            forgetLink(link);
        }
        return result;
    }
    listener.link = link;
    listener.handle = newHandleLocked();
    std::string on;
    for (const ResourceKey& key : listener.keys) on += " " + key.toString();
    for (int32_t id : listener.thermalIds) on += " " + std::to_string(id);
    LOGI("%s %d for pid %d on%s", what, listener.handle, listener.pid,
         on.empty() ? " nothing" : on.c_str());
    const int32_t handle = listener.handle;
    mListeners.emplace(handle, std::move(listener));
    return handle;
}

::ndk::ScopedAStatus VelaService::resListeningUnregister(int32_t handle, int32_t* out) {
    *out = removeListener(handle, false, "resListeningUnregister");
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::thermalListeningUnregister(int32_t handle, int32_t* out) {
    *out = removeListener(handle, true, "thermalListeningUnregister");
    return ::ndk::ScopedAStatus::ok();
}

int32_t VelaService::removeListener(int32_t handle, bool thermal, const char* what) {
    std::shared_ptr<IVelaCallback> callback;
    uint64_t link = 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mListeners.find(handle);
        if (it == mListeners.end()) {
            return rejectLocked(
                    kResultUnknownHandle,
                    std::string(what) + ": no listener with handle " + std::to_string(handle));
        }
        if (it->second.thermal != thermal) {
            LOGW("%s: handle %d is a %s listener; removed all the same", what, handle,
                 it->second.thermal ? "thermal" : "resource");
        }
        callback = std::move(it->second.callback);
        link = it->second.link;
        mListeners.erase(it);
        LOGI("%s handle %d", what, handle);
    }
    if (link != 0) {
        AIBinder_unlinkToDeath(callback->asBinder().get(), mDeathRecipient.get(), cookieOf(link));
        forgetLink(link);
    }
    return kResultOk;
}

void VelaService::forgetLink(uint64_t link) {
    std::lock_guard<std::mutex> links(gLinksLock);
    gLinks.erase(link);
}

void VelaService::onClientDied(void* cookie) {
    const uint64_t link = reinterpret_cast<uintptr_t>(cookie);
    std::lock_guard<std::mutex> links(gLinksLock);
    auto found = gLinks.find(link);
    if (found == gLinks.end()) return;
    VelaService* self = found->second;
    gLinks.erase(found);
    std::lock_guard<std::mutex> lock(self->mLock);
    for (auto it = self->mListeners.begin(); it != self->mListeners.end(); ++it) {
        if (it->second.link != link) continue;
        LOGI("client of listener %d (pid %d) died: listener dropped", it->first, it->second.pid);
        self->mListeners.erase(it);
        ++self->mCounters.clientsLost;
        break;
    }
}

void VelaService::publishLocked(const std::vector<Change>& changes) {
    if (changes.empty()) return;
    // Written under the lock on purpose: the files must change in the order the values did.
    if (mMirror) {
        for (const Change& change : changes) {
            std::string error;
            if (change.key.isPath() && !mMirror->apply(change.key.path, change.after, &error)) {
                LOGE("sysfs mirror: %s", error.c_str());
            }
        }
    }
    for (const auto& [handle, listener] : mListeners) {
        if (listener.thermal) continue;
        std::vector<VelaRequestData> items;
        for (const Change& change : changes) {
            if (std::find(listener.keys.begin(), listener.keys.end(), change.key) !=
                listener.keys.end()) {
                items.push_back(itemFor(change.key));
            }
        }
        if (!items.empty()) queueDelivery(handle, listener.callback, std::move(items));
    }
}

void VelaService::queueDelivery(int32_t listener, std::shared_ptr<IVelaCallback> callback,
                                std::vector<VelaRequestData> items) {
    mNotifier->post([this, listener, callback = std::move(callback),
                     items = std::move(items)]() mutable {
        deliver(listener, std::move(callback), std::move(items));
    });
}

void VelaService::deliver(int32_t listener, std::shared_ptr<IVelaCallback> callback,
                          std::vector<VelaRequestData> items) {
    ::ndk::ScopedAStatus status = callback->onCallback(items);
    std::unique_lock<std::mutex> lock(mLock);
    if (status.isOk()) {
        ++mCounters.delivered;
        if (auto it = mListeners.find(listener); it != mListeners.end()) ++it->second.delivered;
        return;
    }
    ++mCounters.failedDeliveries;
    LOGW("callback to %s %d failed: %s", listener != 0 ? "listener" : "request callback", listener,
         status.getDescription().c_str());
    // A client that is gone will not come back on this callback: stop calling it.
    if (listener != 0 && status.getStatus() == STATUS_DEAD_OBJECT) {
        auto it = mListeners.find(listener);
        if (it != mListeners.end() && it->second.callback == callback) {
            LOGI("listener %d dropped: its client is gone", listener);
            const uint64_t link = it->second.link;
            mListeners.erase(it);
            ++mCounters.clientsLost;
            lock.unlock();  // the link registry is never taken under the service lock
            if (link != 0) forgetLink(link);
        }
    }
}

// --- Helpers ----------------------------------------------------------------------------

VelaRequestData VelaService::itemFor(const ResourceKey& key) const {
    VelaRequestData item{};
    item.id = static_cast<int32_t>(key.opcode);
    item.value = mTable.valueOf(key);
    if (key.isPath()) item.value2 = key.path;
    return item;
}

int32_t VelaService::newHandleLocked() {
    // Handles of requests and listeners share one space, so that no handle means two things.
    while (true) {
        const int32_t handle = mNextHandle;
        mNextHandle = mNextHandle == INT32_MAX ? 1 : mNextHandle + 1;
        if (mRequests.count(handle) == 0 && mListeners.count(handle) == 0) return handle;
    }
}

void VelaService::recordLocked(std::string text) {
    if (!mRecording) return;
    // Clients join records with ';'.
    std::replace(text.begin(), text.end(), ';', ',');
    mHistory.push_back(wallClock() + " " + text);
    while (mHistory.size() > mHistoryLimit) mHistory.pop_front();
}

std::string VelaService::nameOf(const ResourceKey& key) const {
    const ResourceInfo* info = mConfig.infoFor(key);
    return info != nullptr ? info->name : std::string();
}

std::string VelaService::describeLocked(const Request& request) const {
    std::ostringstream text;
    text << "handle " << request.handle << " " << kindName(request.kind);
    if (request.event) {
        text << " " << *request.event;
        if (const Scenario* scenario = mConfig.scenarioFor(*request.event)) {
            if (!scenario->action.empty()) text << " (" << scenario->action << ")";
        }
    }
    text << " pkg " << orNone(request.package) << " identity " << orNone(request.identity)
         << " pid " << request.pid;
    if (request.durationMs > 0) {
        text << " for " << request.durationMs << " ms";
    } else {
        text << " until released";
    }
    text << ", " << counted(request.resources.size(), "resource");
    return text.str();
}

int32_t VelaService::rejectLocked(int32_t result, const std::string& why) {
    ++mCounters.rejected;
    LOGE("refused (%s, %d): %s", resultName(result), result, why.c_str());
    return result;
}

std::optional<std::string> VelaService::valueOf(const ResourceKey& key) const {
    std::lock_guard<std::mutex> lock(mLock);
    return mTable.valueOf(key);
}

void VelaService::waitForDeliveries() {
    mNotifier->drain();
}

VelaService::Stats VelaService::stats() const {
    std::lock_guard<std::mutex> lock(mLock);
    Stats stats = mCounters;
    stats.requests = mRequests.size();
    stats.listeners = mListeners.size();
    stats.rules = mRules.size();
    stats.recording = mRecording;
    return stats;
}

std::vector<std::string> VelaService::dumpLinesLocked(int32_t code) const {
    std::vector<std::string> lines;
    auto add = [&lines](const std::string& line) { lines.push_back("  " + line); };
    const auto now = Clock::now();
    auto msLeft = [now](Clock::time_point deadline) {
        return std::max<int64_t>(
                0, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count());
    };
    auto withName = [this](const ResourceKey& key) {
        std::string name = nameOf(key);
        return name.empty() ? key.toString() : key.toString() + " " + name;
    };

    switch (code) {
        case kDumpToDoQueue:
            lines.push_back("to-do queue:");
            add("callbacks waiting: " + std::to_string(mNotifier->pending()));
            for (const auto& [handle, request] : mRequests) {
                if (request.deadline) {
                    add("expire handle " + std::to_string(handle) + " in " +
                        std::to_string(msLeft(*request.deadline)) + " ms");
                }
            }
            break;
        case kDumpRunMap:
            lines.push_back("run map (" + counted(mRequests.size(), "request") + ", " +
                            counted(mRules.size(), "rule") + "):");
            for (const auto& [handle, request] : mRequests) {
                std::string line = describeLocked(request);
                if (request.deadline) {
                    line += ", " + std::to_string(msLeft(*request.deadline)) + " ms left";
                }
                add(line);
            }
            for (const auto& [id, rule] : mRules) {
                add("rule " + std::to_string(id) + " status " + std::to_string(rule.status) + ", " +
                    counted(rule.resources.size(), "resource"));
            }
            break;
        case kDumpActiveResources:
            lines.push_back("resources in force:");
            for (const auto& [key, value] : mTable.inForce()) {
                const auto holder = mTable.holderOf(key);
                add(withName(key) + " = " + value + " (" +
                    (holder ? holder->toString() + ", depth " + std::to_string(mTable.depthOf(key))
                            : std::string("default")) +
                    ")");
            }
            break;
        case kDumpRequests:
            lines.push_back("requests:");
            for (const auto& [handle, request] : mRequests) {
                add(describeLocked(request));
                for (const auto& [key, value] : request.resources) {
                    add("  " + withName(key) + " = " + value);
                }
            }
            break;
        case kDumpResourceInfo:
            lines.push_back("resource info (" + std::to_string(mConfig.resources().size()) +
                            " known):");
            for (const ResourceInfo& info : mConfig.resources()) {
                add(withName(info.key) + " default " + info.defaultValue.value_or("(none)"));
            }
            break;
        case kDumpScenarios:
            lines.push_back("scenarios (" + std::to_string(mConfig.scenarios().size()) + "):");
            for (const auto& [event, scenario] : mConfig.scenarios()) {
                add("event " + std::to_string(event) + " " + scenario.action + ": " +
                    counted(scenario.resources.size(), "resource") +
                    (scenario.description.empty() ? "" : " - " + scenario.description));
            }
            break;
        case kDumpClients: {
            lines.push_back("clients:");
            std::map<pid_t, std::string> byPid;
            for (const auto& [handle, request] : mRequests) {
                byPid[request.pid] += " request " + std::to_string(handle);
            }
            for (const auto& [handle, listener] : mListeners) {
                byPid[listener.pid] += " listener " + std::to_string(handle);
            }
            for (const auto& [pid, what] : byPid) add("pid " + std::to_string(pid) + ":" + what);
            break;
        }
        case kDumpClientMonitors:
            lines.push_back("listeners (" + std::to_string(mListeners.size()) + "):");
            for (const auto& [handle, listener] : mListeners) {
                add(std::string(listener.thermal ? "thermal" : "resource") + " listener " +
                    std::to_string(handle) + " pid " + std::to_string(listener.pid) +
                    (listener.link != 0 ? ", death linked" : ", in process") + ", " +
                    std::to_string(listener.delivered) + " callbacks delivered");
            }
            for (const auto& [id, level] : mThermalLevels) {
                add("thermal subsystem " + std::to_string(id) + " level " + level);
            }
            break;
        case kDumpRecords:
            lines.push_back("history (" + std::to_string(mHistory.size()) + " records, recording " +
                            (mRecording ? "on" : "off") + "):");
            for (const std::string& record : mHistory) add(record);
            break;
        default:
            break;
    }
    return lines;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
