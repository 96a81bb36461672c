// The Pax event interface: callers report usage scenarios, switch rules and query state.
//
// The functions have C linkage so that their symbol names stay stable for the components that
// look them up by name, but their parameters are C++ types: they are meant for C++ callers.
// Every function returns -1 (or leaves its output untouched) when the call itself failed: the
// service is not declared or not running (these functions never wait for it), or the
// transaction failed; the next call reconnects. Otherwise an int is the service's own answer,
// passed through: a handle (>= 1), 0 for done, or its refusal. The reference service refuses
// with -2 unknown handle, -3 bad request, -4 unsupported request kind, -5 one of its limits
// reached, and never answers -1 itself; a vendor's service may answer other codes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "PaxClientResource.h"
#include "pax_export.h"

extern "C" {

// Connects to the service and asks it to initialise: 0 on success, -1 when the service cannot
// be reached, -2 when the call to it failed (this -2 is the library's, not the service's).
PAX_EXPORT int32_t paxInit();

// Reports a usage scenario; returns the service's request handle, its refusal (-3 for a
// resource value it does not accept), or -1. The command ids -2 and -3 are reserved: they
// select a plain or a platform resource request instead of an event.
PAX_EXPORT int32_t PaxEventAcquire(int32_t cmdid, const std::string& pkg,
                                   const std::string& identity, int32_t duration,
                                   std::vector<PaxClient::Resource>& resources);
// Requests resources without an event. `reserved` is never read.
PAX_EXPORT int32_t PaxResAcquire(std::vector<PaxClient::Resource>& resources, void* reserved,
                                 const std::string& identity, int32_t duration);
// Requests platform resources on behalf of `pkg`. Note that identity comes before pkg here.
PAX_EXPORT int32_t PaxPlatformResAcquire(std::vector<PaxClient::Resource>& resources,
                                         void* reserved, const std::string& identity,
                                         const std::string& pkg, int32_t duration);
// Ends a request made by one of the acquire functions; the service's answer is not reported.
PAX_EXPORT void PaxRelease(int32_t handle);
// Sends a notification: one item per value (or one item when there are none). These three
// return 0, the service's refusal, or -1.
PAX_EXPORT int32_t PaxNotify(int32_t cmdid, int32_t param, const std::vector<int32_t>& values);
PAX_EXPORT int32_t setRelatedSysInfo(int32_t info, int64_t value);
PAX_EXPORT int32_t paxRuleCtl(int32_t ruleId, int32_t status,
                              std::vector<PaxClient::Resource>& resources);

// Replaces `out` with the event history as "start:<record>;<record>...;end"; 0, or -1 (also
// for an empty history, `out` then untouched).
PAX_EXPORT int32_t PaxGetHistory(std::string& out);
// Fills in the values of `resources` that the service knows; returns how many it knew, or -1
// (also when the service refused the query: a refused query arrives as a failed transaction).
PAX_EXPORT int32_t PaxMutiResStateRequest(std::vector<PaxClient::Resource>& resources);
// Stores the value of one resource in `out`; leaves it untouched when the service does not know
// the resource. For the power-consumption opcode it may throw as PaxGetPowerConsis does.
PAX_EXPORT void PaxResStateRequest(uint32_t opcode, std::string& out);
// The power-consumption figure. Throws std::invalid_argument or std::out_of_range when the
// answer is missing or not a number, std::bad_optional_access when it carries no value.
PAX_EXPORT int32_t PaxGetPowerConsis();
// The power-management status for `mode` (the reference service: 1 while `mode` is the power
// mode in force, else 0), or -1. Throws std::bad_optional_access when the answer carries no
// value.
PAX_EXPORT int32_t PaxGetPMStatus(int32_t mode);
// Appends the service's dataset to `out` and returns the new size of `out`, or -1. Throws
// std::bad_optional_access when an entry carries no value.
PAX_EXPORT int32_t Pax_fetch_dataset(std::vector<PaxClient::Resource>& out);

}  // extern "C"
