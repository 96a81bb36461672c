#include "ServiceState.h"

#include <android/binder_ibinder.h>
#include <android/log.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <random>

#include "ServiceWords.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

void serviceLog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    __android_log_vprint(priority, kVelaLogTag, format, args);
    va_end(args);
}

ServiceState::ServiceState(ScenarioConfig config, size_t historyLimit,
                           std::shared_ptr<TraceWriter> trace, std::shared_ptr<VirtualClock> clock)
    : config(std::move(config)),
      historyLimit(std::max<size_t>(historyLimit, 1)),
      trace(std::move(trace)),
      virtualClock(std::move(clock)),
      mEpoch(static_cast<int32_t>(1 + std::random_device()() % (INT32_MAX >> kSerialBits))) {}

int32_t ServiceState::newHandle() {
    while (true) {
        const int32_t handle = (mEpoch << kSerialBits) | mNextSerial;
        mNextSerial = mNextSerial == kSerialMask ? 1 : mNextSerial + 1;
        if (requests.count(handle) == 0 && listeners.count(handle) == 0) return handle;
    }
}

bool ServiceState::isOfThisRun(int32_t handle) const {
    return handle > 0 && (handle >> kSerialBits) == mEpoch;
}

void ServiceState::record(std::string text) {
    if (!recording) return;
    // Clients join records with ';'.
    std::replace(text.begin(), text.end(), ';', ',');
    history.push_back(timeOfDay(std::chrono::system_clock::now()) + " " + text);
    while (history.size() > historyLimit) history.pop_front();
}

int32_t ServiceState::reject(int32_t result, const std::string& why) {
    ++counters.rejected;
    serviceLog(ANDROID_LOG_ERROR, "refused (%s, %d): %s", resultName(result), result, why.c_str());
    refusals.add(callingPid(), result, why);
    return result;
}

VelaRequestData ServiceState::itemFor(const ResourceKey& key) const {
    VelaRequestData item{};
    item.id = static_cast<int32_t>(key.opcode);
    item.value = table.valueOf(key);
    if (key.isPath()) item.value2 = key.path;
    return item;
}

std::string ServiceState::nameOf(const ResourceKey& key) const {
    const ResourceInfo* info = config.infoFor(key);
    return info != nullptr ? info->name : std::string();
}

std::string ServiceState::labelOf(const ResourceKey& key) const {
    std::string name = nameOf(key);
    return name.empty() ? key.toString() : key.toString() + " " + name;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
