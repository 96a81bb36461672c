// What the service knows about the platform: its resources (names and defaults), the
// resources each usage scenario claims, and the figures of the power estimate. Read from JSON;
// a configuration is compiled into the service so that it runs with no file at all.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ResourceTable.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

struct ResourceInfo {
    ResourceKey key;
    std::string name;
    std::optional<std::string> defaultValue;
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
    // Nothing when the text is not a valid configuration; `error` says why.
    static std::optional<ScenarioConfig> parse(const std::string& text, std::string* error);
    static std::optional<ScenarioConfig> load(const std::string& file, std::string* error);
    // The configuration shipped with the service (default-config.json).
    static const ScenarioConfig& builtIn();
    static const char* builtInText();

    const std::vector<ResourceInfo>& resources() const { return mResources; }
    const std::map<int32_t, Scenario>& scenarios() const { return mScenarios; }
    const PowerModel& power() const { return mPower; }

    const Scenario* scenarioFor(int32_t event) const;
    const ResourceInfo* infoFor(const ResourceKey& key) const;
    // The opcode a resource name stands for (names are case-sensitive).
    std::optional<uint32_t> opcodeNamed(const std::string& name) const;

private:
    static std::optional<ScenarioConfig> parseOrThrow(const std::string& text, std::string* error);

    std::vector<ResourceInfo> mResources;
    std::map<ResourceKey, size_t> mByKey;
    std::map<int32_t, Scenario> mScenarios;
    PowerModel mPower;
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
