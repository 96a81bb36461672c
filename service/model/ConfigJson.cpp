#include "ConfigJson.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <sstream>

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

// How deep the text's arrays and objects nest, outside strings. Bounding it here rather than
// catching jsoncpp's stack-limit exception keeps the reader free of exceptions, which a vendor
// build compiles without. On text that is not JSON the count may differ from jsoncpp's view
// only after the point where jsoncpp stops reading, so it never lets a deeper parse through.
int nestingDepth(const std::string& text) {
    int depth = 0;
    int deepest = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return deepest;
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

bool isPlainKey(const std::string& key) {
    return !key.empty() && std::all_of(key.begin(), key.end(),
                                       [](unsigned char c) { return isalnum(c) || c == '_'; });
}

}  // namespace

std::optional<std::string> parseConfigJson(const std::string& text, Json::Value* out) {
    if (std::all_of(text.begin(), text.end(), [](unsigned char c) { return isspace(c); })) {
        return "empty: a configuration is a JSON object";
    }
    if (nestingDepth(text) > kMaxConfigDepth) {
        return "nested more than " + std::to_string(kMaxConfigDepth) +
               " levels deep: not a configuration";
    }
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), out, &errors)) {
        return "not valid JSON: " + oneLine(errors);
    }
    return std::nullopt;
}

std::string memberPath(const std::string& path, const std::string& key) {
    return path + (isPlainKey(key) ? "." + key : "['" + key + "']");
}

std::string elementPath(const std::string& path, Json::ArrayIndex index) {
    return path + "[" + std::to_string(index) + "]";
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
