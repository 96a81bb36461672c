// Turning the caller's resources into request items.
#pragma once

#include <vector>

#include "pax.h"

namespace pax {

// One item per resource, in order, with the resource's value as it is (absent stays absent).
void appendResourceItems(const std::vector<PaxClient::Resource>& resources,
                         std::vector<VelaRequestData>& items);

// As appendResourceItems, but an absent value is sent as an empty text: rules expect one.
std::vector<VelaRequestData> ruleItems(const std::vector<PaxClient::Resource>& resources);

// An item carrying only an opcode (reinterpreted as the wire's int32) and its parameter.
VelaRequestData plainItem(int32_t id, int32_t param = 0);

}  // namespace pax
