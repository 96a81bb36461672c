// What the wrapper's entry points decide before they talk to the Pax interface. Kept free of
// any service call so that it can be exercised on its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "PaxClientResource.h"

namespace pax_wrapper {

// The event id of "MIRDAL_<name>", or -1 when the name is not in gActionList.
int32_t findActionId(const std::string& eventId);

// The two entries that take game upgrade mode down: a level of -1, then an empty text.
std::vector<PaxClient::Resource> gameUpgradeClearList();

// One paxRuleCtl call.
struct RuleRequest {
    int32_t ruleId = 0;
    int32_t status = 0;
    std::vector<PaxClient::Resource> resources;
};

// The notification as PaxNotifyWapper received it, minus the arguments nobody reads.
struct Notification {
    const std::string& data;
    int32_t src;
    int32_t type;
    int32_t value;
    const std::string& text;
};

// The rule switch a notification asks for, or nothing for the sources that are reserved or
// have nothing to say.
std::optional<RuleRequest> planNotification(const Notification& n);

}  // namespace pax_wrapper
