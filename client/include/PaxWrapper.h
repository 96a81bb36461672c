// The action wrapper: drives the Pax event interface by action name, handle and notification
// source, and builds the resource lists of the scenario texts it is given.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "PaxClientResource.h"
#include "pax_export.h"

// Action names by event id: the service reads event id N as element N, so the order is a
// contract and the duplicated names keep their places. Built at load, read-only afterwards.
PAX_EXPORT extern const std::vector<std::string> gActionList;

// Opcodes that the scenario list builders assign by position.
PAX_EXPORT extern const std::array<uint32_t, 3> opCodeTargetLoad;
PAX_EXPORT extern const std::array<uint32_t, 4> opCodeAdpXpuCoreBoost;
PAX_EXPORT extern const std::array<uint32_t, 4> opCodeAdpXpuCoreLimit;
PAX_EXPORT extern const std::array<uint32_t, 4> opCodeAdpXpuFreqBoost;
PAX_EXPORT extern const std::array<uint32_t, 4> opCodeAdpXpuFreqLimit;

// One resource whose value is always present, even when `value` is empty.
PAX_EXPORT PaxClient::Resource PaxResourceInfo(uint32_t opcode, std::string value);

// "10,20,30" sets the target loads by position. A text with a dash anywhere is read as pairs
// instead, "x-10,y-20", and each element yields the part after its first dash (or nothing).
// Elements past the third are ignored.
PAX_EXPORT std::vector<PaxClient::Resource> getTargetLoadList(std::string text);
// "colocation:<v>,groupmigrate:<up>-<down>"; unknown keys and a migrate band that is not
// up > down are dropped.
PAX_EXPORT std::vector<PaxClient::Resource> getColocationList(const std::string& text);
// Up to four ';'-separated groups (core boost, core limit, freq boost, freq limit), each a
// ','-separated list of up to four values; a group without a comma is skipped.
PAX_EXPORT std::vector<PaxClient::Resource> getGameAdpList(const std::string& text);
// Asks the service to leave game upgrade mode under rule `ruleId`.
PAX_EXPORT void clrGameUpgradeMode(int32_t ruleId, int32_t status);
// Only `level` (when at least 1) and `text` (when not empty) shape the list; the other integers
// are accepted for the callers' convenience and ignored.
PAX_EXPORT std::vector<PaxClient::Resource> getGameUpgradeList(int32_t a, int32_t b, int32_t level,
                                                               int32_t d, int32_t e,
                                                               const std::string& text);

extern "C" {

// Acquires the event named "MIRDAL_<action name>"; returns what PaxEventAcquire returns (the
// handle, the service's refusal, or -1), or -1 for a name the table does not know (the Pax
// interface is then not called).
PAX_EXPORT int32_t PaxEventAcquireWrapper(std::string eventId, const std::string& scene,
                                          const std::string& identity, int32_t timeout);
PAX_EXPORT void PaxReleaseWapper(int32_t handle);
// Turns a notification from source `src` into a rule switch. `value` is the level of the game
// upgrade source; `reserved1` and `reserved2` are never read; `text` is the game text.
// Always returns 0: the rule switch's own result is not reported.
PAX_EXPORT int32_t PaxNotifyWapper(const std::string& data, int32_t src, int32_t type,
                                   int32_t value, int32_t reserved1, int32_t reserved2,
                                   const std::string& text);

}  // extern "C"
