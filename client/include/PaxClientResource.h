// One resource to set, query or listen to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace PaxClient {

struct Resource {
    // Resource opcode; 0 marks an empty slot.
    uint32_t id = 0;
    // The value as text. Absent and empty are treated alike.
    std::optional<std::string> value;

    bool operator==(const Resource& other) const { return id == other.id && value == other.value; }
};

}  // namespace PaxClient
