#include "VelaService.h"

#include <android/binder_ibinder.h>
#include <android/log.h>

#include <algorithm>
#include <cinttypes>

#include "DiagnosticDumps.h"
#include "JsonText.h"
#include "RequestItemKey.h"
#include "ServiceDumpsys.h"
#include "ServiceProperties.h"
#include "ServiceWords.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

bool VelaService::Options::openFiles(const std::string& tracePath, const std::string& recordPath,
                                     std::string* error) {
    if (!tracePath.empty()) {
        trace = TraceWriter::open(tracePath, error);
        if (!trace) return false;
    }
    if (!recordPath.empty()) {
        recorder = CallRecorder::open(recordPath, error);
        if (!recorder) return false;
    }
    return true;
}

VelaService::VelaService() : VelaService(Options{}) {}

VelaService::VelaService(Options options)
    : mState(std::move(options.config), options.historyLimit, std::move(options.trace),
             std::move(options.clock)),
      mListeners(mState, mLock),
      mRequests(mState, mListeners, mLock) {
    mState.recorder = std::move(options.recorder);
    for (const ResourceInfo& info : mState.config.resources()) {
        if (info.defaultValue) mState.table.setDefault(info.key, *info.defaultValue);
        mState.table.setArbitration(info.key, info.arbitration);
    }
    for (const auto& [floor, ceiling] : mState.config.bounds()) {
        mState.table.setBound(floor, ceiling);
    }
    mState.properties[kPowerModeProperty] = "0";
    if (!options.sysfsRoot.empty()) {
        mState.mirror = std::make_unique<SysfsMirror>(options.sysfsRoot);
        for (const auto& [key, value] : mState.table.inForce()) {
            std::string error;
            if (key.isPath() && !mState.mirror->apply(key.path, value, &error)) {
                serviceLog(ANDROID_LOG_ERROR, "sysfs mirror: %s", error.c_str());
            }
        }
    }
    if (mState.trace) {
        for (const auto& [key, value] : mState.table.inForce()) {
            mState.trace->counter(traceTrack(mState, key), value);
        }
    }
    serviceLog(ANDROID_LOG_INFO, "ready: %zu resources, %zu scenarios%s%s",
               mState.config.resources().size(), mState.config.scenarios().size(),
               mState.mirror ? ", sysfs mirror under " : "",
               mState.mirror ? mState.mirror->root().c_str() : "");
}

// The parts stop their own threads as they go, in the reverse order of their declaration.
VelaService::~VelaService() = default;

// --- Requests ---------------------------------------------------------------------------

::ndk::ScopedAStatus VelaService::init() {
    serviceLog(ANDROID_LOG_INFO, "init from pid %d", AIBinder_getCallingPid());
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::resCtlRequest(const VelaRequestParcel& request, int32_t* out) {
    ServingCall serving("resCtlRequest");
    std::vector<std::string> dump;
    {
        std::lock_guard<std::mutex> lock(mLock);
        *out = controlLocked(request, &dump);
        // Recorded under the lock, so that the record's order is the order of the changes.
        if (mState.recorder && changesState(request)) {
            mState.recorder->call("resCtlRequest", CallRecorder::parcelArgs(request), *out);
        }
    }
    // A dump can run to thousands of lines: writing them must not hold up other clients.
    for (const std::string& line : dump) serviceLog(ANDROID_LOG_INFO, "%s", line.c_str());
    return ::ndk::ScopedAStatus::ok();
}

// A dump only reads the state: a replay has no use for it, and a record full of them says less.
bool VelaService::changesState(const VelaRequestParcel& request) {
    if (request.requestType != kKindDiagnostic || request.requestDatas.size() != 1) return true;
    const int32_t code = request.requestDatas[0].id;
    return code < kDumpToDoQueue || code > kDumpRecords;
}

int32_t VelaService::controlLocked(const VelaRequestParcel& request,
                                   std::vector<std::string>* dump) {
    if (request.requestDatas.size() > kMaxItems) {
        return mState.reject(kResultBadRequest,
                             "request of kind " + std::to_string(request.requestType) + " with " +
                                     std::to_string(request.requestDatas.size()) +
                                     " items (at most " + std::to_string(kMaxItems) + ")");
    }
    switch (request.requestType) {
        case kKindControl:
        case kKindSaControl:
        case kKindEvent:
        case kKindPlatform:
            return mRequests.acquireLocked(request);
        case kKindDiagnostic:
            return diagnosticLocked(request, dump);
        case kKindThermal:
            return thermalNotifyLocked(request);
        case kKindNotify:
            return notifyLocked(request);
        default:
            return mState.reject(kResultUnsupportedKind,
                                 "resCtlRequest: unsupported request kind " +
                                         std::to_string(request.requestType));
    }
}

::ndk::ScopedAStatus VelaService::resCtlRelease(int32_t handle, int32_t* out) {
    ServingCall serving("resCtlRelease");
    std::lock_guard<std::mutex> lock(mLock);
    *out = mRequests.releaseLocked(handle, "release");
    if (mState.recorder) {
        mState.recorder->call("resCtlRelease", "\"handle\":" + std::to_string(handle), *out);
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::ruleCtl(int32_t ruleId, int32_t status,
                                          const std::vector<VelaRequestData>& items, int32_t* out) {
    ServingCall serving("ruleCtl");
    std::lock_guard<std::mutex> lock(mLock);
    *out = mRequests.ruleLocked(ruleId, status, items);
    if (mState.recorder) {
        mState.recorder->call("ruleCtl",
                              "\"ruleId\":" + std::to_string(ruleId) +
                                      ",\"status\":" + std::to_string(status) +
                                      ",\"items\":" + CallRecorder::itemsJson(items),
                              *out);
    }
    return ::ndk::ScopedAStatus::ok();
}

int32_t VelaService::diagnosticLocked(const VelaRequestParcel& request,
                                      std::vector<std::string>* dump) {
    if (request.requestDatas.size() != 1) {
        return mState.reject(kResultBadRequest,
                             "diagnostic request needs exactly one item, got " +
                                     std::to_string(request.requestDatas.size()));
    }
    const int32_t code = request.requestDatas[0].id;
    if (code >= kDumpToDoQueue && code <= kDumpRecords) {
        *dump = dumpLines(mState, code, mListeners.pendingDeliveries());
        return kResultDone;
    }
    if (code == kHistoryOn || code == kHistoryOff) {
        mState.recording = code == kHistoryOn;
        serviceLog(ANDROID_LOG_INFO, "history recording %s", mState.recording ? "on" : "off");
        return kResultDone;
    }
    return mState.reject(kResultBadRequest, "unknown diagnostic code " + std::to_string(code));
}

int32_t VelaService::thermalNotifyLocked(const VelaRequestParcel& request) {
    std::vector<VelaRequestData> levels;
    for (const VelaRequestData& item : request.requestDatas) {
        if (item.id == 0 && (!item.value || item.value->empty())) continue;  // an empty slot
        if (!item.value || item.value->empty() || item.value->size() > kMaxText) {
            return mState.reject(kResultBadRequest, "thermal notification: subsystem " +
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
        mState.thermalLevels[level.id] = *level.value;
        text += " " + std::to_string(level.id) + "=" + *level.value;
    }
    mState.thermalSequence = mState.thermalSequence == INT32_MAX ? 1 : mState.thermalSequence + 1;
    serviceLog(ANDROID_LOG_INFO, "thermal notification %d:%s", mState.thermalSequence,
               text.c_str());
    mState.record("thermal" + text);
    if (mState.trace) mState.trace->instant("thermal", "thermal" + text, {});
    mListeners.notifyThermalLocked(levels);
    return mState.thermalSequence;
}

int32_t VelaService::notifyLocked(const VelaRequestParcel& request) {
    if (request.requestDatas.empty()) {
        return mState.reject(kResultBadRequest, "notification without items");
    }
    const VelaRequestData& first = request.requestDatas[0];
    std::string values;
    if (request.paths) {
        for (const auto& text : *request.paths) values += " " + text.value_or("-");
    }
    serviceLog(ANDROID_LOG_INFO, "notify cmd %d param %d values%s", first.id, first.param,
               values.empty() ? " none" : values.c_str());
    const std::string what = "notify cmd " + std::to_string(first.id) + " param " +
                             std::to_string(first.param) + " values" +
                             (values.empty() ? " none" : values);
    mState.record(what);
    if (mState.trace) mState.trace->instant("notify", what, {});
    return kResultOk;
}

::ndk::ScopedAStatus VelaService::setRelatedSysInfo(int32_t info, int64_t value, int32_t* out) {
    std::lock_guard<std::mutex> lock(mLock);
    serviceLog(ANDROID_LOG_INFO, "related system info %d = %" PRId64, info, value);
    mState.record("sysinfo " + std::to_string(info) + "=" + std::to_string(value));
    *out = kResultOk;
    if (mState.recorder) {
        mState.recorder->call(
                "setRelatedSysInfo",
                "\"info\":" + std::to_string(info) + ",\"value\":" + std::to_string(value), *out);
    }
    return ::ndk::ScopedAStatus::ok();
}

// --- Queries ----------------------------------------------------------------------------

::ndk::ScopedAStatus VelaService::resStateRequest(const VelaRequestParcel& request,
                                                  std::vector<VelaRequestData>* out) {
    ServingCall serving("resStateRequest");
    std::lock_guard<std::mutex> lock(mLock);
    return stateLocked(request, out);
}

::ndk::ScopedAStatus VelaService::stateLocked(const VelaRequestParcel& request,
                                              std::vector<VelaRequestData>* out) {
    const auto& items = request.requestDatas;
    auto refuse = [this](const std::string& why) {
        mState.reject(kResultBadRequest, why);
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
                const RequestItemKey named = keyOfItem(item);
                if (named.kind == RequestItemKey::Kind::kResource) {
                    answer = mState.itemFor(named.key);
                } else if (item.value2) {
                    answer.value2 = item.value2->substr(0, kMaxText);
                }
                out->push_back(std::move(answer));
            }
            return ::ndk::ScopedAStatus::ok();
        case kKindHistory: {
            int32_t index = 0;
            for (const std::string& record : mState.history) {
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
            const std::string& current = mState.properties[kPowerModeProperty];
            VelaRequestData answer{};
            answer.id = items[0].id;
            answer.value = current == std::to_string(items[0].id) ? "1" : "0";
            out->push_back(std::move(answer));
            return ::ndk::ScopedAStatus::ok();
        }
        case kKindPowerUse: {
            // Always answered, with a number: callers read the first item unchecked.
            const PowerModel& power = mState.config.power();
            const int64_t mw = power.baseMw +
                               static_cast<int64_t>(power.perRequestMw) * mState.requests.size() +
                               static_cast<int64_t>(power.perRuleMw) * mState.rules.size();
            VelaRequestData answer{};
            answer.id = static_cast<int32_t>(kPowerUseOpcode);
            answer.value = std::to_string(std::min<int64_t>(mw, INT32_MAX));
            out->push_back(std::move(answer));
            return ::ndk::ScopedAStatus::ok();
        }
        case kKindDataset:
            // Opcode resources only (the dataset's readers know no paths), and every entry
            // carries a value: callers read it unchecked.
            for (const auto& entry : mState.table.inForce()) {
                if (!entry.first.isPath()) out->push_back(mState.itemFor(entry.first));
            }
            return ::ndk::ScopedAStatus::ok();
        default: {
            const std::string why = "resStateRequest: unsupported request kind " +
                                    std::to_string(request.requestType);
            mState.reject(kResultUnsupportedKind, why);
            return ::ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(kResultUnsupportedKind,
                                                                             why.c_str());
        }
    }
}

::ndk::ScopedAStatus VelaService::propertyGet(const std::string& key, std::string* out) {
    std::lock_guard<std::mutex> lock(mLock);
    if (key == kVersionProperty) {
        *out = "1";
    } else if (key == kHistoryProperty) {
        *out = mState.recording ? "1" : "0";
    } else if (key == kActiveRequestsProperty) {
        *out = std::to_string(mState.requests.size());
    } else {
        auto it = mState.properties.find(key);
        *out = it == mState.properties.end() ? std::string() : it->second;
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::propertySet(const std::string& key, const std::string& value,
                                              int32_t* out) {
    ServingCall serving("propertySet");
    std::lock_guard<std::mutex> lock(mLock);
    if (!isWritablePropertyKey(key)) {
        *out = mState.reject(kResultBadRequest,
                             "property \"" + key.substr(0, kMaxPropertyKey) +
                                     "\" cannot be set (empty, too long or read-only)");
    } else if (value.size() > kMaxPropertyValue) {
        *out = mState.reject(kResultBadRequest,
                             "property " + key + ": value of " + std::to_string(value.size()) +
                                     " bytes (at most " + std::to_string(kMaxPropertyValue) + ")");
    } else {
        mState.properties[key] = value;
        serviceLog(ANDROID_LOG_INFO, "property %s = %s", key.c_str(), value.c_str());
        *out = kResultOk;
    }
    if (mState.recorder) {
        std::string args = "\"key\":";
        appendJsonString(&args, key);
        args += ",\"value\":";
        appendJsonString(&args, value);
        mState.recorder->call("propertySet", args, *out);
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
    ServingCall serving("resListeningRegister");
    Listener listener;
    listener.callback = callback;
    std::string why;
    if (request.requestDatas.size() > kMaxItems) {
        why = std::to_string(request.requestDatas.size()) + " items";
    } else {
        for (const VelaRequestData& item : request.requestDatas) {
            const RequestItemKey named = keyOfItem(item);
            if (named.kind == RequestItemKey::Kind::kBadPath) {
                why = "path refused";
                break;
            }
            if (named.kind == RequestItemKey::Kind::kResource) listener.keys.push_back(named.key);
        }
    }
    *out = registerListener(std::move(listener), "resource listener",
                            why.empty() ? why : "resListeningRegister: " + why);
    if (mState.recorder) {
        mState.recorder->call("resListeningRegister", CallRecorder::parcelArgs(request), *out);
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::thermalListeningRegister(
        const std::vector<int32_t>& ids, const std::shared_ptr<IVelaCallback>& callback,
        int32_t* out) {
    ServingCall serving("thermalListeningRegister");
    Listener listener;
    listener.thermal = true;
    listener.callback = callback;
    const bool tooMany = ids.size() > kMaxItems;
    if (!tooMany) listener.thermalIds.insert(ids.begin(), ids.end());
    *out = registerListener(std::move(listener), "thermal listener",
                            tooMany ? "thermalListeningRegister: too many ids" : "");
    if (mState.recorder) {
        std::string args = "\"ids\":[";
        for (size_t i = 0; i < ids.size(); ++i) args += (i ? "," : "") + std::to_string(ids[i]);
        mState.recorder->call("thermalListeningRegister", args + "]", *out);
    }
    return ::ndk::ScopedAStatus::ok();
}

int32_t VelaService::registerListener(Listener listener, const char* what,
                                      const std::string& refusal) {
    if (!refusal.empty()) {
        std::lock_guard<std::mutex> lock(mLock);
        return mState.reject(kResultBadRequest, refusal);
    }
    return mListeners.add(std::move(listener), what);
}

::ndk::ScopedAStatus VelaService::resListeningUnregister(int32_t handle, int32_t* out) {
    ServingCall serving("resListeningUnregister");
    *out = mListeners.remove(handle, false, "resListeningUnregister");
    if (mState.recorder) {
        mState.recorder->call("resListeningUnregister", "\"handle\":" + std::to_string(handle),
                              *out);
    }
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus VelaService::thermalListeningUnregister(int32_t handle, int32_t* out) {
    ServingCall serving("thermalListeningUnregister");
    *out = mListeners.remove(handle, true, "thermalListeningUnregister");
    if (mState.recorder) {
        mState.recorder->call("thermalListeningUnregister", "\"handle\":" + std::to_string(handle),
                              *out);
    }
    return ::ndk::ScopedAStatus::ok();
}

// --- dumpsys ----------------------------------------------------------------------------

binder_status_t VelaService::dump(int fd, const char** args, uint32_t numArgs) {
    return answerDumpsys(fd, args, numArgs, mLock, mState);
}

// --- For the embedding tool and tests ---------------------------------------------------

std::optional<std::string> VelaService::valueOf(const ResourceKey& key) const {
    std::lock_guard<std::mutex> lock(mLock);
    return mState.table.valueOf(key);
}

void VelaService::waitForDeliveries() {
    mListeners.waitForDeliveries();
}

std::vector<VelaService::InForce> VelaService::valuesInForce() const {
    std::lock_guard<std::mutex> lock(mLock);
    std::vector<InForce> out;
    for (auto& [key, value] : mState.table.inForce()) {
        out.push_back({key, std::move(value), mState.table.holderOf(key)});
    }
    return out;
}

std::set<int32_t> VelaService::activeHandles() const {
    std::lock_guard<std::mutex> lock(mLock);
    std::set<int32_t> handles;
    for (const auto& entry : mState.requests) handles.insert(entry.first);
    return handles;
}

VelaService::Stats VelaService::stats() const {
    std::lock_guard<std::mutex> lock(mLock);
    Stats stats = mState.counters;
    stats.requests = mState.requests.size();
    stats.listeners = mState.listeners.size();
    stats.rules = mState.rules.size();
    stats.recording = mState.recording;
    return stats;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
