// What the service knows about the platform: its resources (names and defaults), the
// resources each usage scenario claims, and the figures of the power estimate. Read from JSON;
// a configuration is compiled into the service so that it runs with no file at all.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Arbitration.h"
#include "ResourceTable.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// What a resource's values are: decimal integers (frequencies, counts, levels) or free text
// (profiles, command words).
enum class ValueType { kInteger, kText };

struct ValueTypeName {
    ValueType type;
    const char* name;
};
inline constexpr ValueTypeName kValueTypeNames[] = {
        {ValueType::kInteger, "integer"},
        {ValueType::kText, "text"},
};
static_assert(sizeof(kValueTypeNames) / sizeof(kValueTypeNames[0]) == 2,
              "every value type has exactly one name");
const char* valueTypeName(ValueType type);
std::optional<ValueType> valueTypeNamed(const std::string& name);

// Both ends included.
struct ValueRange {
    int64_t lo = 0;
    int64_t hi = 0;
};

// The rule of a resource that declares none: the one its name suggests, but text has no order,
// so a text resource named like a floor still takes the latest claim rather than be refused.
inline Arbitration implicitArbitration(const std::string& name, ValueType type) {
    return type == ValueType::kText ? Arbitration::kLatest : defaultArbitrationFor(name);
}

struct ResourceInfo {
    ResourceKey key;
    std::string name;
    std::optional<std::string> defaultValue;
    Arbitration arbitration = Arbitration::kLatest;
    ValueType type = ValueType::kInteger;
    // Integers only; none means any 64-bit value.
    std::optional<ValueRange> range;
    // The longest a request made "until released" may hold this resource; none: no cap.
    std::optional<int64_t> leaseMs;

    // Why `value` cannot be held by this resource, or nothing when it can.
    std::optional<std::string> problemWith(const std::string& value) const;
    bool accepts(const std::string& value) const { return !problemWith(value).has_value(); }
};

struct Scenario {
    // The event id: the position of `action` in the clients' action table.
    int32_t event = 0;
    std::string action;
    std::string description;
    ResourceTable::Values resources;
};

struct PowerModel {
    int32_t baseMw = 420;
    int32_t perRequestMw = 35;
    int32_t perRuleMw = 10;
};

class ScenarioConfig {
public:
    // Nothing when the text is not a valid configuration; `error` then names every problem,
    // one a line ("$.scenarios[0].action: unknown action ..."). ConfigReader.h tells more.
    static std::optional<ScenarioConfig> parse(const std::string& text, std::string* error);
    // As parse, each line led by the file's name; or why the file cannot be read.
    static std::optional<ScenarioConfig> load(const std::string& file, std::string* error);
    // The configuration shipped with the service (default-config.json).
    static const ScenarioConfig& builtIn();
    static const char* builtInText();

    const std::vector<ResourceInfo>& resources() const { return mResources; }
    const std::map<int32_t, Scenario>& scenarios() const { return mScenarios; }
    const PowerModel& power() const { return mPower; }
    // The longest any request made "until released" may hold; none: no cap.
    std::optional<int64_t> leaseMs() const { return mLeaseMs; }
    // Pairs of (floor, ceiling) that bound one knob.
    const std::vector<std::pair<ResourceKey, ResourceKey>>& bounds() const { return mBounds; }

    const Scenario* scenarioFor(int32_t event) const;
    // The configured name of a resource, or its opcode or path when it has none.
    std::string shortNameOf(const ResourceKey& key) const;
    const ResourceInfo* infoFor(const ResourceKey& key) const;
    // The opcode a resource name stands for (names are case-sensitive).
    std::optional<uint32_t> opcodeNamed(const std::string& name) const;

private:
    // Built only by the reader, so that every configuration has been checked as a whole.
    friend class ConfigReader;

    std::vector<ResourceInfo> mResources;
    std::map<ResourceKey, size_t> mByKey;
    std::map<int32_t, Scenario> mScenarios;
    PowerModel mPower;
    std::optional<int64_t> mLeaseMs;
    std::vector<std::pair<ResourceKey, ResourceKey>> mBounds;
};

// Opcodes are written as text ("0x010108a0", or decimal); 0 and values past 32 bits are
// refused, so is trailing text.
std::optional<uint32_t> parseOpcode(const std::string& text);

// A path a client may name: not empty, no ".." component and no NUL, at most kMaxPathLength
// bytes. Paths are also file names under the sysfs mirror, so this is what keeps a client
// from writing outside it.
constexpr size_t kMaxPathLength = 512;
bool isAcceptablePath(const std::string& path);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
