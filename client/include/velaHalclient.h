// Typed requests to the resource-control service "vendor.norvo.hardware.vela.IVela/default":
// by opcode list or by path, synchronous or with a one-shot callback, state queries, resource
// and thermal listening, properties and the service's diagnostic commands.
//
// Every function connects on first use (blocking until a declared service is up; one that is not
// declared fails at once) and never throws. What an int comes back as, unless a function below
// says otherwise:
//   >= 1  a handle (requests, listeners) or a count (state queries: the output's new size);
//   0     done (releases, unregistering, setting a property);
//   -1    the call itself failed: no service, arguments this library refused before sending
//         anything, or a failed transaction (which drops the connection; the next call makes
//         a new one). The service never answers -1 itself;
//   other negatives: the service's own refusal, passed through as it answered. The reference
//         service answers -2 unknown handle, -3 bad request (a value outside the resource's
//         range, too many items, a refused path...), -4 unsupported request kind, -5 one of
//         its limits reached; a vendor's service may answer other codes.
// What the reference service makes of param1...param6 is in the README; the library only
// carries them. Output containers are appended to, never cleared.
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
// request's handle for velaResCtlRelease, or the service's refusal. Arguments an overload lacks
// are sent as -1; param5 only says whether the option flag is set (param5 >= 1).
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

// SA control of one id (the event naming a scenario). Returns a handle for velaSACtlRelease, or
// the service's refusal.
PAX_EXPORT int velaSACtlRequest(int param2, int id, int param6);
PAX_EXPORT int velaSACtlRequest(int param1, int param2, int id, int param4, int param5, int param6);
PAX_EXPORT int velaSACtlRequest(int param1, int param2, int id, int param4, int param5, int param6,
                                const std::shared_ptr<IClientCallback>& callback);

// End a request: 0, or the service's refusal (-2 for a handle it does not know), or -1.
PAX_EXPORT int velaResCtlRelease(int handle);
PAX_EXPORT int velaSACtlRelease(int handle);

// Appends the current state of `request`'s resources to `reply`; returns reply's new size, or
// -1 (reply untouched) when the service answered nothing. A state query the service refuses
// arrives as a failed transaction, so that is -1 too, never the service's code.
PAX_EXPORT int velaResStateRequest(ResourceList& request, int param6, ResourceList& reply);

// Reports thermal levels (checked like a control request): 0 when the service accepted them,
// else -1; the service's own refusal is not passed on.
PAX_EXPORT int velaThermalNotify(ResourceList& levels, int param6);

// Listening: `callback` hears every change of the resources until unregistered. The same id
// list (same ids, same order) can only be registered once: a second registration is refused
// here, with -1. Returns the handle to unregister, or the service's refusal, or -1.
PAX_EXPORT int velaResListeningRegister(ResourceList& resources, int param6,
                                        const std::shared_ptr<IClientCallback>& callback);
// 0, or the service's refusal (-2 for a handle it does not know), or -1; the receiver is
// forgotten here whatever the answer.
PAX_EXPORT int velaResListeningUnRegister(int handle);
// Thermal listening: `callback` hears the levels of the subsystems in `ids` as they are
// reported. No duplicate check: each registration is a listener of its own. A handle, the
// service's refusal, or -1; unregistering: 0, the service's refusal (-2), or -1.
PAX_EXPORT int velaThermalListeningRegister(const std::vector<int32_t>& ids,
                                            const std::shared_ptr<IClientCallback>& callback);
PAX_EXPORT int velaThermalListeningUnregister(int handle);

// Resource control by path: pathList[i] is set to valueList[i]; the lists must be equally
// long (otherwise -1, nothing sent). Arguments map as in the opcode form: param1, param2,
// param4, param5 (option flag when >= 1), param6. The handle, or the service's refusal.
PAX_EXPORT int vela_resctl_request_by_path(int param1, int64_t param2,
                                           const std::vector<std::string>& pathList,
                                           const std::vector<std::string>& valueList, int param4,
                                           int param5, int param6);
PAX_EXPORT int vela_resctl_request_with_callback_by_path(
        int param1, int64_t param2, const std::vector<std::string>& pathList,
        const std::vector<std::string>& valueList, int param4, int param5, int param6,
        const std::shared_ptr<IClientCallbackByPath>& callback);

// State by path: appends one value per answered item to `out` (empty when the service sent
// none); values are sent along only when there is one per path. Returns out's new size, or -1
// (as for velaResStateRequest).
PAX_EXPORT int vela_res_state_request_by_path(const std::vector<std::string>& pathList,
                                              const std::vector<std::string>& valueList, int param,
                                              std::vector<std::string>& out);
// State by path map: stores each answered path's value in `out`. Returns out's new size, or -1.
PAX_EXPORT int vela_res_state_request_map_by_path(const std::map<std::string, std::string>& in,
                                                  int param,
                                                  std::map<std::string, std::string>& out);
// Listening by path (or by the keys of a map); the same path list can only be registered once.
// As velaResListeningRegister: a handle, the service's refusal, or -1.
PAX_EXPORT int vela_res_listening_register_by_path(
        const std::vector<std::string>& pathList, int param,
        const std::shared_ptr<IClientCallbackByPath>& callback);
PAX_EXPORT int vela_res_listening_register_map_by_path(
        const std::map<std::string, std::string>& in, int param,
        const std::shared_ptr<IClientCallbackByPath>& callback);

// Make the service write one of its tables to its own log, or switch its request history
// recording. 0 when the service ran the command, else -1; the service's own refusal is not
// passed on.
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
// Sets a property of the service: 0, or the service's refusal (the reference service: -3 for
// a read-only, empty or too long key, or a value over 255 bytes), or -1.
PAX_EXPORT int velaPropertySet(const std::string& key, const std::string& value);

}  // namespace velaHalclient
