#include "ConfigReader.h"

#include <PaxWrapper.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <map>
#include <optional>

#include "ConfigJson.h"
#include "EditDistance.h"
#include "ServiceLimits.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

constexpr char kExactlyOneKey[] = "needs exactly one of \"opcode\" and \"path\"";
constexpr char kNoResource[] = "a configuration declares at least one resource";

// The keys each kind of object may hold; anything else is a slip, named with the nearest.
// Arrays of literals rather than vectors: nothing to construct before a reading.
using Keys = std::initializer_list<const char*>;
constexpr Keys kRootKeys = {"version", "power", "lease_ms", "resources", "bounds", "scenarios"};
constexpr Keys kBoundKeys = {"floor", "ceiling"};
constexpr Keys kPowerKeys = {"base_mw", "per_request_mw", "per_rule_mw"};
constexpr Keys kResourceKeys = {"opcode",      "path", "name",  "default",
                                "arbitration", "type", "range", "lease_ms"};
constexpr Keys kScenarioKeys = {"event", "action", "description", "resources"};
constexpr Keys kClaimKeys = {"opcode", "path", "value"};

// "; did you mean X?" for the name in `names` nearest to `name`, or nothing: further than two
// edits is another name, not a slip.
template <typename Names>
std::string didYouMean(const std::string& name, const Names& names) {
    std::string best;
    size_t bestDistance = 3;
    for (const auto& candidate : names) {
        const size_t d = editDistance(name, candidate);
        if (d < bestDistance) {
            best = candidate;
            bestDistance = d;
        }
    }
    return best.empty() ? std::string() : "; did you mean " + best + "?";
}

// "0x" and one to eight hex digits, or decimal with no leading zero: parseOpcode alone would
// also read "010" as octal eight, which nobody writing a configuration means.
bool isOpcodeText(const std::string& text) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const auto digits = text.begin() + (hex ? 2 : 0);
    return text.size() <= 10 && digits != text.end() && (hex || *digits != '0') &&
           std::all_of(digits, text.end(),
                       [hex](unsigned char c) { return hex ? isxdigit(c) != 0 : isdigit(c) != 0; });
}

std::string keyField(const ResourceKey& key) {
    return key.isPath() ? "path" : "opcode";
}

}  // namespace

// Reads one parsed document. Every node is judged where it stands, so a file that is broken
// in one place is still read everywhere else; a resource, scenario or claim joins the
// configuration only when nothing was found in it.
class ConfigReader {
public:
    ConfigReading read(const Json::Value& root) {
        if (!root.isObject()) {
            report(root, "$", "must be an object");
        } else {
            unknownKeys(root, "$", kRootKeys);
            if (const Json::Value* version = member(root, "$", "version", false)) {
                if (!version->isInt() || version->asInt() != 1) {
                    report(*version, "$.version", "must be 1");
                }
            }
            if (const Json::Value* power = member(root, "$", "power", false)) {
                readPower(*power, "$.power");
            }
            readLease(root, "$", &mConfig.mLeaseMs);
            // Resources first: bounds and scenarios are read against them wherever they stand.
            readResources(root);
            if (const Json::Value* list = member(root, "$", "bounds", false)) {
                if (array(*list, "$.bounds")) {
                    for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
                        readBound((*list)[i], elementPath("$.bounds", i));
                    }
                }
            }
            if (const Json::Value* list = member(root, "$", "scenarios", false)) {
                if (array(*list, "$.scenarios")) {
                    for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
                        readScenario((*list)[i], elementPath("$.scenarios", i));
                    }
                }
            }
        }
        std::stable_sort(mFound.begin(), mFound.end(),
                         [](const Found& a, const Found& b) { return a.offset < b.offset; });
        ConfigReading reading;
        reading.config = std::move(mConfig);
        for (Found& found : mFound) reading.problems.push_back(std::move(found.problem));
        return reading;
    }

private:
    struct Found {
        ptrdiff_t offset;  // where the node starts in the text, for the document's order
        ConfigProblem problem;
    };
    struct Declared {
        std::string path;
        std::optional<ResourceInfo> info;  // none when its own rules are broken
    };

    void report(const Json::Value& node, std::string path, std::string message) {
        mFound.push_back({node.getOffsetStart(), {std::move(path), std::move(message)}});
    }

    // `node` is an object here: jsoncpp asserts (throws) when asked for a member of anything
    // else, so every caller has checked.
    const Json::Value* member(const Json::Value& node, const std::string& path, const char* key,
                              bool required) {
        const Json::Value* found = node.find(key, key + strlen(key));
        if (found == nullptr && required) {
            report(node, path, std::string("missing \"") + key + "\"");
        }
        return found;
    }

    std::optional<std::string> text(const Json::Value& node, const std::string& path,
                                    const char* key, bool required) {
        const Json::Value* found = member(node, path, key, required);
        if (found == nullptr) return std::nullopt;
        if (!found->isString()) {
            report(*found, memberPath(path, key), "must be a string");
            return std::nullopt;
        }
        return found->asString();
    }

    bool object(const Json::Value& node, const std::string& path) {
        if (!node.isObject()) report(node, path, "must be an object");
        return node.isObject();
    }

    bool array(const Json::Value& node, const std::string& path) {
        if (!node.isArray()) report(node, path, "must be an array");
        return node.isArray();
    }

    void unknownKeys(const Json::Value& node, const std::string& path, Keys known) {
        for (const std::string& key : node.getMemberNames()) {
            if (std::any_of(known.begin(), known.end(),
                            [&key](const char* k) { return key == k; })) {
                continue;
            }
            report(node[key], memberPath(path, key), "unknown key" + didYouMean(key, known));
        }
    }

    void readPower(const Json::Value& node, const std::string& path) {
        if (!object(node, path)) return;
        unknownKeys(node, path, kPowerKeys);
        const struct {
            const char* key;
            int32_t* field;
        } fields[] = {{"base_mw", &mConfig.mPower.baseMw},
                      {"per_request_mw", &mConfig.mPower.perRequestMw},
                      {"per_rule_mw", &mConfig.mPower.perRuleMw}};
        for (const auto& f : fields) {
            const Json::Value* v = member(node, path, f.key, false);
            if (v == nullptr) continue;
            if (v->isInt() && v->asInt() >= 0) {
                *f.field = v->asInt();
            } else {
                report(*v, memberPath(path, f.key), "must be an integer from 0 to 2147483647");
            }
        }
    }

    // A lease is a duration a request could also ask for: from 1 ms to the longest one.
    void readLease(const Json::Value& node, const std::string& path, std::optional<int64_t>* out) {
        const Json::Value* v = member(node, path, "lease_ms", false);
        if (v == nullptr) return;
        if (v->isInt64() && v->asInt64() >= 1 && v->asInt64() <= ServiceLimits::kMaxDurationMs) {
            *out = v->asInt64();
        } else {
            report(*v, memberPath(path, "lease_ms"),
                   "must be an integer from 1 to " + std::to_string(ServiceLimits::kMaxDurationMs) +
                           " (ms)");
        }
    }

    void readResources(const Json::Value& root) {
        const Json::Value* list = member(root, "$", "resources", false);
        if (list == nullptr) {
            report(root, "$", std::string("missing \"resources\": ") + kNoResource);
        } else if (array(*list, "$.resources")) {
            if (list->empty()) report(*list, "$.resources", std::string("empty: ") + kNoResource);
            for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
                readResource((*list)[i], elementPath("$.resources", i));
            }
        }
    }

    // The resource an item names, when it names one well.
    std::optional<ResourceKey> readKey(const Json::Value& node, const std::string& path) {
        const Json::Value* opcode = member(node, path, "opcode", false);
        const Json::Value* file = member(node, path, "path", false);
        if ((opcode == nullptr) == (file == nullptr)) {
            report(node, path, kExactlyOneKey);
            return std::nullopt;
        }
        if (opcode != nullptr) {
            std::optional<uint32_t> value;
            if (opcode->isString() && isOpcodeText(opcode->asString())) {
                value = parseOpcode(opcode->asString());
            } else if (opcode->isUInt() && opcode->asUInt() != 0) {
                value = opcode->asUInt();
            }
            if (!value) {
                report(*opcode, memberPath(path, "opcode"),
                       "not an opcode (0x followed by up to 8 hex digits, or decimal; not 0)");
                return std::nullopt;
            }
            return ResourceKey::ofOpcode(*value);
        }
        const std::optional<std::string> name = text(node, path, "path", false);
        if (!name) return std::nullopt;
        if (!isAcceptablePath(*name)) {
            report(*file, memberPath(path, "path"),
                   "not a usable path (empty, too long, or with \"..\")");
            return std::nullopt;
        }
        return ResourceKey::ofPath(*name);
    }

    // "type", "arbitration" and "range"; false when they do not say how to judge a value.
    bool readValueRules(const Json::Value& node, const std::string& path, ResourceInfo* info) {
        bool known = true;
        if (const Json::Value* v = member(node, path, "type", false)) {
            const auto type = v->isString() ? valueTypeNamed(v->asString()) : std::nullopt;
            if (type) info->type = *type;
            if (!type) {
                report(*v, memberPath(path, "type"),
                       v->isString() ? "unknown type \"" + v->asString() + "\" (integer or text)"
                                     : "must be \"integer\" or \"text\"");
                known = false;
            }
        }
        info->arbitration = implicitArbitration(info->name, info->type);
        if (const Json::Value* v = member(node, path, "arbitration", false)) {
            const auto rule = v->isString() ? arbitrationNamed(v->asString()) : std::nullopt;
            if (!rule) {
                report(*v, memberPath(path, "arbitration"),
                       v->isString() ? "unknown arbitration \"" + v->asString() +
                                               "\" (max, min or latest)"
                                     : "must be \"max\", \"min\" or \"latest\"");
            } else if (isOrdered(*rule) && info->type != ValueType::kInteger) {
                report(*v, memberPath(path, "arbitration"),
                       "\"" + v->asString() + "\" needs an integer resource");
            } else {
                info->arbitration = *rule;
            }
        }
        if (const Json::Value* v = member(node, path, "range", false)) {
            const std::string where = memberPath(path, "range");
            if (info->type != ValueType::kInteger) {
                report(*v, where, "a range needs an integer resource");
                known = false;
            } else if (!v->isArray() || v->size() != 2 || !(*v)[0].isInt64() ||
                       !(*v)[1].isInt64()) {
                report(*v, where, "must be [lo, hi], two 64-bit integers");
                known = false;
            } else if ((*v)[0].asInt64() > (*v)[1].asInt64()) {
                report(*v, where, "lo is greater than hi");
                known = false;
            } else {
                info->range = ValueRange{(*v)[0].asInt64(), (*v)[1].asInt64()};
            }
        }
        return known;
    }

    void readResource(const Json::Value& node, const std::string& path) {
        if (!object(node, path)) return;
        const size_t before = mFound.size();
        unknownKeys(node, path, kResourceKeys);
        ResourceInfo info;
        const std::optional<ResourceKey> key = readKey(node, path);
        if (auto name = text(node, path, "name", true)) {
            if (name->empty()) report(node["name"], memberPath(path, "name"), "must not be empty");
            info.name = *name;
        }
        info.defaultValue = text(node, path, "default", false);
        readLease(node, path, &info.leaseMs);
        // Values are judged only by rules that are themselves right; otherwise the one mistake
        // in the rules would be reported again at every value.
        const bool rulesKnown = readValueRules(node, path, &info);
        if (rulesKnown && info.defaultValue) {
            if (auto why = info.problemWith(*info.defaultValue)) {
                report(node["default"], memberPath(path, "default"), *why);
            }
        }
        if (key) {
            info.key = *key;
            auto [first, added] = mDeclared.emplace(info.key, Declared{path, std::nullopt});
            if (!added) {
                report(node[keyField(info.key)], memberPath(path, keyField(info.key)),
                       info.key.toString() + " is declared twice (first at " + first->second.path +
                               ")");
            } else if (rulesKnown) {
                first->second.info = info;
            }
        }
        if (!info.name.empty()) {
            auto [first, added] = mNames.emplace(info.name, path);
            if (!added) {
                report(node["name"], memberPath(path, "name"),
                       "the name \"" + info.name + "\" is taken by " + first->second);
            }
        }
        if (mFound.size() == before) {
            mConfig.mByKey.emplace(info.key, mConfig.mResources.size());
            mConfig.mResources.push_back(std::move(info));
        }
    }

    // One end of a bound: a declared integer resource, named by its name.
    const ResourceInfo* readBoundEnd(const Json::Value& node, const std::string& path,
                                     const char* key) {
        const std::optional<std::string> name = text(node, path, key, true);
        if (!name) return nullptr;
        for (const ResourceInfo& info : mConfig.mResources) {
            if (info.name != *name) continue;
            if (info.type == ValueType::kInteger) return &info;
            report(node[key], memberPath(path, key),
                   "\"" + *name + "\" is not an integer resource");
            return nullptr;
        }
        std::vector<std::string> names;
        for (const ResourceInfo& info : mConfig.mResources) names.push_back(info.name);
        report(node[key], memberPath(path, key),
               "no resource named \"" + *name + "\"" + didYouMean(*name, names));
        return nullptr;
    }

    void readBound(const Json::Value& node, const std::string& path) {
        if (!object(node, path)) return;
        unknownKeys(node, path, kBoundKeys);
        const ResourceInfo* floor = readBoundEnd(node, path, "floor");
        const ResourceInfo* ceiling = readBoundEnd(node, path, "ceiling");
        if (floor == nullptr || ceiling == nullptr) return;
        for (const auto& [otherFloor, otherCeiling] : mConfig.mBounds) {
            for (const ResourceKey& taken : {otherFloor, otherCeiling}) {
                for (const ResourceInfo* end : {floor, ceiling}) {
                    if (end->key != taken) continue;
                    report(node, path, "\"" + end->name + "\" is already in a bound");
                    return;
                }
            }
        }
        if (floor->key == ceiling->key) {
            report(node, path, "a resource cannot bound itself");
            return;
        }
        mConfig.mBounds.emplace_back(floor->key, ceiling->key);
    }

    // A scenario that claims both ends of a bound asks for one knob's floor above its ceiling.
    void checkBounds(const Json::Value& claims, const std::string& where,
                     const std::map<ResourceKey, Json::ArrayIndex>& claimed,
                     const Scenario& scenario) {
        auto valueOf = [&](const ResourceKey& key) -> std::optional<int64_t> {
            for (const auto& [k, v] : scenario.resources) {
                if (k == key) return parseDecimal(v);
            }
            return std::nullopt;
        };
        for (const auto& [floor, ceiling] : mConfig.mBounds) {
            const auto low = valueOf(floor), high = valueOf(ceiling);
            if (!low || !high || *low <= *high) continue;
            const Json::ArrayIndex at = claimed.at(floor);
            report(claims[at]["value"], memberPath(elementPath(where, at), "value"),
                   std::to_string(*low) + " exceeds " + mConfig.shortNameOf(ceiling) + " " +
                           std::to_string(*high) + " claimed in the same scenario");
        }
    }

    void readScenario(const Json::Value& node, const std::string& path) {
        if (!object(node, path)) return;
        const size_t before = mFound.size();
        unknownKeys(node, path, kScenarioKeys);
        Scenario scenario;
        const Json::Value* event = member(node, path, "event", true);
        const bool hasEvent = event != nullptr && event->isInt() && event->asInt() >= 0;
        if (hasEvent) {
            scenario.event = event->asInt();
            auto [first, added] = mEvents.emplace(scenario.event, path);
            if (!added) {
                report(*event, memberPath(path, "event"),
                       "event " + std::to_string(scenario.event) + " is listed twice (first at " +
                               first->second + ")");
            }
        } else if (event != nullptr) {
            report(*event, memberPath(path, "event"), "must be a non-negative integer");
        }
        if (auto action = text(node, path, "action", true)) {
            scenario.action = *action;
            readAction(node, path, scenario, hasEvent);
        }
        scenario.description = text(node, path, "description", false).value_or("");
        if (const Json::Value* claims = member(node, path, "resources", true)) {
            const std::string where = memberPath(path, "resources");
            if (array(*claims, where)) {
                std::map<ResourceKey, Json::ArrayIndex> claimed;
                for (Json::ArrayIndex k = 0; k < claims->size(); ++k) {
                    readClaim((*claims)[k], where, k, &claimed, &scenario);
                }
                checkBounds(*claims, where, claimed, scenario);
            }
        }
        if (mFound.size() == before)
            mConfig.mScenarios.emplace(scenario.event, std::move(scenario));
    }

    // The action's name, and the event as its position in the clients' action table.
    void readAction(const Json::Value& node, const std::string& path, const Scenario& scenario,
                    bool hasEvent) {
        const std::string& name = scenario.action;
        const auto it = std::find(gActionList.begin(), gActionList.end(), name);
        if (it == gActionList.end()) {
            report(node["action"], memberPath(path, "action"),
                   "unknown action \"" + name + "\"" + didYouMean(name, gActionList));
            return;
        }
        const auto id = static_cast<size_t>(scenario.event);
        if (!hasEvent || (id < gActionList.size() && gActionList[id] == name)) return;
        const std::string is = id < gActionList.size()
                                       ? "is " + gActionList[id]
                                       : "is past the action table (0 to " +
                                                 std::to_string(gActionList.size() - 1) + ")";
        report(node["event"], memberPath(path, "event"),
               "event " + std::to_string(id) + " " + is + "; " + name + " is event " +
                       std::to_string(it - gActionList.begin()));
    }

    void readClaim(const Json::Value& node, const std::string& list, Json::ArrayIndex position,
                   std::map<ResourceKey, Json::ArrayIndex>* claimed, Scenario* scenario) {
        const std::string path = elementPath(list, position);
        if (!object(node, path)) return;
        unknownKeys(node, path, kClaimKeys);
        const std::optional<ResourceKey> key = readKey(node, path);
        const std::optional<std::string> value = text(node, path, "value", true);
        if (!key) return;
        const Json::Value& keyNode = node[keyField(*key)];
        const std::string keyPath = memberPath(path, keyField(*key));
        auto [first, added] = claimed->emplace(*key, position);
        if (!added) {
            report(keyNode, keyPath,
                   key->toString() + " is claimed twice in this scenario (first at resources[" +
                           std::to_string(first->second) + "])");
        }
        const auto declared = mDeclared.find(*key);
        if (declared == mDeclared.end()) {
            report(keyNode, keyPath,
                   std::string(key->isPath() ? "undeclared path " : "undeclared opcode ") +
                           key->toString());
            return;
        }
        if (!value) return;
        const std::optional<ResourceInfo>& info = declared->second.info;
        if (info) {
            if (auto why = info->problemWith(*value)) {
                report(node["value"], memberPath(path, "value"),
                       *why + (info->name.empty() ? "" : " for " + info->name));
            }
        }
        scenario->resources.emplace_back(*key, *value);
    }

    ScenarioConfig mConfig;
    std::vector<Found> mFound;
    std::map<ResourceKey, Declared> mDeclared;
    std::map<std::string, std::string> mNames;  // a resource's name, and where it is declared
    std::map<int32_t, std::string> mEvents;     // a scenario's event, and where
};

ConfigReading readConfig(const std::string& text) {
    Json::Value root;
    if (auto why = parseConfigJson(text, &root)) {
        ConfigReading reading;
        reading.problems.push_back({"$", *why});
        return reading;
    }
    return ConfigReader().read(root);
}

std::optional<std::string> readBoundedText(const std::string& file, std::string* text) {
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return "cannot open " + file + ": " + strerror(errno);
    std::optional<std::string> why;
    char buffer[16384];
    while (text->size() <= kMaxConfigBytes) {
        const ssize_t n = read(fd, buffer, sizeof(buffer));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) why = "cannot read " + file + ": " + strerror(errno);
        if (n <= 0) break;
        text->append(buffer, static_cast<size_t>(n));
    }
    close(fd);
    return why;
}

ConfigReading readConfigFile(const std::string& file) {
    ConfigReading reading;
    std::string text;
    if (auto why = readBoundedText(file, &text)) {
        reading.unreadable = *why;
    } else if (text.size() > kMaxConfigBytes) {
        reading.problems.push_back({"$", "larger than " + std::to_string(kMaxConfigBytes >> 20) +
                                                 " MiB: not a configuration"});
    } else {
        reading = readConfig(text);
    }
    return reading;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
