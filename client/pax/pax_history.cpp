#include <string>

#include "pax.h"

using namespace pax;

extern "C" PAX_EXPORT int32_t PaxGetHistory(std::string& out) {
    PAX_LOG(INFO, "pax client PaxGetHistory");
    std::vector<VelaRequestData> records;
    PaxCallResult result = paxCall("PaxGetHistory", [&](IVela& hal) {
        VelaRequestParcel parcel{};
        parcel.requestType = protocol::kKindHistory;
        PAX_LOG(INFO, "pax client hal PaxGetHistory");
        return hal.resStateRequest(parcel, &records);
    });
    if (result == PaxCallResult::kNotConnected || result == PaxCallResult::kNoHandle) return -1;
    if (result == PaxCallResult::kFailed || records.empty()) {
        PAX_LOG(ERROR, "failed to get history or return vector empty, data vector size %d",
                static_cast<int>(records.size()));
        return -1;
    }
    out = "start:";
    for (size_t i = 0; i < records.size(); ++i) {
        if (i > 0) out += ';';
        out += records[i].value3 ? *records[i].value3 : "none";
    }
    out += ";end";
    PAX_LOG(DEBUG, "get history successful: %s", out.c_str());
    return 0;
}
