// Requests by opcode: resource control, SA control, releases, state and thermal notify.
#include "guarded_call.h"
#include "parcels.h"
#include "velaHalclient.h"
#include "vela_callback_client.h"

namespace velaHalclient {

namespace {

VelaRequestParcel saControlParcel(int param1, int param2, int id, int param4, int param5,
                                  int param6) {
    VelaRequestParcel parcel =
            controlParcel(protocol::kKindSaControl, param1, param2, param4, param5, param6);
    VelaRequestData item{};
    item.id = id;
    parcel.requestDatas.push_back(std::move(item));
    return parcel;
}

}  // namespace

void vela_init() {
    guardedCall("vela client vela_init", "vela_init",
                [](IVela& hal) -> CallStatus { return hal.init(); });
}

int velaResCtlRequest(int param2, ResourceList& resources, int param6) {
    return velaResCtlRequest(-1, param2, resources, -1, -1, param6);
}

int velaResCtlRequest(int param2, ResourceList& resources, int param5, int param6) {
    return velaResCtlRequest(-1, param2, resources, -1, param5, param6);
}

int velaResCtlRequest(int param2, ResourceList& resources, int param4, int param5, int param6) {
    return velaResCtlRequest(-1, param2, resources, param4, param5, param6);
}

int velaResCtlRequest(int param1, int param2, ResourceList& resources, int param6) {
    return velaResCtlRequest(param1, param2, resources, -1, -1, param6);
}

int velaResCtlRequest(int param1, int param2, ResourceList& resources, int param5, int param6) {
    return velaResCtlRequest(param1, param2, resources, -1, param5, param6);
}

int velaResCtlRequest(int param1, int param2, ResourceList& resources, int param4, int param5,
                      int param6) {
    return guardedIntCall(
            "vela client velaResCtlRequest", "velaResCtlRequest",
            [&](IVela& hal, int32_t* handle) -> CallStatus {
                if (!checkResourceList(resources)) {
                    VELA_LOG(ERROR, "velaResCtlRequest ERROR: size unmatched for id and value ");
                    return std::nullopt;
                }
                VelaRequestParcel parcel = controlParcel(protocol::kKindControl, param1, param2,
                                                         param4, param5, param6);
                parcel.requestDatas = buildRequestDatas(resources);
                return hal.resCtlRequest(parcel, handle);
            });
}

int velaResCtlRequest(int param1, int param2, ResourceList& resources, int param4, int param5,
                      int param6, const std::shared_ptr<IClientCallback>& callback) {
    // The failure name is not this function's: log readers know the line by it.
    return guardedIntCall(
            "vela client velaResCtlRequest with callback",
            "vela client VelaCallbackClient with callback",
            [&](IVela& hal, int32_t* handle) -> CallStatus {
                if (!checkResourceList(resources)) {
                    VELA_LOG(ERROR,
                             "vela client vela_resctl_request ERROR: size unmatched for id and "
                             "value ");
                    return std::nullopt;
                }
                VelaRequestParcel parcel = controlParcel(protocol::kKindControl, param1, param2,
                                                         param4, param5, param6);
                parcel.callback = newRequestCallback(
                        callback, "vela client velaResCtlRequest add to request_callbacks");
                parcel.requestDatas = buildRequestDatas(resources);
                return hal.resCtlRequest(parcel, handle);
            });
}

int velaSACtlRequest(int param2, int id, int param6) {
    return velaSACtlRequest(-1, param2, id, -1, -1, param6);
}

int velaSACtlRequest(int param1, int param2, int id, int param4, int param5, int param6) {
    return guardedIntCall("vela client velaSACtlRequest", "velaSACtlRequest",
                          [&](IVela& hal, int32_t* handle) -> CallStatus {
                              VelaRequestParcel parcel =
                                      saControlParcel(param1, param2, id, param4, param5, param6);
                              return hal.resCtlRequest(parcel, handle);
                          });
}

int velaSACtlRequest(int param1, int param2, int id, int param4, int param5, int param6,
                     const std::shared_ptr<IClientCallback>& callback) {
    return guardedIntCall(
            "vela client velaSACtlRequest with callback", "velaSACtlRequest with callback",
            [&](IVela& hal, int32_t* handle) -> CallStatus {
                VelaRequestParcel parcel =
                        saControlParcel(param1, param2, id, param4, param5, param6);
                parcel.callback = newRequestCallback(
                        callback, "vela client velaSACtlRequest add to request_callbacks");
                return hal.resCtlRequest(parcel, handle);
            });
}

int velaResCtlRelease(int handle) {
    return guardedIntCall("vela client velaResCtlRelease", "velaResCtlRelease",
                          [&](IVela& hal, int32_t* result) -> CallStatus {
                              return hal.resCtlRelease(handle, result);
                          });
}

// The service releases both kinds of handle with the same operation.
int velaSACtlRelease(int handle) {
    return guardedIntCall("vela client velaSACtlRelease", "velaSACtlRelease",
                          [&](IVela& hal, int32_t* result) -> CallStatus {
                              return hal.resCtlRelease(handle, result);
                          });
}

int velaResStateRequest(ResourceList& request, int param6, ResourceList& reply) {
    int result = -1;
    std::vector<VelaRequestData> state;
    guardedCall(
            "vela client velaResStateRequest", "velaResStateRequest",
            [&](IVela& hal) -> CallStatus {
                VelaRequestParcel parcel{};
                parcel.param6 = param6;
                parcel.requestDatas = buildRequestDatas(request);
                VELA_LOG(INFO, "vela client hal velaResStateRequest");
                return hal.resStateRequest(parcel, &state);
            },
            [&](bool ok) {
                if (!ok || state.empty()) return;
                for (VelaRequestData& item : state) {
                    reply.push_back(PaxClient::Resource{static_cast<uint32_t>(item.id),
                                                        std::move(item.value)});
                }
                result = static_cast<int>(reply.size());
                VELA_LOG(INFO, "vela client velaResStateRequest size %d", result);
            });
    return result;
}

int velaThermalNotify(ResourceList& levels, int param6) {
    int32_t handle = guardedIntCall(
            "vela client velaThermalNotify", "velaThermalNotify",
            [&](IVela& hal, int32_t* handle) -> CallStatus {
                if (!checkResourceList(levels)) {
                    VELA_LOG(ERROR, "velaThermalNotify ERROR: size unmatched for id and level ");
                    return std::nullopt;
                }
                VelaRequestParcel parcel{};
                parcel.param6 = param6;
                parcel.requestType = protocol::kKindThermal;
                parcel.requestDatas = buildRequestDatas(levels);
                return hal.resCtlRequest(parcel, handle);
            });
    return handle >= 1 ? 0 : -1;
}

}  // namespace velaHalclient
