// Resource control by path.
#include "guarded_call.h"
#include "parcels.h"
#include "velaHalclient.h"
#include "vela_callback_client.h"

namespace velaHalclient {

namespace {

VelaRequestParcel pathControlParcel(int param1, int64_t param2, int param4, int param5,
                                    int param6) {
    VelaRequestParcel parcel =
            controlParcel(protocol::kKindControl, param1, param2, param4, param5, param6);
    vela_add_zdbdebug_for_request_parcel(parcel);
    return parcel;
}

}  // namespace

int vela_resctl_request_by_path(int param1, int64_t param2,
                                const std::vector<std::string>& pathList,
                                const std::vector<std::string>& valueList, int param4, int param5,
                                int param6) {
    return guardedIntCall(
            "vela client vela_resctl_request", "vela_resctl_request_by_path",
            [&](IVela& hal, int32_t* result) -> CallStatus {
                if (pathList.size() != valueList.size()) {
                    VELA_LOG(ERROR,
                             "vela_resctl_request ERROR: size unmatched for paths and value ");
                    return std::nullopt;
                }
                VelaRequestParcel parcel =
                        pathControlParcel(param1, param2, param4, param5, param6);
                parcel.requestDatas = buildPathItems(pathList, &valueList);
                return hal.resCtlRequest(parcel, result);
            });
}

int vela_resctl_request_with_callback_by_path(
        int param1, int64_t param2, const std::vector<std::string>& pathList,
        const std::vector<std::string>& valueList, int param4, int param5, int param6,
        const std::shared_ptr<IClientCallbackByPath>& callback) {
    // Both texts below differ from the plain variant's on purpose; log readers rely on them.
    return guardedIntCall(
            "vela client vela_resctl_request_with_callback",
            "vela client vela_resctl_request_with_callback",
            [&](IVela& hal, int32_t* result) -> CallStatus {
                if (pathList.size() != valueList.size()) {
                    VELA_LOG(ERROR,
                             "vela client vela_resctl_request ERROR: size unmatched for id and "
                             "value ");
                    return std::nullopt;
                }
                VelaRequestParcel parcel =
                        pathControlParcel(param1, param2, param4, param5, param6);
                parcel.callback = newRequestCallback(
                        callback,
                        "vela client vela_resctl_request_with_callback add to request_callbacks");
                parcel.requestDatas = buildPathItems(pathList, &valueList);
                return hal.resCtlRequest(parcel, result);
            });
}

}  // namespace velaHalclient
