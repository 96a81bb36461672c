// Typed requests to the resource-control service "vendor.norvo.hardware.vela.IVela/default":
// by opcode list or by path, synchronous or with a one-shot callback, state queries, resource
// and thermal listening, properties and the service's diagnostic commands.
//
// Every function connects on first use (blocking until a declared service is up), never
// throws, and returns -1 for any failure: no service, rejected arguments or a failed
// transaction. A failed transaction drops the connection; the next call makes a new one.
// Output containers are appended to, never cleared.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "IClientCallback.h"
#include "PaxClientResource.h"
#include "pax_export.h"

namespace velaHalclient {

using ResourceList = std::list<PaxClient::Resource>;

// Connects and asks the service to initialise. Failure is only logged.
PAX_EXPORT void vela_init();

// Resource control by opcode. Every entry with a non-zero id needs a non-empty value and an
// entry with id 0 must have none, otherwise nothing is sent and -1 is returned. Returns the
// request's handle for velaResCtlRelease. Arguments an overload lacks are sent as -1; param5
// only says whether the option flag is set (param5 >= 1).
PAX_EXPORT int velaResCtlRequest(int param2, ResourceList& resources, int param6);
PAX_EXPORT int velaResCtlRequest(int param2, ResourceList& resources, int param5, int param6);
PAX_EXPORT int velaResCtlRequest(int param2, ResourceList& resources, int param4, int param5,
                                 int param6);
PAX_EXPORT int velaResCtlRequest(int param1, int param2, ResourceList& resources, int param6);
PAX_EXPORT int velaResCtlRequest(int param1, int param2, ResourceList& resources, int param5,
                                 int param6);
PAX_EXPORT int velaResCtlRequest(int param1, int param2, ResourceList& resources, int param4,
                                 int param5, int param6);
// As above; the service also answers once, later, through `callback`.
PAX_EXPORT int velaResCtlRequest(int param1, int param2, ResourceList& resources, int param4,
                                 int param5, int param6,
                                 const std::shared_ptr<IClientCallback>& callback);

// SA control of one id. Returns a handle for velaSACtlRelease.
PAX_EXPORT int velaSACtlRequest(int param2, int id, int param6);
PAX_EXPORT int velaSACtlRequest(int param1, int param2, int id, int param4, int param5, int param6);
PAX_EXPORT int velaSACtlRequest(int param1, int param2, int id, int param4, int param5, int param6,
                                const std::shared_ptr<IClientCallback>& callback);

// End a request; the service's result.
PAX_EXPORT int velaResCtlRelease(int handle);
PAX_EXPORT int velaSACtlRelease(int handle);

// Appends the current state of `request`'s resources to `reply`; returns reply's new size, or
// -1 (reply untouched) when the service answered nothing.
PAX_EXPORT int velaResStateRequest(ResourceList& request, int param6, ResourceList& reply);

// Reports thermal levels (checked like a control request); 0 when the service accepted them.
PAX_EXPORT int velaThermalNotify(ResourceList& levels, int param6);

// Listening: `callback` hears every change of the resources until unregistered. The same id
// list (same ids, same order) can only be registered once. Returns the handle to unregister.
PAX_EXPORT int velaResListeningRegister(ResourceList& resources, int param6,
                                        const std::shared_ptr<IClientCallback>& callback);
PAX_EXPORT int velaResListeningUnRegister(int handle);
PAX_EXPORT int velaThermalListeningRegister(const std::vector<int32_t>& ids,
                                            const std::shared_ptr<IClientCallback>& callback);
PAX_EXPORT int velaThermalListeningUnregister(int handle);

// Resource control by path: pathList[i] is set to valueList[i]; the lists must be equally
// long. Arguments map as in the opcode form: param1, param2, param4, param5 (option flag when
// >= 1), param6.
PAX_EXPORT int vela_resctl_request_by_path(int param1, int64_t param2,
                                           const std::vector<std::string>& pathList,
                                           const std::vector<std::string>& valueList, int param4,
                                           int param5, int param6);
PAX_EXPORT int vela_resctl_request_with_callback_by_path(
        int param1, int64_t param2, const std::vector<std::string>& pathList,
        const std::vector<std::string>& valueList, int param4, int param5, int param6,
        const std::shared_ptr<IClientCallbackByPath>& callback);

// State by path: appends one value per answered item to `out` (empty when the service sent
// none); values are sent along only when there is one per path. Returns out's new size, or -1.
PAX_EXPORT int vela_res_state_request_by_path(const std::vector<std::string>& pathList,
                                              const std::vector<std::string>& valueList, int param,
                                              std::vector<std::string>& out);
// State by path map: stores each answered path's value in `out`. Returns out's new size, or -1.
PAX_EXPORT int vela_res_state_request_map_by_path(const std::map<std::string, std::string>& in,
                                                  int param,
                                                  std::map<std::string, std::string>& out);
// Listening by path (or by the keys of a map); the same path list can only be registered once.
PAX_EXPORT int vela_res_listening_register_by_path(
        const std::vector<std::string>& pathList, int param,
        const std::shared_ptr<IClientCallbackByPath>& callback);
PAX_EXPORT int vela_res_listening_register_map_by_path(
        const std::map<std::string, std::string>& in, int param,
        const std::shared_ptr<IClientCallbackByPath>& callback);

// Make the service write one of its tables to its own log, or switch its request history
// recording. 0 when the service accepted the command, else -1.
PAX_EXPORT int velaDumpToDoQueue();
PAX_EXPORT int velaDumpRunMap();
PAX_EXPORT int velaDumpActiveResMap();
PAX_EXPORT int velaDumpResRequest();
PAX_EXPORT int velaDumpResInfo();
PAX_EXPORT int velaDumpSAInfo();
PAX_EXPORT int velaDumpPidFdList();
PAX_EXPORT int velaDumpPidfdMonitorMap();
PAX_EXPORT int velaDumpResRecordList();
PAX_EXPORT int velaHistoryRequestRecordOn();
PAX_EXPORT int velaHistoryRequestRecordOff();

// A property of the service, in a new 256-byte buffer that the caller frees with delete[];
// empty when the service could not be asked.
PAX_EXPORT char* velaPropertyGet(const std::string& key);
// Sets a property of the service; the service's result, or -1.
PAX_EXPORT int velaPropertySet(const std::string& key, const std::string& value);

}  // namespace velaHalclient
