// Current values of resources.
#include <algorithm>
#include <string>

#include "pax.h"
#include "pax_items.h"

using namespace pax;

extern "C" PAX_EXPORT int32_t PaxMutiResStateRequest(std::vector<PaxClient::Resource>& resources) {
    PAX_LOG(INFO, "PaxMutiResStateRequest enter");
    // Connected before the list is checked, so that a caller without a service hears about the
    // service first.
    if (!paxConnect()) return -1;
    if (resources.empty()) {
        PAX_LOG(ERROR, "input resource is empty, return");
        return -1;
    }
    std::vector<VelaRequestData> answer;
    PaxCallResult result = paxCall("PaxMutiResStateRequest", [&](IVela& hal) {
        VelaRequestParcel parcel{};
        appendResourceItems(resources, parcel.requestDatas);
        return hal.resStateRequest(parcel, &answer);
    });
    if (result != PaxCallResult::kOk) return -1;
    if (answer.empty()) {
        PAX_LOG(ERROR, "failed to get resource value");
        return -1;
    }

    int32_t matched = 0;
    for (PaxClient::Resource& resource : resources) {
        // The first answer for an opcode wins, so repeated ids all get the same value.
        auto found = std::find_if(answer.begin(), answer.end(), [&](const VelaRequestData& item) {
            return item.id == static_cast<int32_t>(resource.id);
        });
        if (found == answer.end()) {
            PAX_LOG(INFO, "not match any opcode in paxcore");
            continue;
        }
        if (found->value) resource.value = found->value;
        PAX_LOG(DEBUG, "get resource value, opcode 0x%08x, value %s", resource.id,
                resource.value ? resource.value->c_str() : "");
        ++matched;
    }
    return matched;
}

extern "C" PAX_EXPORT void PaxResStateRequest(uint32_t opcode, std::string& out) {
    if (opcode == protocol::kPowerUseOpcode) {
        out = std::to_string(PaxGetPowerConsis());
        return;
    }
    PAX_LOG(INFO, "PaxResStateRequest enter");
    std::vector<PaxClient::Resource> query{{opcode, std::string()}};
    if (PaxMutiResStateRequest(query) != 1) return;
    // Only the text up to an embedded zero counts, as for any C string value.
    out = query.front().value ? query.front().value->c_str() : "";
}
