// Notifications, related system information and rule switches.
#include <string>

#include "pax.h"
#include "pax_items.h"

using namespace pax;

extern "C" PAX_EXPORT int32_t PaxNotify(int32_t cmdid, int32_t param,
                                        const std::vector<int32_t>& values) {
    PAX_LOG(INFO, "PaxNotify enter");
    return paxIntCall("PaxNotify", [&](IVela& hal, int32_t* out) {
        VelaRequestParcel parcel{};
        parcel.requestType = protocol::kKindNotify;
        if (values.empty()) {
            parcel.requestDatas.push_back(plainItem(cmdid, param));
        } else {
            // The service pairs the i-th item with the i-th text.
            parcel.paths.emplace();
            for (int32_t value : values) {
                parcel.requestDatas.push_back(plainItem(cmdid, param));
                parcel.paths->emplace_back(std::to_string(value));
            }
        }
        return hal.resCtlRequest(parcel, out);
    });
}

extern "C" PAX_EXPORT int32_t setRelatedSysInfo(int32_t info, int64_t value) {
    return paxIntCall("setRelatedSysInfo", [&](IVela& hal, int32_t* out) {
        return hal.setRelatedSysInfo(info, value, out);
    });
}

extern "C" PAX_EXPORT int32_t paxRuleCtl(int32_t ruleId, int32_t status,
                                         std::vector<PaxClient::Resource>& resources) {
    PAX_LOG(INFO, "paxRuleCtl, ruleId:%d, status:%d", ruleId, status);
    return paxIntCall("paxRuleCtl", [&](IVela& hal, int32_t* out) {
        return hal.ruleCtl(ruleId, status, ruleItems(resources), out);
    });
}
