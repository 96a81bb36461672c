#include "ScenarioConfig.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "ConfigReader.h"

// Generated from default-config.json at build time.
extern "C" const char kVelaDefaultConfig[];

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

// Every problem a line, each led by `source` when there is one.
std::optional<ScenarioConfig> accepted(ConfigReading reading, const std::string& source,
                                       std::string* error) {
    if (reading.valid()) return std::move(reading.config);
    if (error == nullptr) return std::nullopt;
    *error = reading.unreadable;
    for (const ConfigProblem& problem : reading.problems) {
        if (!error->empty()) *error += "\n";
        if (!source.empty()) *error += source + ": ";
        *error += problem.path + ": " + problem.message;
    }
    return std::nullopt;
}

}  // namespace

const char* valueTypeName(ValueType type) {
    for (const ValueTypeName& entry : kValueTypeNames) {
        if (entry.type == type) return entry.name;
    }
    return "integer";
}

std::optional<ValueType> valueTypeNamed(const std::string& name) {
    for (const ValueTypeName& entry : kValueTypeNames) {
        if (name == entry.name) return entry.type;
    }
    return std::nullopt;
}

std::optional<std::string> ResourceInfo::problemWith(const std::string& value) const {
    if (type == ValueType::kText) return std::nullopt;
    const auto number = parseDecimal(value);
    if (!number) return "\"" + value + "\" is not a decimal integer";
    if (range && (*number < range->lo || *number > range->hi)) {
        return value + " is outside [" + std::to_string(range->lo) + ", " +
               std::to_string(range->hi) + "]";
    }
    return std::nullopt;
}

std::optional<uint32_t> parseOpcode(const std::string& text) {
    // strtoull would take a sign or leading blanks; an opcode is digits only.
    if (text.empty() || !isxdigit(static_cast<unsigned char>(text[0]))) return std::nullopt;
    errno = 0;
    char* end = nullptr;
    unsigned long long value = strtoull(text.c_str(), &end, 0);
    if (errno != 0 || end == text.c_str() || *end != '\0' || value == 0 || value > 0xffffffffULL) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(value);
}

bool isAcceptablePath(const std::string& path) {
    if (path.empty() || path.size() > kMaxPathLength) return false;
    if (path.find('\0') != std::string::npos) return false;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        if (path.compare(start, end - start, "..") == 0) return false;
        start = end + 1;
    }
    return true;
}

std::optional<ScenarioConfig> ScenarioConfig::parse(const std::string& text, std::string* error) {
    return accepted(readConfig(text), "", error);
}

std::optional<ScenarioConfig> ScenarioConfig::load(const std::string& file, std::string* error) {
    return accepted(readConfigFile(file), file, error);
}

const char* ScenarioConfig::builtInText() {
    return kVelaDefaultConfig;
}

const ScenarioConfig& ScenarioConfig::builtIn() {
    static const ScenarioConfig config = [] {
        std::string error;
        auto parsed = parse(kVelaDefaultConfig, &error);
        // The file is checked at build time by the tests; an empty configuration is still a
        // working service.
        return parsed ? std::move(*parsed) : ScenarioConfig{};
    }();
    return config;
}

std::string ScenarioConfig::shortNameOf(const ResourceKey& key) const {
    const ResourceInfo* info = infoFor(key);
    return info != nullptr && !info->name.empty() ? info->name : key.toString();
}

const Scenario* ScenarioConfig::scenarioFor(int32_t event) const {
    auto it = mScenarios.find(event);
    return it == mScenarios.end() ? nullptr : &it->second;
}

const ResourceInfo* ScenarioConfig::infoFor(const ResourceKey& key) const {
    auto it = mByKey.find(key);
    return it == mByKey.end() ? nullptr : &mResources[it->second];
}

std::optional<uint32_t> ScenarioConfig::opcodeNamed(const std::string& name) const {
    for (const ResourceInfo& info : mResources) {
        if (!info.key.isPath() && info.name == name) return info.key.opcode;
    }
    return std::nullopt;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
