#include <string>

#include "pax.h"

using namespace pax;

namespace {
constexpr int32_t kKindHistory = 11;
}  // namespace

extern "C" PAX_EXPORT int32_t PaxGetHistory(std::string& out) {
    PAX_LOGI("pax client PaxGetHistory");
    if (!paxConnect()) return -1;
    std::vector<VelaRequestData> records;
    PaxCallResult result = paxCall("PaxGetHistory", [&](IVela& hal) {
        VelaRequestParcel parcel{};
        parcel.requestType = kKindHistory;
        PAX_LOGI("pax client hal PaxGetHistory");
        return hal.resStateRequest(parcel, &records);
    });
    if (result == PaxCallResult::kNoHandle) return -1;
    if (result == PaxCallResult::kFailed || records.empty()) {
        PAX_LOGE("failed to get history or return vector empty, data vector size %d",
                 static_cast<int>(records.size()));
        return -1;
    }
    out = "start:";
    for (size_t i = 0; i < records.size(); ++i) {
        if (i > 0) out += ';';
        out += records[i].value3 ? *records[i].value3 : "none";
    }
    out += ";end";
    PAX_LOGD("get history successful: %s", out.c_str());
    return 0;
}
