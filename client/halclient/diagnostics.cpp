// The service's diagnostic commands (it writes the dump to its own log) and its properties.
#include <cstdlib>
#include <cstring>
#include <new>

#include "guarded_call.h"
#include "parcels.h"
#include "velaHalclient.h"

namespace velaHalclient {

namespace {

struct DiagnosticCommand {
    protocol::DiagnosticCode code;
    const char* entryLine;
    const char* name;
};

constexpr DiagnosticCommand kDumpToDoQueue{protocol::kDumpToDoQueue,
                                           "vela client velaDumpToDoQueue", "velaDumpToDoQueue"};
constexpr DiagnosticCommand kDumpRunMap{protocol::kDumpRunMap, "vela client velaDumpRunMap",
                                        "velaDumpRunMap"};
constexpr DiagnosticCommand kDumpActiveResMap{
        protocol::kDumpActiveResources, "vela client velaDumpActiveResMap", "velaDumpActiveResMap"};
constexpr DiagnosticCommand kDumpResRequest{protocol::kDumpRequests,
                                            "vela client velaDumpResRequest", "velaDumpResRequest"};
constexpr DiagnosticCommand kDumpResInfo{protocol::kDumpResourceInfo, "vela client velaDumpResInfo",
                                         "velaDumpResInfo"};
constexpr DiagnosticCommand kDumpSAInfo{protocol::kDumpScenarios, "vela client velaDumpSAInfo",
                                        "velaDumpSAInfo"};
constexpr DiagnosticCommand kDumpPidFdList{protocol::kDumpClients, "vela client velaDumpPidFdList",
                                           "velaDumpPidFdList"};
constexpr DiagnosticCommand kDumpPidfdMonitorMap{protocol::kDumpClientMonitors,
                                                 "vela client velaDumpPidfdMonitorMap",
                                                 "velaDumpPidfdMonitorMap"};
constexpr DiagnosticCommand kDumpResRecordList{
        protocol::kDumpRecords, "vela client velaDumpResRecordList", "velaDumpResRecordList"};
constexpr DiagnosticCommand kHistoryRecordOn{protocol::kHistoryOn,
                                             "vela client velaHistoryRequestRecordOn",
                                             "velaHistoryRequestRecordOn"};
constexpr DiagnosticCommand kHistoryRecordOff{protocol::kHistoryOff,
                                              "vela client velaHistoryRequestRecordOff",
                                              "velaHistoryRequestRecordOff"};

// 0 when the service answered 1 or more; its own value is not passed on.
int runCommand(const DiagnosticCommand& command) {
    const int32_t result = guardedIntCall(command.entryLine, command.name,
                                          [&](IVela& hal, int32_t* out) -> CallStatus {
                                              VelaRequestParcel parcel{};
                                              parcel.requestType = protocol::kKindDiagnostic;
                                              parcel.param4 = 1;
                                              VelaRequestData item{};
                                              item.id = command.code;
                                              parcel.requestDatas.push_back(std::move(item));
                                              return hal.resCtlRequest(parcel, out);
                                          });
    return result >= 1 ? 0 : -1;
}

constexpr size_t kPropertyBufferSize = 256;

// The buffer is the caller's contract; an answer that does not fit is a broken service, and
// a cut value would be passed on as if it were right.
void copyPropertyAnswer(const std::string& answer, char* buffer) {
    if (answer.size() >= kPropertyBufferSize) {
        VELA_LOG(ERROR,
                 "velaPropertyGet: answer of %zu characters does not fit in %zu bytes, aborting",
                 answer.size(), kPropertyBufferSize);
        abort();
    }
    memcpy(buffer, answer.c_str(), answer.size() + 1);
}

}  // namespace

int velaDumpToDoQueue() {
    return runCommand(kDumpToDoQueue);
}
int velaDumpRunMap() {
    return runCommand(kDumpRunMap);
}
int velaDumpActiveResMap() {
    return runCommand(kDumpActiveResMap);
}
int velaDumpResRequest() {
    return runCommand(kDumpResRequest);
}
int velaDumpResInfo() {
    return runCommand(kDumpResInfo);
}
int velaDumpSAInfo() {
    return runCommand(kDumpSAInfo);
}
int velaDumpPidFdList() {
    return runCommand(kDumpPidFdList);
}
int velaDumpPidfdMonitorMap() {
    return runCommand(kDumpPidfdMonitorMap);
}
int velaDumpResRecordList() {
    return runCommand(kDumpResRecordList);
}
int velaHistoryRequestRecordOn() {
    return runCommand(kHistoryRecordOn);
}
int velaHistoryRequestRecordOff() {
    return runCommand(kHistoryRecordOff);
}

char* velaPropertyGet(const std::string& key) {
    char* buffer = new (std::nothrow) char[kPropertyBufferSize];
    if (buffer == nullptr) return nullptr;
    // Cleared although the service normally overwrites it: callers read it even when the
    // service could not be asked, and then it must hold a terminated string.
    buffer[0] = '\0';
    guardedCall("vela client velaPropertyGet", "velaPropertyGet", [&](IVela& hal) -> CallStatus {
        std::string answer;
        ndk::ScopedAStatus status = hal.propertyGet(key, &answer);
        copyPropertyAnswer(answer, buffer);
        return status;
    });
    VELA_LOG(INFO, "velaPropertyGet %s ", buffer);
    return buffer;
}

int velaPropertySet(const std::string& key, const std::string& value) {
    return guardedIntCall("vela client velaPropertySet", "velaPropertySet",
                          [&](IVela& hal, int32_t* result) -> CallStatus {
                              return hal.propertySet(key, value, result);
                          });
}

}  // namespace velaHalclient
