// The cross-checks: what each part of a configuration means given the others and the clients'
// action table. Every node is read only when it has the type the schema asks for, so a file
// that is malformed in one place is still checked everywhere else.
#include <PaxWrapper.h>

#include <algorithm>
#include <map>
#include <optional>

#include "Arbitration.h"
#include "ConfigChecks.h"
#include "EditDistance.h"
#include "ScenarioConfig.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

constexpr char kExactlyOneKey[] = "needs exactly one of \"opcode\" and \"path\"";

JsonPath child(JsonPath path, const std::string& key) {
    path.emplace_back(key);
    return path;
}
JsonPath child(JsonPath path, Json::ArrayIndex index) {
    path.emplace_back(index);
    return path;
}

std::string closestAction(const std::string& name) {
    std::string best;
    size_t bestDistance = 3;  // further than two edits is another name, not a slip
    for (const std::string& candidate : gActionList) {
        const size_t d = editDistance(name, candidate);
        if (d < bestDistance) {
            best = candidate;
            bestDistance = d;
        }
    }
    return best.empty() ? std::string() : "; did you mean " + best + "?";
}

class CrossChecker {
public:
    explicit CrossChecker(std::vector<Finding>* out) : mOut(out) {}

    void resources(const Json::Value& list, const JsonPath& where) {
        if (!list.isArray()) return;
        for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
            if (list[i].isObject()) resource(list[i], child(where, i));
        }
    }

    void scenarios(const Json::Value& list, const JsonPath& where) {
        if (!list.isArray()) return;
        for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
            if (list[i].isObject()) scenario(list[i], child(where, i));
        }
    }

private:
    void report(JsonPath path, std::string message) {
        mOut->push_back({std::move(path), std::move(message)});
    }

    // The resource an item names, when it names one well.
    std::optional<ResourceKey> key(const Json::Value& node, const JsonPath& where) {
        const bool hasOpcode = node.isMember("opcode");
        if (hasOpcode == node.isMember("path")) {
            report(where, kExactlyOneKey);
            return std::nullopt;
        }
        if (hasOpcode) {
            const Json::Value& v = node["opcode"];
            std::optional<uint32_t> opcode;
            if (v.isString()) opcode = parseOpcode(v.asString());
            if (v.isUInt() && v.asUInt() != 0) opcode = v.asUInt();
            if (!opcode) {
                report(child(where, "opcode"),
                       "not an opcode (0x followed by up to 8 hex digits, or decimal; not 0)");
                return std::nullopt;
            }
            return ResourceKey::ofOpcode(*opcode);
        }
        const Json::Value& v = node["path"];
        if (!v.isString()) return std::nullopt;
        if (!isAcceptablePath(v.asString())) {
            report(child(where, "path"), "not a usable path (empty, too long, or with \"..\")");
            return std::nullopt;
        }
        return ResourceKey::ofPath(v.asString());
    }

    static std::string keyField(const ResourceKey& key) { return key.isPath() ? "path" : "opcode"; }

    void resource(const Json::Value& node, const JsonPath& where) {
        ResourceInfo info;
        const auto found = key(node, where);
        if (node["name"].isString()) info.name = node["name"].asString();
        bool firstDeclaration = false;
        if (found) {
            info.key = *found;
            auto [first, added] = mDeclared.emplace(info.key, Declared{where, {}});
            firstDeclaration = added;
            if (!added) {
                report(child(where, keyField(info.key)),
                       info.key.toString() + " is declared twice (first at " +
                               pathText(first->second.where) + ")");
            }
        }
        if (!info.name.empty()) {
            auto [first, added] = mNames.emplace(info.name, where);
            if (!added) {
                report(child(where, "name"),
                       "the name \"" + info.name + "\" is taken by " + pathText(first->second));
            }
        }

        bool rulesKnown = true;
        if (const Json::Value& v = node["type"]; v.isString()) {
            const auto type = valueTypeNamed(v.asString());
            if (type) info.type = *type;
            if (!type)
                report(child(where, "type"),
                       "unknown type \"" + v.asString() + "\" (integer or text)");
            rulesKnown = rulesKnown && type.has_value();
        }
        info.arbitration = implicitArbitration(info.name, info.type);
        if (const Json::Value& v = node["arbitration"]; v.isString()) {
            const auto rule = arbitrationNamed(v.asString());
            if (rule) info.arbitration = *rule;
            if (!rule) {
                report(child(where, "arbitration"),
                       "unknown arbitration \"" + v.asString() + "\" (max, min or latest)");
            } else if (*rule != Arbitration::kLatest && info.type != ValueType::kInteger) {
                report(child(where, "arbitration"),
                       std::string("\"") + v.asString() + "\" needs an integer resource");
            }
        }
        if (const Json::Value& v = node["range"]; v.isArray()) {
            if (info.type != ValueType::kInteger) {
                report(child(where, "range"), "a range needs an integer resource");
                rulesKnown = false;
            } else if (v.size() == 2 && v[0].isInt64() && v[1].isInt64()) {
                if (v[0].asInt64() > v[1].asInt64()) {
                    report(child(where, "range"), "lo is greater than hi");
                    rulesKnown = false;
                }
                info.range = ValueRange{v[0].asInt64(), v[1].asInt64()};
            } else {
                report(child(where, "range"), "must be [lo, hi], two 64-bit integers");
                rulesKnown = false;
            }
        }
        // Values are judged only by rules that are themselves right; otherwise the one
        // mistake in the rules would be reported again at every value.
        if (rulesKnown && node["default"].isString()) {
            if (auto why = info.problemWith(node["default"].asString())) {
                report(child(where, "default"), *why);
            }
        }
        if (firstDeclaration && rulesKnown) mDeclared[info.key].info = info;
    }

    void scenario(const Json::Value& node, const JsonPath& where) {
        const Json::Value& event = node["event"];
        const Json::Value& action = node["action"];
        const bool hasEvent = event.isInt() && event.asInt() >= 0;
        if (hasEvent) {
            auto [first, added] = mEvents.emplace(event.asInt(), where);
            if (!added) {
                report(child(where, "event"), "event " + std::to_string(event.asInt()) +
                                                      " is listed twice (first at " +
                                                      pathText(first->second) + ")");
            }
        }
        if (action.isString()) {
            const std::string& name = action.asString();
            const auto it = std::find(gActionList.begin(), gActionList.end(), name);
            if (it == gActionList.end()) {
                report(child(where, "action"),
                       "unknown action \"" + name + "\"" + closestAction(name));
            } else if (hasEvent) {
                const auto id = static_cast<size_t>(event.asInt());
                if (id >= gActionList.size() || gActionList[id] != name) {
                    const std::string is =
                            id < gActionList.size()
                                    ? "is " + gActionList[id]
                                    : "is past the action table (0 to " +
                                              std::to_string(gActionList.size() - 1) + ")";
                    report(child(where, "event"), "event " + std::to_string(id) + " " + is + "; " +
                                                          name + " is event " +
                                                          std::to_string(it - gActionList.begin()));
                }
            }
        }
        const Json::Value& claims = node["resources"];
        if (!claims.isArray()) return;
        std::map<ResourceKey, Json::ArrayIndex> claimed;
        for (Json::ArrayIndex k = 0; k < claims.size(); ++k) {
            if (claims[k].isObject())
                claim(claims[k], child(child(where, "resources"), k), &claimed);
        }
    }

    void claim(const Json::Value& node, const JsonPath& where,
               std::map<ResourceKey, Json::ArrayIndex>* claimed) {
        const auto found = key(node, where);
        if (!found) return;
        const Json::ArrayIndex position = std::get<Json::ArrayIndex>(where.back());
        auto [first, added] = claimed->emplace(*found, position);
        if (!added) {
            report(child(where, keyField(*found)),
                   found->toString() + " is claimed twice in this scenario (first at resources[" +
                           std::to_string(first->second) + "])");
        }
        const auto declared = mDeclared.find(*found);
        if (declared == mDeclared.end()) {
            report(child(where, keyField(*found)),
                   std::string(found->isPath() ? "undeclared path " : "undeclared opcode ") +
                           found->toString());
            return;
        }
        const auto& info = declared->second.info;
        if (info && node["value"].isString()) {
            if (auto why = info->problemWith(node["value"].asString())) {
                report(child(where, "value"),
                       *why + (info->name.empty() ? "" : " for " + info->name));
            }
        }
    }

    struct Declared {
        JsonPath where;
        std::optional<ResourceInfo> info;  // none when its own rules are broken
    };

    std::vector<Finding>* mOut;
    std::map<ResourceKey, Declared> mDeclared;
    std::map<std::string, JsonPath> mNames;
    std::map<int32_t, JsonPath> mEvents;
};

}  // namespace

std::vector<Finding> crossCheck(const Json::Value& document) {
    std::vector<Finding> findings;
    if (!document.isObject()) return findings;
    CrossChecker checker(&findings);
    // Resources first: scenarios are read against them wherever they stand in the file.
    checker.resources(document["resources"], {std::string("resources")});
    checker.scenarios(document["scenarios"], {std::string("scenarios")});
    return findings;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
