// The words that the client library and the service must agree on beyond the interface's own
// types: what a request's kind means, the diagnostic command codes, the opcode that has a query
// of its own, the service's result codes and where the service is registered. Shared by the
// library, the reference service and the tests so that neither side can drift from the other
// while both test suites stay green. Internal: not installed with the public headers.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/IVela.h>

#include <cstdint>
#include <string>

namespace aidl::vendor::norvo::hardware::vela::protocol {

// Where the service is registered, built from the interface itself so that a renamed package
// cannot leave a stale literal behind.
inline const std::string& instanceName() {
    static const std::string name = std::string(IVela::descriptor) + "/default";
    return name;
}

// VelaRequestParcel::requestType.
enum RequestKind : int32_t {
    kKindState = 0,  // also resource listening, which leaves the kind at its default
    kKindControl = 1,
    kKindSaControl = 2,
    kKindDiagnostic = 5,
    kKindThermal = 7,
    kKindEvent = 8,
    kKindNotify = 10,
    kKindHistory = 11,
    kKindPlatform = 12,
    kKindPowerMode = 13,
    kKindPowerUse = 15,
    kKindDataset = 16,
};

// The single item's id of a diagnostic request. 9 is unused and must stay so.
enum DiagnosticCode : int32_t {
    kDumpToDoQueue = 0,
    kDumpRunMap = 1,
    kDumpActiveResources = 2,
    kDumpRequests = 3,
    kDumpResourceInfo = 4,
    kDumpScenarios = 5,
    kDumpClients = 6,
    kDumpClientMonitors = 7,
    kDumpRecords = 8,
    kHistoryOn = 10,
    kHistoryOff = 11,
};

// The power-consumption figure: answered by its own request kind, never by a state request.
inline constexpr uint32_t kPowerUseOpcode = 0x01011670;

// What the service's int-returning operations answer besides handles (>= 1). The service never
// answers -1 itself, so that a caller can tell the service's "no" from the library's own
// failure.
enum ServiceResult : int32_t {
    kResultOk = 0,
    kResultDone = 1,  // a diagnostic command ran
    kResultUnknownHandle = -2,
    kResultBadRequest = -3,
    kResultUnsupportedKind = -4,
    kResultLimitReached = -5,
};

// "unknown handle" and the like; nullptr for a value that is not one of the codes above.
constexpr const char* resultName(int32_t result) {
    switch (result) {
        case kResultUnknownHandle:
            return "unknown handle";
        case kResultBadRequest:
            return "bad request";
        case kResultUnsupportedKind:
            return "unsupported request kind";
        case kResultLimitReached:
            return "service limit reached";
        default:
            return nullptr;
    }
}

}  // namespace aidl::vendor::norvo::hardware::vela::protocol
