// Power-consumption and power-management status queries.
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

#include "PaxItems.h"
#include "pax.h"

using namespace pax;

namespace {

constexpr int32_t kKindPowerStatus = 13;
constexpr int32_t kKindPowerConsumption = 15;

}  // namespace

extern "C" PAX_EXPORT int32_t PaxGetPowerConsis() {
    PAX_LOGI("pax client PaxGetPowerConsis");
    if (!paxConnect()) return -1;
    // Without a handle (or an answer) the text stays empty and the conversion below reports it.
    std::optional<std::string> text = std::string();
    {
        std::shared_lock<std::shared_timed_mutex> lock(g_pax_hal_mutex);
        if (g_pax_hal) {
            VelaRequestParcel parcel{};
            parcel.requestType = kKindPowerConsumption;
            parcel.packageName = "none";
            for (const char* value : {"0 1 35", "1 1 35", "2 1 35"}) {
                VelaRequestData item = plainItem(static_cast<int32_t>(kOpcodePowerConsumption));
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
    PAX_LOGI("pax client PaxGetPMStatus");
    if (!paxConnect()) return -1;
    std::vector<VelaRequestData> answer;
    PaxCallResult result = paxCall("PaxGetPMStatus", [&](IVela& hal) {
        VelaRequestParcel parcel{};
        parcel.requestType = kKindPowerStatus;
        parcel.requestDatas.push_back(plainItem(mode));
        PAX_LOGI("pax client hal PaxGetPMStatus");
        return hal.resStateRequest(parcel, &answer);
    });
    if (result == PaxCallResult::kNoHandle) return -1;
    if (result == PaxCallResult::kFailed || answer.empty()) {
        PAX_LOGE("failed to get power mode status, mode %d, data vector size %d", mode,
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
