// Power-consumption and power-management status queries.
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

#include "pax.h"
#include "pax_items.h"

using namespace pax;

extern "C" PAX_EXPORT int32_t PaxGetPowerConsis() {
    PAX_LOG(INFO, "pax client PaxGetPowerConsis");
    if (!paxConnect()) return -1;
    // Without a handle (or an answer) the text stays empty and the conversion below reports it.
    std::optional<std::string> text = std::string();
    {
        std::shared_lock<std::shared_timed_mutex> lock(g_pax_hal_mutex);
        if (g_pax_hal) {
            VelaRequestParcel parcel{};
            parcel.requestType = protocol::kKindPowerUse;
            parcel.packageName = "none";
            for (const char* value : {"0 1 35", "1 1 35", "2 1 35"}) {
                VelaRequestData item = plainItem(static_cast<int32_t>(protocol::kPowerUseOpcode));
                item.value = value;
                parcel.requestDatas.push_back(std::move(item));
            }
            std::vector<VelaRequestData> answer;
            // The status is not looked at: a failed call leaves the answer empty, and the handle
            // is left to the death notification.
            (void)g_pax_hal->resStateRequest(parcel, &answer);
            if (!answer.empty()) text = std::move(answer.front().value);
        }
    }
    return std::stoi(text.value());
}

extern "C" PAX_EXPORT int32_t PaxGetPMStatus(int32_t mode) {
    PAX_LOG(INFO, "pax client PaxGetPMStatus");
    std::vector<VelaRequestData> answer;
    PaxCallResult result = paxCall("PaxGetPMStatus", [&](IVela& hal) {
        VelaRequestParcel parcel{};
        parcel.requestType = protocol::kKindPowerMode;
        parcel.requestDatas.push_back(plainItem(mode));
        PAX_LOG(INFO, "pax client hal PaxGetPMStatus");
        return hal.resStateRequest(parcel, &answer);
    });
    if (result == PaxCallResult::kNotConnected || result == PaxCallResult::kNoHandle) return -1;
    if (result == PaxCallResult::kFailed || answer.empty()) {
        PAX_LOG(ERROR, "failed to get power mode status, mode %d, data vector size %d", mode,
                static_cast<int>(answer.size()));
        return -1;
    }
    const std::string& text = answer.front().value.value();
    try {
        return std::stoi(text);
    } catch (const std::invalid_argument& e) {
        std::cout << "Invalid argument exception: " << e.what() << std::endl;
    } catch (const std::out_of_range& e) {
        std::cout << "Out of range exception: " << e.what() << std::endl;
    }
    return -1;
}
