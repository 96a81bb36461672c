#include <array>
#include <utility>

#include "PaxWrapper.h"
#include "stringUtils.h"
#include "wrapper_internal.h"

namespace pax_wrapper {
namespace {

constexpr int32_t kFirstTableSource = 1;
constexpr int32_t kLastTableSource = 131;
constexpr int32_t kGameAdaptationSource = 9000;
constexpr int32_t kPassThroughSource = 1000;

constexpr int32_t kSharedSwitchRule = 200;
constexpr int32_t kColocationRule = 9;

constexpr uint32_t kOpSceneLevel = 0x010103a0;
constexpr uint32_t kOpSceneBoost = 0x01011070;
constexpr uint32_t kOpColocationSwitch = 0x010112f0;
constexpr uint32_t kOpColocationLevel = 0x01011910;

using Result = std::optional<RuleRequest>;
using Handler = Result (*)(const Notification&);

Result reserved(const Notification&) {
    return std::nullopt;
}

// The source is the rule, the type its new status.
Result switchRule(const Notification& n) {
    return RuleRequest{n.src, n.type, {}};
}

// Several sources share one rule; the status names the source that turned it on.
Result switchSharedRule(const Notification& n) {
    return RuleRequest{kSharedSwitchRule, n.type == 1 ? n.src : 0, {}};
}

Result sceneLevelOff(const Notification& n) {
    return RuleRequest{n.src, n.type, {PaxResourceInfo(kOpSceneLevel, "0")}};
}

Result sceneLevelFromType(const Notification& n) {
    return RuleRequest{
            n.src, n.type, {PaxResourceInfo(kOpSceneLevel, stringUtils::valueOf(n.type))}};
}

// Type 0 leaves game upgrade mode (what clrGameUpgradeMode sends); any other type enters it
// at the caller's level with the game text. Only the level and the text reach the list, so
// the reserved integers of the notification are not passed on.
Result gameUpgrade(const Notification& n) {
    if (n.type == 0) return RuleRequest{n.src, 0, gameUpgradeClearList()};
    return RuleRequest{n.src, n.type, getGameUpgradeList(n.src, n.type, n.value, 0, 0, n.text)};
}

// Type 1 turns the boost on at the caller's level, type 0 turns it off, and any other type
// turns it on at the default level 3 for callers that have no level of their own.
Result sceneBoost(const Notification& n) {
    std::string level;
    int32_t status;
    if (n.type == 1) {
        level = stringUtils::valueOf(n.value);
        status = 1;
    } else if (n.type == 0) {
        level = "0";
        status = 0;
    } else {
        level = "3";
        status = 1;
    }
    return RuleRequest{n.src, status, {PaxResourceInfo(kOpSceneBoost, std::move(level))}};
}

Result targetLoad(const Notification& n) {
    return RuleRequest{n.src, n.type, getTargetLoadList(n.data)};
}

// The colocation entries of `data` travel with the colocation switch under the colocation
// rule, so one call both configures and (de)activates it. Type 1 enables, anything else
// disables; the caller's value is passed on as the colocation level.
Result colocation(const Notification& n) {
    const bool enable = n.type == 1;
    RuleRequest request{kColocationRule, enable ? 1 : 0, getColocationList(n.data)};
    request.resources.push_back(
            PaxResourceInfo(kOpColocationSwitch, enable ? "enable 1" : "enable 0"));
    request.resources.push_back(PaxResourceInfo(kOpColocationLevel, stringUtils::valueOf(n.value)));
    return request;
}

constexpr std::array<Handler, kLastTableSource> makeSourceTable() {
    // Every source not named below is reserved: it is logged by the caller and sends nothing.
    std::array<Handler, kLastTableSource> table{};
    for (Handler& h : table) h = reserved;
    auto set = [&table](int32_t src, Handler h) { table[src - kFirstTableSource] = h; };
    // Source 9 has no list of its own (its rule is fed with data by source 131), so it switches
    // its rule like the other plain sources do. Source 15 does the same.
    for (int32_t src : {1, 9, 10, 11, 12, 15, 16, 110, 129}) set(src, switchRule);
    for (int32_t src : {2, 3, 5, 6}) set(src, switchSharedRule);
    set(8, sceneLevelOff);
    set(14, gameUpgrade);
    set(102, sceneBoost);
    set(111, sceneLevelFromType);
    set(130, targetLoad);
    set(131, colocation);
    return table;
}

constexpr std::array<Handler, kLastTableSource> kSourceTable = makeSourceTable();

}  // namespace

std::optional<RuleRequest> planNotification(const Notification& n) {
    if (n.src >= kFirstTableSource && n.src <= kLastTableSource) {
        return kSourceTable[n.src - kFirstTableSource](n);
    }
    if (n.src == kPassThroughSource) return switchRule(n);
    if (n.src == kGameAdaptationSource) {
        if (n.type == 1 && !n.text.empty()) return RuleRequest{n.src, 1, getGameAdpList(n.text)};
        if (n.type == 0) return RuleRequest{n.src, 0, {}};
    }
    return std::nullopt;
}

}  // namespace pax_wrapper
