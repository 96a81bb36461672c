#include "NodeProfile.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <initializer_list>

#include "ConfigJson.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

using Keys = std::initializer_list<const char*>;

const Json::Value* find(const Json::Value& node, const char* key) {
    return node.find(key, key + strlen(key));
}
// "captured", "host" and "root" are for people; the checker does not need them.
constexpr Keys kRootKeys = {"profile", "captured", "host", "kernel", "uid", "root", "nodes"};
constexpr Keys kNodeKeys = {"exists", "writable", "mode", "value", "accepts"};
constexpr Keys kAcceptsKeys = {"from", "outside", "min", "max", "available"};

class ProfileReader {
public:
    ProfileReading read(const Json::Value& root) {
        if (!root.isObject()) {
            report(root, "$", "must be an object");
        } else {
            unknownKeys(root, "$", kRootKeys);
            const Json::Value* version = find(root, "profile");
            if (version == nullptr || !version->isInt() || version->asInt() != 1) {
                report(version ? *version : root, version ? "$.profile" : "$",
                       version ? "must be 1" : "missing \"profile\": not a node profile");
            }
            if (auto* v = typed(root, "$", "kernel", &Json::Value::isString, "must be a string")) {
                mReading.profile.kernel = v->asString();
            }
            if (auto* v = typed(root, "$", "uid", &Json::Value::isInt64, "must be an integer")) {
                mReading.profile.uid = v->asInt64();
            }
            const Json::Value* nodes = find(root, "nodes");
            if (nodes == nullptr) {
                report(root, "$", "missing \"nodes\"");
            } else if (!nodes->isObject()) {
                report(*nodes, "$.nodes", "must be an object");
            } else {
                for (const std::string& path : nodes->getMemberNames()) {
                    readNode((*nodes)[path], memberPath("$.nodes", path), path);
                }
            }
        }
        std::stable_sort(mFound.begin(), mFound.end(),
                         [](const Found& a, const Found& b) { return a.offset < b.offset; });
        for (Found& found : mFound) mReading.problems.push_back(std::move(found.problem));
        return std::move(mReading);
    }

private:
    struct Found {
        ptrdiff_t offset;
        ConfigProblem problem;
    };

    void report(const Json::Value& node, std::string path, std::string message) {
        mFound.push_back({node.getOffsetStart(), {std::move(path), std::move(message)}});
    }

    void unknownKeys(const Json::Value& node, const std::string& path, Keys known) {
        for (const std::string& key : node.getMemberNames()) {
            if (std::none_of(known.begin(), known.end(),
                             [&key](const char* k) { return key == k; })) {
                report(node[key], memberPath(path, key), "unknown key");
            }
        }
    }

    // The member `key` of object `node` when it is there and passes `is`.
    template <typename Is>
    const Json::Value* typed(const Json::Value& node, const std::string& path, const char* key,
                             Is is, const char* must) {
        const Json::Value* found = find(node, key);
        if (found != nullptr && !(found->*is)()) {
            report(*found, memberPath(path, key), must);
            return nullptr;
        }
        return found;
    }

    void readNode(const Json::Value& node, const std::string& path, const std::string& name) {
        if (!node.isObject()) {
            report(node, path, "must be an object");
            return;
        }
        unknownKeys(node, path, kNodeKeys);
        const size_t before = mFound.size();
        NodeFacts facts;
        constexpr char kBool[] = "must be true or false";
        constexpr char kString[] = "must be a string";
        const Json::Value* exists = typed(node, path, "exists", &Json::Value::isBool, kBool);
        if (exists == nullptr && find(node, "exists") == nullptr) {
            report(node, path, "missing \"exists\"");
        }
        facts.exists = exists != nullptr && exists->asBool();
        if (auto* v = typed(node, path, "writable", &Json::Value::isBool, kBool)) {
            facts.writable = v->asBool();
        } else if (facts.exists && find(node, "writable") == nullptr) {
            report(node, path, "missing \"writable\" for a node that exists");
        }
        if (auto* v = typed(node, path, "mode", &Json::Value::isString, kString)) {
            const std::string mode = v->asString();
            if (mode.empty() || mode.size() > 6 ||
                mode.find_first_not_of("01234567") != std::string::npos) {
                report(*v, memberPath(path, "mode"), "must be octal digits (\"0644\")");
            } else {
                facts.mode = mode;
            }
        }
        if (auto* v = typed(node, path, "value", &Json::Value::isString, kString)) {
            facts.value = v->asString();
        }
        if (auto* v = typed(node, path, "accepts", &Json::Value::isObject, "must be an object")) {
            facts.accepts = readAccepts(*v, memberPath(path, "accepts"));
        }
        if (mFound.size() == before) mReading.profile.nodes.emplace(name, std::move(facts));
    }

    NodeAccepts readAccepts(const Json::Value& node, const std::string& path) {
        unknownKeys(node, path, kAcceptsKeys);
        NodeAccepts accepts;
        if (auto* v = typed(node, path, "from", &Json::Value::isString, "must be a string")) {
            accepts.from = v->asString();
        }
        if (auto* v = typed(node, path, "outside", &Json::Value::isString,
                            "must be \"refused\" or \"clamped\"")) {
            if (v->asString() != "refused" && v->asString() != "clamped") {
                report(*v, memberPath(path, "outside"), "must be \"refused\" or \"clamped\"");
            }
            accepts.refusesOutside = v->asString() != "clamped";
        }
        constexpr char kInteger[] = "must be a 64-bit integer";
        if (auto* v = typed(node, path, "min", &Json::Value::isInt64, kInteger)) {
            accepts.min = v->asInt64();
        }
        if (auto* v = typed(node, path, "max", &Json::Value::isInt64, kInteger)) {
            accepts.max = v->asInt64();
        }
        if (accepts.min && accepts.max && *accepts.min > *accepts.max) {
            report(node["min"], memberPath(path, "min"), "greater than \"max\"");
        }
        const char kList[] = "must be a non-empty array of integers and strings";
        if (auto* list = typed(node, path, "available", &Json::Value::isArray, kList)) {
            if (list->empty()) report(*list, memberPath(path, "available"), kList);
            for (Json::ArrayIndex i = 0; i < list->size(); ++i) {
                const Json::Value& item = (*list)[i];
                if (item.isInt64()) {
                    accepts.available.push_back(std::to_string(item.asInt64()));
                } else if (item.isString()) {
                    accepts.available.push_back(item.asString());
                } else {
                    report(item, elementPath(memberPath(path, "available"), i),
                           "must be an integer or a string");
                }
            }
        }
        return accepts;
    }

    ProfileReading mReading;
    std::vector<Found> mFound;
};

}  // namespace

bool NodeFacts::takesWrites() const {
    // The owner's, the group's and the others' digits; a setgid digit in front is no write bit.
    const size_t perms = mode && mode->size() > 3 ? mode->size() - 3 : 0;
    return exists && writable && (!mode || mode->find_first_of("2367", perms) != std::string::npos);
}

ProfileReading readNodeProfile(const std::string& text) {
    ProfileReading reading;
    if (std::all_of(text.begin(), text.end(), [](unsigned char c) { return isspace(c); })) {
        reading.problems.push_back({"$", "empty: a node profile is a JSON object"});
        return reading;
    }
    Json::Value root;
    if (auto why = parseConfigJson(text, &root)) {
        // The one message of that reader that speaks of a configuration.
        const std::string configuration = "not a configuration";
        if (why->size() > configuration.size() &&
            why->compare(why->size() - configuration.size(), configuration.size(), configuration) ==
                    0) {
            why->replace(why->size() - configuration.size(), configuration.size(),
                         "not a node profile");
        }
        reading.problems.push_back({"$", *why});
        return reading;
    }
    return ProfileReader().read(root);
}

ProfileReading readNodeProfileFile(const std::string& file) {
    std::string text;
    ProfileReading reading;
    if (auto why = readBoundedText(file, &text)) {
        reading.unreadable = *why;
    } else if (text.size() > kMaxConfigBytes) {
        // A profile is as big as the configuration it was captured for, at most.
        reading.problems.push_back({"$", "larger than " + std::to_string(kMaxConfigBytes >> 20) +
                                                 " MiB: not a node profile"});
    } else {
        reading = readNodeProfile(text);
    }
    return reading;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
