// How competing claims on one resource combine into the value in force.
//
// Floors and boosts take the highest claim, ceilings and limits the lowest: a camera mode that
// asks for a lower floor must not undo a launch that asked for a higher one. Anything else
// (modes, switches, tunables without an order) goes to the most recent claim.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace aidl::vendor::norvo::hardware::vela::impl {

// A decimal integer with an optional sign and nothing around it; no octal, no hex, no blanks.
// Only such values are ordered by max and min.
std::optional<int64_t> parseDecimal(const std::string& text);

enum class Arbitration { kMax, kMin, kLatest };

// Every question about a rule is a switch over it with no default, so that a new rule makes the
// compiler name each place that must learn it.
constexpr const char* arbitrationName(Arbitration rule) {
    switch (rule) {
        case Arbitration::kMax:
            return "max";
        case Arbitration::kMin:
            return "min";
        case Arbitration::kLatest:
            return "latest";
    }
    return "latest";
}

// Whether claims are ordered by their numbers (and so must be numbers) or taken as they come.
constexpr bool isOrdered(Arbitration rule) {
    switch (rule) {
        case Arbitration::kMax:
        case Arbitration::kMin:
            return true;
        case Arbitration::kLatest:
            return false;
    }
    return false;
}

// Whether a claim of `candidate` beats one of `best` under an ordered rule.
constexpr bool outranks(Arbitration rule, int64_t candidate, int64_t best) {
    switch (rule) {
        case Arbitration::kMax:
            return candidate > best;
        case Arbitration::kMin:
            return candidate < best;
        case Arbitration::kLatest:
            return false;
    }
    return false;
}

// Every rule, for reading names; kLatest stays the last enumerator.
inline constexpr Arbitration kArbitrations[] = {Arbitration::kMax, Arbitration::kMin,
                                                Arbitration::kLatest};
static_assert(sizeof(kArbitrations) / sizeof(kArbitrations[0]) ==
                      static_cast<size_t>(Arbitration::kLatest) + 1,
              "every rule is listed once");

inline std::optional<Arbitration> arbitrationNamed(std::string_view name) {
    for (Arbitration rule : kArbitrations) {
        if (name == arbitrationName(rule)) return rule;
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
