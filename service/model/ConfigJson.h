// The JSON side of reading a configuration: the text made a document strictly and without
// letting jsoncpp throw, and the paths by which findings name a place in it.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>

namespace aidl::vendor::norvo::hardware::vela::impl {

// A configuration nests five deep (the root, "scenarios", a scenario, its "resources", a
// claim); anything far deeper is not one, and is refused before jsoncpp's recursion sees it.
constexpr int kMaxConfigDepth = 32;

// Reads `text` as one strict JSON document: no comments, nothing after it, no key twice (a
// second "value" would otherwise silently replace the first), at most kMaxConfigDepth levels.
// Nothing when it is one; otherwise why not, on one line.
std::optional<std::string> parseConfigJson(const std::string& text, Json::Value* out);

// "$.scenarios" from "$" and "scenarios"; a key that is not a plain word as ['key'].
std::string memberPath(const std::string& path, const std::string& key);
// "$.scenarios[3]" from "$.scenarios" and 3.
std::string elementPath(const std::string& path, Json::ArrayIndex index);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
