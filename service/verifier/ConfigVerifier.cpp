#include "ConfigVerifier.h"

#include <json/json.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <set>
#include <sstream>

#include "ConfigChecks.h"
#include "ScenarioConfig.h"

// Generated from vela-config.schema.json at build time.
extern "C" const char kVelaConfigSchema[];

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

bool isPlainKey(const std::string& key) {
    return !key.empty() && std::all_of(key.begin(), key.end(),
                                       [](unsigned char c) { return isalnum(c) || c == '_'; });
}

// jsoncpp's report ("* Line 1, Column 8\n  Duplicate key: 'a'\n") on one line, as every
// problem is printed.
std::string oneLine(const std::string& report) {
    std::string text;
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        const size_t start = line.find_first_not_of(" *");
        if (start == std::string::npos) continue;
        const size_t end = line.find_last_not_of(" \r");
        text += (text.empty() ? "" : "; ") + line.substr(start, end - start + 1);
    }
    return text;
}

}  // namespace

std::string pathText(const JsonPath& path) {
    std::string text = "$";
    for (const auto& step : path) {
        if (const auto* key = std::get_if<std::string>(&step)) {
            text += isPlainKey(*key) ? "." + *key : "['" + *key + "']";
        } else {
            text += "[" + std::to_string(std::get<Json::ArrayIndex>(step)) + "]";
        }
    }
    return text;
}

const Json::Value* nodeAt(const Json::Value& root, const JsonPath& path) {
    const Json::Value* node = &root;
    for (const auto& step : path) {
        if (const auto* key = std::get_if<std::string>(&step)) {
            if (!node->isObject() || !node->isMember(*key)) return nullptr;
            node = &(*node)[*key];
        } else {
            const Json::ArrayIndex index = std::get<Json::ArrayIndex>(step);
            if (!node->isArray() || index >= node->size()) return nullptr;
            node = &(*node)[index];
        }
    }
    return node;
}

const char* configSchemaText() {
    return kVelaConfigSchema;
}

std::vector<ConfigProblem> verifyConfig(const std::string& text) {
    Json::Value document;
    std::string errors;
    if (!parseConfigJson(text, &document, &errors)) {
        return {{"$", "not valid JSON: " + oneLine(errors)}};
    }

    std::vector<Finding> schemaFindings = checkAgainstSchema(document, kVelaConfigSchema);
    std::vector<Finding> crossFindings = crossCheck(document);
    // Where both passes speak of one node, the cross-check knows more ("unknown arbitration
    // \"maximum\"" rather than "not one of the allowed values"): say it once, its way.
    std::set<std::string> crossPaths;
    for (const Finding& f : crossFindings) crossPaths.insert(pathText(f.path));

    struct Placed {
        ptrdiff_t offset;
        ConfigProblem problem;
    };
    std::vector<Placed> placed;
    auto place = [&](const Finding& f) {
        const Json::Value* node = nodeAt(document, f.path);
        placed.push_back({node != nullptr ? node->getOffsetStart() : 0,
                          ConfigProblem{pathText(f.path), f.message}});
    };
    for (const Finding& f : schemaFindings) {
        if (crossPaths.count(pathText(f.path)) == 0) place(f);
    }
    for (const Finding& f : crossFindings) place(f);
    std::stable_sort(placed.begin(), placed.end(),
                     [](const Placed& a, const Placed& b) { return a.offset < b.offset; });

    std::vector<ConfigProblem> problems;
    for (Placed& p : placed) {
        const bool repeated = !problems.empty() && problems.back().path == p.problem.path &&
                              problems.back().message == p.problem.message;
        if (!repeated) problems.push_back(std::move(p.problem));
    }
    // The checks above are meant to refuse everything the service would; should one slip
    // through, the service's own reason still stops the file from passing.
    if (problems.empty()) {
        std::string why;
        if (!ScenarioConfig::parse(text, &why)) problems.push_back({"$", why});
    }
    return problems;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
