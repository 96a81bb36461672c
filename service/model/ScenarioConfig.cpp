#include "ScenarioConfig.h"

#include <json/json.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

// Generated from default-config.json at build time.
extern "C" const char kVelaDefaultConfig[];

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

bool fail(std::string* error, const std::string& why) {
    if (error != nullptr) *error = why;
    return false;
}

// A resource reference: {"opcode": "0x..."} or {"path": "/..."}.
bool readKey(const Json::Value& node, const std::string& where, ResourceKey* key,
             std::string* error) {
    const bool hasOpcode = node.isMember("opcode");
    const bool hasPath = node.isMember("path");
    if (hasOpcode == hasPath) {
        return fail(error, where + ": needs exactly one of \"opcode\" and \"path\"");
    }
    if (hasOpcode) {
        const Json::Value& v = node["opcode"];
        std::optional<uint32_t> opcode;
        if (v.isString()) {
            opcode = parseOpcode(v.asString());
        } else if (v.isUInt() && v.asUInt() != 0) {
            opcode = v.asUInt();
        }
        if (!opcode) return fail(error, where + ": bad opcode " + v.toStyledString());
        *key = ResourceKey::ofOpcode(*opcode);
        return true;
    }
    const Json::Value& v = node["path"];
    if (!v.isString() || !isAcceptablePath(v.asString())) {
        return fail(error, where + ": bad path " + v.toStyledString());
    }
    *key = ResourceKey::ofPath(v.asString());
    return true;
}

bool readText(const Json::Value& node, const char* field, const std::string& where,
              std::optional<std::string>* out, std::string* error) {
    if (!node.isMember(field)) return true;
    const Json::Value& v = node[field];
    if (!v.isString()) return fail(error, where + ": \"" + field + "\" must be a string");
    *out = v.asString();
    return true;
}

bool readInt(const Json::Value& node, const char* field, const std::string& where, int32_t* out,
             std::string* error) {
    if (!node.isMember(field)) return true;
    const Json::Value& v = node[field];
    if (!v.isInt() || v.asInt() < 0) {
        return fail(error, where + ": \"" + field + "\" must be a non-negative integer");
    }
    *out = v.asInt();
    return true;
}

// "type", "range" and "arbitration" of a resource whose name is read already, and its default
// checked against them.
bool readValueRules(const Json::Value& node, const std::string& where, ResourceInfo* info,
                    std::string* error) {
    std::optional<std::string> text;
    if (!readText(node, "type", where, &text, error)) return false;
    if (text) {
        auto type = valueTypeNamed(*text);
        if (!type) return fail(error, where + ": unknown type \"" + *text + "\"");
        info->type = *type;
    }
    if (node.isMember("range")) {
        const Json::Value& v = node["range"];
        if (info->type != ValueType::kInteger) {
            return fail(error, where + ": a range needs an integer resource");
        }
        if (!v.isArray() || v.size() != 2 || !v[0].isInt64() || !v[1].isInt64() ||
            v[0].asInt64() > v[1].asInt64()) {
            return fail(error, where + ": \"range\" must be [lo, hi] with lo <= hi");
        }
        info->range = ValueRange{v[0].asInt64(), v[1].asInt64()};
    }
    text.reset();
    if (!readText(node, "arbitration", where, &text, error)) return false;
    info->arbitration = implicitArbitration(info->name, info->type);
    if (text) {
        auto rule = arbitrationNamed(*text);
        if (!rule) return fail(error, where + ": unknown arbitration \"" + *text + "\"");
        info->arbitration = *rule;
    }
    if (info->arbitration != Arbitration::kLatest && info->type != ValueType::kInteger) {
        return fail(error, where + ": \"" + arbitrationName(info->arbitration) +
                                   "\" arbitration needs an integer resource");
    }
    if (info->defaultValue) {
        if (auto why = info->problemWith(*info->defaultValue)) {
            return fail(error, where + ": default " + *why);
        }
    }
    return true;
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
    try {
        return parseOrThrow(text, error);
    } catch (const Json::Exception& e) {
        fail(error, e.what());
        return std::nullopt;
    }
}

bool parseConfigJson(const std::string& text, Json::Value* out, std::string* errors) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    return reader->parse(text.data(), text.data() + text.size(), out, errors);
}

std::optional<ScenarioConfig> ScenarioConfig::parseOrThrow(const std::string& text,
                                                           std::string* error) {
    Json::Value root;
    std::string parseErrors;
    if (!parseConfigJson(text, &root, &parseErrors)) {
        fail(error, "not valid JSON: " + parseErrors);
        return std::nullopt;
    }
    if (!root.isObject()) {
        fail(error, "the top level must be an object");
        return std::nullopt;
    }

    ScenarioConfig config;
    if (root.isMember("power")) {
        const Json::Value& power = root["power"];
        if (!power.isObject()) {
            fail(error, "\"power\" must be an object");
            return std::nullopt;
        }
        if (!readInt(power, "base_mw", "power", &config.mPower.baseMw, error) ||
            !readInt(power, "per_request_mw", "power", &config.mPower.perRequestMw, error) ||
            !readInt(power, "per_rule_mw", "power", &config.mPower.perRuleMw, error)) {
            return std::nullopt;
        }
    }

    const Json::Value& resources = root["resources"];
    if (!resources.isNull() && !resources.isArray()) {
        fail(error, "\"resources\" must be an array");
        return std::nullopt;
    }
    for (Json::ArrayIndex i = 0; i < resources.size(); ++i) {
        const Json::Value& node = resources[i];
        const std::string where = "resources[" + std::to_string(i) + "]";
        if (!node.isObject()) {
            fail(error, where + ": must be an object");
            return std::nullopt;
        }
        ResourceInfo info;
        std::optional<std::string> name;
        if (!readKey(node, where, &info.key, error) ||
            !readText(node, "name", where, &name, error) ||
            !readText(node, "default", where, &info.defaultValue, error)) {
            return std::nullopt;
        }
        info.name = name.value_or("");
        if (!readValueRules(node, where, &info, error)) return std::nullopt;
        if (config.mByKey.count(info.key) != 0) {
            fail(error, where + ": " + info.key.toString() + " is listed twice");
            return std::nullopt;
        }
        config.mByKey.emplace(info.key, config.mResources.size());
        config.mResources.push_back(std::move(info));
    }

    const Json::Value& scenarios = root["scenarios"];
    if (!scenarios.isNull() && !scenarios.isArray()) {
        fail(error, "\"scenarios\" must be an array");
        return std::nullopt;
    }
    for (Json::ArrayIndex i = 0; i < scenarios.size(); ++i) {
        const Json::Value& node = scenarios[i];
        const std::string where = "scenarios[" + std::to_string(i) + "]";
        if (!node.isObject() || !node["event"].isInt() || node["event"].asInt() < 0) {
            fail(error, where + ": needs a non-negative integer \"event\"");
            return std::nullopt;
        }
        Scenario scenario;
        scenario.event = node["event"].asInt();
        std::optional<std::string> action, description;
        if (!readText(node, "action", where, &action, error) ||
            !readText(node, "description", where, &description, error)) {
            return std::nullopt;
        }
        scenario.action = action.value_or("");
        scenario.description = description.value_or("");
        const Json::Value& items = node["resources"];
        if (!items.isArray()) {
            fail(error, where + ": \"resources\" must be an array");
            return std::nullopt;
        }
        for (Json::ArrayIndex k = 0; k < items.size(); ++k) {
            const std::string itemWhere = where + ".resources[" + std::to_string(k) + "]";
            if (!items[k].isObject()) {
                fail(error, itemWhere + ": must be an object");
                return std::nullopt;
            }
            ResourceKey key;
            std::optional<std::string> value;
            if (!readKey(items[k], itemWhere, &key, error) ||
                !readText(items[k], "value", itemWhere, &value, error)) {
                return std::nullopt;
            }
            if (!value) {
                fail(error, itemWhere + ": needs a \"value\"");
                return std::nullopt;
            }
            // A resource nobody declared takes any value, as it does from a client.
            if (const ResourceInfo* info = config.infoFor(key)) {
                if (auto why = info->problemWith(*value)) {
                    fail(error, itemWhere + ": " + *why + " for " + key.toString());
                    return std::nullopt;
                }
            }
            scenario.resources.emplace_back(std::move(key), std::move(*value));
        }
        if (config.mScenarios.count(scenario.event) != 0) {
            fail(error, where + ": event " + std::to_string(scenario.event) + " is listed twice");
            return std::nullopt;
        }
        config.mScenarios.emplace(scenario.event, std::move(scenario));
    }
    return config;
}

std::optional<ScenarioConfig> ScenarioConfig::load(const std::string& file, std::string* error) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        fail(error, "cannot read " + file);
        return std::nullopt;
    }
    std::ostringstream text;
    text << in.rdbuf();
    auto config = parse(text.str(), error);
    if (!config && error != nullptr) *error = file + ": " + *error;
    return config;
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
