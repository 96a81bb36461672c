// Reporting usage scenarios and requesting resources.
#include <string>

#include "PaxItems.h"
#include "PaxTrace.h"
#include "pax.h"

using namespace pax;

namespace {

// Command ids that choose the request kind instead of travelling as the leading item.
constexpr int32_t kCmdResources = -2;
constexpr int32_t kCmdPlatformResources = -3;

constexpr int32_t kKindEvent = 8;
constexpr int32_t kKindResources = 1;
constexpr int32_t kKindPlatformResources = 12;

const char* orNone(const std::string& text) {
    return text.empty() ? "none" : text.c_str();
}

}  // namespace

extern "C" PAX_EXPORT int32_t PaxEventAcquire(int32_t cmdid, const std::string& pkg,
                                              const std::string& identity, int32_t duration,
                                              std::vector<PaxClient::Resource>& resources) {
    paxTraceInstant("PaxEventAcquire  cmd_id:%d pkg:%s identity:%s duration:%d", cmdid,
                    orNone(pkg), orNone(identity), duration);
    PAX_LOGI("PaxEventAcquire, cmdid:%d, pkg:%s, identity:%s", cmdid, orNone(pkg),
             orNone(identity));
    if (!paxConnect()) return -1;

    int32_t handle = -1;
    PaxCallResult result = paxCall("PaxEventAcquire", [&](IVela& hal) {
        VelaRequestParcel parcel{};
        parcel.requestType = kKindEvent;
        parcel.packageName = pkg;
        parcel.identity = identity;
        parcel.param2 = duration;
        if (cmdid == kCmdPlatformResources) {
            parcel.requestType = kKindPlatformResources;
        } else if (cmdid == kCmdResources) {
            parcel.requestType = kKindResources;
        } else {
            parcel.requestDatas.push_back(plainItem(cmdid));
        }
        appendResourceItems(resources, parcel.requestDatas);
        return hal.resCtlRequest(parcel, &handle);
    });
    if (result == PaxCallResult::kFailed) {
        PAX_LOGE("velaResCtlRequest error:%d", handle);
        return -1;
    }
    return result == PaxCallResult::kOk ? handle : -1;
}

extern "C" PAX_EXPORT int32_t PaxResAcquire(std::vector<PaxClient::Resource>& resources,
                                            void* /*reserved*/, const std::string& identity,
                                            int32_t duration) {
    PAX_LOGI("PaxResAcquire");
    return PaxEventAcquire(kCmdResources, std::string(), identity, duration, resources);
}

extern "C" PAX_EXPORT int32_t PaxPlatformResAcquire(std::vector<PaxClient::Resource>& resources,
                                                    void* /*reserved*/, const std::string& identity,
                                                    const std::string& pkg, int32_t duration) {
    PAX_LOGI("PaxPlatformResAcquire");
    return PaxEventAcquire(kCmdPlatformResources, pkg, identity, duration, resources);
}
