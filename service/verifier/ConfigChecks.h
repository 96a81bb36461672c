// The verifier's two passes over a parsed configuration and the path both use to say where.
#pragma once

#include <json/json.h>

#include <string>
#include <variant>
#include <vector>

namespace aidl::vendor::norvo::hardware::vela::impl {

// From the document's root: object keys and array positions.
using JsonPath = std::vector<std::variant<std::string, Json::ArrayIndex>>;

// "$.scenarios[3].resources[1].value"; keys that are not plain words as ['key'].
std::string pathText(const JsonPath& path);
// The node at `path`, or nothing when the document has none there.
const Json::Value* nodeAt(const Json::Value& root, const JsonPath& path);

struct Finding {
    JsonPath path;
    std::string message;
};

// What the schema refuses, in our words. An unusable schema is reported at the root.
std::vector<Finding> checkAgainstSchema(const Json::Value& document, const char* schemaText);
// What the schema cannot see. Reads only what is well-formed; the schema reports the rest.
std::vector<Finding> crossCheck(const Json::Value& document);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
