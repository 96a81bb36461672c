#include "pax.h"

using namespace pax;

extern "C" PAX_EXPORT int32_t Pax_fetch_dataset(std::vector<PaxClient::Resource>& out) {
    PAX_LOG(INFO, "Pax_fetch_dataset enter");
    std::vector<VelaRequestData> answer;
    PaxCallResult result = paxCall("Pax_fetch_dataset", [&](IVela& hal) {
        VelaRequestParcel parcel{};
        parcel.requestType = protocol::kKindDataset;
        return hal.resStateRequest(parcel, &answer);
    });
    if (result != PaxCallResult::kOk) return -1;
    if (answer.empty()) {
        PAX_LOG(ERROR, "failed to get resource value");
        return -1;
    }
    for (VelaRequestData& item : answer) {
        out.push_back({static_cast<uint32_t>(item.id), std::move(item.value.value())});
    }
    return static_cast<int32_t>(out.size());
}
