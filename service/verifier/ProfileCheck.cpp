#include "ProfileCheck.h"

#include <map>
#include <optional>
#include <vector>

#include "ConfigJson.h"
#include "ConfigVerifier.h"
#include "ExitCodes.h"
#include "JsonText.h"
#include "NodeProfile.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

std::string span(const NodeAccepts& a) {
    return std::to_string(*a.min) + " to " + std::to_string(*a.max);
}

// What the kernel does with a value the node does not take as it is.
std::string fate(const NodeAccepts& a, const std::optional<std::string>& held) {
    if (a.refusesOutside) return "; the kernel refuses it";
    return held ? "; the kernel would hold " + *held : "; the kernel would hold another";
}

std::string listedValues(const NodeAccepts& a, const std::optional<int64_t>& number) {
    if (!number) {
        std::string all;
        for (const std::string& word : a.available) all += (all.empty() ? "" : ", ") + word;
        return all;
    }
    // A frequency table is long: the neighbours of the value are what the reader needs.
    std::optional<int64_t> below;
    std::optional<int64_t> above;
    for (const std::string& text : a.available) {
        const std::optional<int64_t> v = parseIntegerValue(text);
        if (v && *v < *number && (!below || *v > *below)) below = v;
        if (v && *v > *number && (!above || *v < *above)) above = v;
    }
    if (!below && !above) return "none of them numbers";
    if (below && above) {
        return "nearest: " + std::to_string(*below) + " and " + std::to_string(*above);
    }
    return "nearest: " + std::to_string(below ? *below : *above);
}

bool isListed(const NodeAccepts& a, const std::string& value,
              const std::optional<int64_t>& number) {
    for (const std::string& text : a.available) {
        if (text == value) return true;
        if (number && parseIntegerValue(text) == number) return true;
    }
    return false;
}

// Why the node would not take `value` as written, or nothing.
std::optional<std::string> refusal(const NodeAccepts& a, const std::string& value) {
    const std::optional<int64_t> number = parseIntegerValue(value);
    const bool bounded = a.min && a.max;
    if (bounded && !number) {
        return "\"" + value + "\" is not a number; the node takes " + span(a);
    }
    if (number && a.min && *number < *a.min) {
        return value + " is below the node's minimum " + std::to_string(*a.min) +
               fate(a, std::to_string(*a.min));
    }
    if (number && a.max && *number > *a.max) {
        return value + " is above the node's maximum " + std::to_string(*a.max) +
               fate(a, std::to_string(*a.max));
    }
    if (!a.available.empty() && !isListed(a, value, number)) {
        return (number ? value : "\"" + value + "\"") + " is not one of the " +
               std::to_string(a.available.size()) + " values the node lists (" +
               listedValues(a, number) + ")" + fate(a, std::nullopt);
    }
    return std::nullopt;
}

// Why a resource's range [lo, hi] does not suit the node, or nothing. Where the kernel clamps,
// a range only has to meet what the node takes: a floor's range from 0 is the usual way to
// say "no floor".
std::optional<std::string> rangeProblem(const NodeAccepts& a, int64_t lo, int64_t hi) {
    const std::string range = "[" + std::to_string(lo) + ", " + std::to_string(hi) + "]";
    std::vector<int64_t> listed;
    for (const std::string& text : a.available) {
        if (auto v = parseIntegerValue(text)) listed.push_back(*v);
    }
    if (!listed.empty()) {
        bool meets = false;
        for (int64_t v : listed) meets = meets || (lo <= v && v <= hi);
        if (!meets) return range + " holds none of the values the node lists";
    }
    if (!a.min || !a.max) return std::nullopt;
    if (a.refusesOutside && (lo < *a.min || hi > *a.max)) {
        return range + " lets clients ask for values the node refuses (it takes " + span(a) + ")";
    }
    if (hi < *a.min || lo > *a.max) {
        return range + " lies outside what the node takes (" + span(a) + ")";
    }
    return std::nullopt;
}

std::string whyNotWritable(const NodeFacts& facts, const NodeProfile& profile) {
    if (facts.writable && facts.mode) return "mode " + *facts.mode + ": nobody may write it";
    std::string who = profile.uid ? "uid " + std::to_string(*profile.uid) : "the capturing user";
    return who + " may not write it" + (facts.mode ? " (mode " + *facts.mode + ")" : "");
}

// Holds one parsed, valid configuration against a profile.
class ProfileChecker {
public:
    ProfileChecker(const ScenarioConfig& config, const NodeProfile& profile)
        : mConfig(config), mProfile(profile) {}

    std::vector<ConfigProblem> check(const Json::Value& root) {
        const Json::Value& resources = root["resources"];
        for (Json::ArrayIndex i = 0; i < resources.size(); ++i) {
            checkResource(resources[i], elementPath("$.resources", i));
        }
        const Json::Value& scenarios = root["scenarios"];
        for (Json::ArrayIndex j = 0; j < scenarios.size(); ++j) {
            const std::string where = memberPath(elementPath("$.scenarios", j), "resources");
            const Json::Value& claims = scenarios[j]["resources"];
            for (Json::ArrayIndex k = 0; k < claims.size(); ++k) {
                const Json::Value& claim = claims[k];
                if (!claim.isMember("path")) continue;
                value(claim["path"].asString(), claim["value"].asString(),
                      memberPath(elementPath(where, k), "value"));
            }
        }
        return std::move(mFound);
    }

    size_t nodes() const { return mNodes; }

private:
    void checkResource(const Json::Value& resource, const std::string& where) {
        if (!resource.isMember("path")) return;
        ++mNodes;
        const std::string path = resource["path"].asString();
        const auto found = mProfile.nodes.find(path);
        const std::string at = memberPath(where, "path");
        if (found == mProfile.nodes.end()) {
            say(at, path + " is not in the profile: capture it with this configuration's nodes");
            return;
        }
        const NodeFacts& facts = found->second;
        if (!facts.exists) {
            say(at, "no such node on the target" +
                            (mProfile.kernel.empty() ? "" : " (kernel " + mProfile.kernel + ")"));
            return;
        }
        if (!facts.takesWrites()) {
            say(at, "not writable on the target: " + whyNotWritable(facts, mProfile));
        }
        if (!facts.accepts) return;
        mAccepts.emplace(path, &*facts.accepts);
        if (resource.isMember("default")) {
            value(path, resource["default"].asString(), memberPath(where, "default"));
        }
        if (resource.isMember("range")) {
            const Json::Value& range = resource["range"];
            if (auto why = rangeProblem(*facts.accepts, range[0].asInt64(), range[1].asInt64())) {
                say(memberPath(where, "range"), *why);
            }
        }
    }

    void value(const std::string& path, const std::string& value, const std::string& where) {
        const auto accepts = mAccepts.find(path);
        if (accepts == mAccepts.end()) return;  // missing, or taking anything: said already
        if (auto why = refusal(*accepts->second, value)) {
            const ResourceInfo* info = mConfig.infoFor(ResourceKey::ofPath(path));
            say(where, *why + (info && !info->name.empty() ? " for " + info->name : ""));
        }
    }

    void say(const std::string& where, std::string message) {
        mFound.push_back({where, std::move(message)});
    }

    const ScenarioConfig& mConfig;
    const NodeProfile& mProfile;
    std::map<std::string, const NodeAccepts*> mAccepts;
    std::vector<ConfigProblem> mFound;
    size_t mNodes = 0;
};

void sayProblems(const std::string& file, const std::vector<ConfigProblem>& problems, FILE* err) {
    for (const ConfigProblem& p : problems) {
        fprintf(err, "%s: %s: %s\n", file.c_str(), p.path.c_str(), p.message.c_str());
    }
}

const char* plural(size_t count) {
    return count == 1 ? "" : "s";
}

}  // namespace

int checkConfigAgainstProfile(const std::string& file, const std::string& profile, FILE* out,
                              FILE* err) {
    if (int code = checkConfig(file, false, out, err); code != vela_exit::kOk) return code;
    const ProfileReading reading = readNodeProfileFile(profile);
    if (!reading.unreadable.empty()) {
        fprintf(err, "vela-service: %s\n", reading.unreadable.c_str());
        return vela_exit::kNoInput;
    }
    if (!reading.problems.empty()) {
        sayProblems(profile, reading.problems, err);
        fprintf(out, "%s: not a node profile, %zu problem%s\n", profile.c_str(),
                reading.problems.size(), plural(reading.problems.size()));
        return vela_exit::kDataError;
    }
    // Read again for the JSON paths, which the configuration keeps no record of; it was valid
    // a moment ago, so anything else now means it changed under us.
    std::string text;
    if (auto why = readBoundedText(file, &text)) {
        fprintf(err, "vela-service: %s\n", why->c_str());
        return vela_exit::kNoInput;
    }
    ConfigReading again = readConfig(text);
    Json::Value root;
    if (!again.valid() || parseConfigJson(text, &root).has_value()) {
        fprintf(err, "vela-service: %s changed while it was being checked\n", file.c_str());
        return vela_exit::kDataError;
    }
    ProfileChecker checker(again.config, reading.profile);
    const std::vector<ConfigProblem> found = checker.check(root);
    sayProblems(file, found, err);
    if (!found.empty()) {
        fprintf(out, "%s: does not fit %s, %zu problem%s\n", file.c_str(), profile.c_str(),
                found.size(), plural(found.size()));
        return vela_exit::kDataError;
    }
    fprintf(out, "%s: fits %s (%zu node%s)\n", file.c_str(), profile.c_str(), checker.nodes(),
            plural(checker.nodes()));
    return vela_exit::kOk;
}

int listConfigNodes(const std::string& file, FILE* out, FILE* err) {
    std::optional<ScenarioConfig> config;
    if (int code = readConfigOrSayWhy(file, err, &config); code != vela_exit::kOk) return code;
    for (const ResourceInfo& info : config->resources()) {
        if (info.key.isPath()) fprintf(out, "%s\n", info.key.path.c_str());
    }
    return vela_exit::kOk;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
