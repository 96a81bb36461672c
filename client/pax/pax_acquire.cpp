// Reporting usage scenarios and requesting resources.
#include <string>

#include "pax.h"
#include "pax_items.h"
#include "pax_trace.h"

using namespace pax;

namespace {

// Command ids that choose the request kind instead of travelling as the leading item.
constexpr int32_t kCmdResources = -2;
constexpr int32_t kCmdPlatformResources = -3;

const char* orNone(const std::string& text) {
    return text.empty() ? "none" : text.c_str();
}

}  // namespace

extern "C" PAX_EXPORT int32_t PaxEventAcquire(int32_t cmdid, const std::string& pkg,
                                              const std::string& identity, int32_t duration,
                                              std::vector<PaxClient::Resource>& resources) {
    paxTraceInstant("PaxEventAcquire  cmd_id:%d pkg:%s identity:%s duration:%d", cmdid, orNone(pkg),
                    orNone(identity), duration);
    PAX_LOG(INFO, "PaxEventAcquire, cmdid:%d, pkg:%s, identity:%s", cmdid, orNone(pkg),
            orNone(identity));

    int32_t handle = -1;
    PaxCallResult result = paxCall("PaxEventAcquire", [&](IVela& hal) {
        VelaRequestParcel parcel{};
        parcel.requestType = protocol::kKindEvent;
        parcel.packageName = pkg;
        parcel.identity = identity;
        parcel.param2 = duration;
        if (cmdid == kCmdPlatformResources) {
            parcel.requestType = protocol::kKindPlatform;
        } else if (cmdid == kCmdResources) {
            parcel.requestType = protocol::kKindControl;
        } else {
            parcel.requestDatas.push_back(plainItem(cmdid));
        }
        appendResourceItems(resources, parcel.requestDatas);
        return hal.resCtlRequest(parcel, &handle);
    });
    if (result == PaxCallResult::kFailed) {
        PAX_LOG(ERROR, "velaResCtlRequest error:%d", handle);
        return -1;
    }
    return result == PaxCallResult::kOk ? handle : -1;
}

extern "C" PAX_EXPORT int32_t PaxResAcquire(std::vector<PaxClient::Resource>& resources,
                                            void* /*reserved*/, const std::string& identity,
                                            int32_t duration) {
    PAX_LOG(INFO, "PaxResAcquire");
    return PaxEventAcquire(kCmdResources, std::string(), identity, duration, resources);
}

extern "C" PAX_EXPORT int32_t PaxPlatformResAcquire(std::vector<PaxClient::Resource>& resources,
                                                    void* /*reserved*/, const std::string& identity,
                                                    const std::string& pkg, int32_t duration) {
    PAX_LOG(INFO, "PaxPlatformResAcquire");
    return PaxEventAcquire(kCmdPlatformResources, pkg, identity, duration, resources);
}
