// How competing claims on one resource combine into the value in force.
//
// Floors and boosts take the highest claim, ceilings and limits the lowest: a camera mode that
// asks for a lower floor must not undo a launch that asked for a higher one. Anything else
// (modes, switches, tunables without an order) goes to the most recent claim.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace aidl::vendor::norvo::hardware::vela::impl {

// A decimal integer with an optional sign and nothing around it; no octal, no hex, no blanks.
// Only such values are ordered by max and min.
std::optional<int64_t> parseDecimal(const std::string& text);

enum class Arbitration { kMax, kMin, kLatest };

struct ArbitrationName {
    Arbitration rule;
    const char* name;
};
inline constexpr ArbitrationName kArbitrationNames[] = {
        {Arbitration::kMax, "max"},
        {Arbitration::kMin, "min"},
        {Arbitration::kLatest, "latest"},
};
static_assert(sizeof(kArbitrationNames) / sizeof(kArbitrationNames[0]) == 3,
              "every arbitration rule has exactly one name");

constexpr const char* arbitrationName(Arbitration rule) {
    for (const ArbitrationName& entry : kArbitrationNames) {
        if (entry.rule == rule) return entry.name;
    }
    return "latest";
}

inline std::optional<Arbitration> arbitrationNamed(std::string_view name) {
    for (const ArbitrationName& entry : kArbitrationNames) {
        if (name == entry.name) return entry.rule;
    }
    return std::nullopt;
}

// The rule a resource gets when its configuration names none, from the last part of its name:
// "…freq_min", "…cores_min", "…min_freq", "…boost…" are floors; "…_max", "…max_freq" ceilings.
inline Arbitration defaultArbitrationFor(std::string_view name) {
    auto endsWith = [name](std::string_view tail) {
        return name.size() >= tail.size() && name.substr(name.size() - tail.size()) == tail;
    };
    if (endsWith("_min") || endsWith(".min") || endsWith("min_freq") ||
        name.find("boost") != std::string_view::npos) {
        return Arbitration::kMax;
    }
    if (endsWith("_max") || endsWith(".max") || endsWith("max_freq")) return Arbitration::kMin;
    return Arbitration::kLatest;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
