// The schema pass: valijson over the jsoncpp document, its findings turned into paths and
// sentences a performance engineer reads without knowing JSON Schema.
#include <cstring>
#include <exception>
#include <memory>
#include <valijson/adapters/jsoncpp_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#include "ConfigChecks.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

constexpr char kUnknownKey[] = "Object contains a property that could not be validated";
constexpr char kMissingKey[] = "Missing required property '";
constexpr char kWrongType[] = "Value type not permitted";
constexpr char kNotInEnum[] = "Failed to match against any enum values";
constexpr char kExactlyOneKey[] = "needs exactly one of \"opcode\" and \"path\"";

// valijson's sentences, by their start, and ours; nullptr drops a sentence that only says a
// child failed (the child's own finding is reported). The one oneOf of the schema is the
// choice between opcode and path, so its failures and the "missing" findings of its two
// branches read as one sentence.
struct Wording {
    const char* theirs;
    const char* ours;
};
constexpr Wording kWordings[] = {
        {"Missing required property 'opcode'", nullptr},
        {"Missing required property 'path'", nullptr},
        {"Failed to validate against any child schemas allowed by oneOf", kExactlyOneKey},
        {"Failed to validate against exactly one child schema", kExactlyOneKey},
        {"Failed to validate", nullptr},
        {"Failed to match regex", "is not in the expected form"},
};

bool startsWith(const std::string& text, const char* head) {
    return text.compare(0, strlen(head), head) == 0;
}

// The text between the first pair of single quotes, as valijson quotes names.
std::string quoted(const std::string& text) {
    const size_t open = text.find('\'');
    const size_t close = open == std::string::npos ? open : text.find('\'', open + 1);
    return close == std::string::npos ? std::string() : text.substr(open + 1, close - open - 1);
}

// valijson's context ("<root>", "[scenarios]", "[3]") as a path: a step is a position when
// the node it is taken from is an array.
JsonPath pathOf(const Json::Value& root, const std::vector<std::string>& context) {
    JsonPath path;
    const Json::Value* node = &root;
    for (size_t i = 1; i < context.size(); ++i) {
        const std::string step = context[i].substr(1, context[i].size() - 2);
        if (node != nullptr && node->isArray()) {
            path.emplace_back(static_cast<Json::ArrayIndex>(std::stoul(step)));
        } else {
            path.emplace_back(step);
        }
        node = nodeAt(root, path);
    }
    return path;
}

// The subschema that describes the node at `path`: this schema only nests by "properties"
// and "items", and refers only into its own "definitions".
const Json::Value* subschemaAt(const Json::Value& schema, const JsonPath& path) {
    auto resolve = [&schema](const Json::Value* node) -> const Json::Value* {
        const Json::Value& ref = (*node)["$ref"];
        if (!ref.isString()) return node;
        const std::string prefix = "#/definitions/";
        if (!startsWith(ref.asString(), prefix.c_str())) return nullptr;
        return &schema["definitions"][ref.asString().substr(prefix.size())];
    };
    const Json::Value* node = resolve(&schema);
    for (const auto& step : path) {
        if (node == nullptr || !node->isObject()) return nullptr;
        node = std::holds_alternative<std::string>(step)
                       ? &(*node)["properties"][std::get<std::string>(step)]
                       : &(*node)["items"];
        node = resolve(node);
    }
    return node;
}

std::string article(const std::string& type) {
    return (type == "integer" || type == "object" || type == "array" ? "an " : "a ") + type;
}

std::string wrongTypeMessage(const Json::Value& schema, const JsonPath& path) {
    const Json::Value* sub = subschemaAt(schema, path);
    if (sub == nullptr || !sub->isObject()) return "has the wrong type";
    const Json::Value& type = (*sub)["type"];
    if (type.isString()) return "must be " + article(type.asString());
    std::string text;
    for (Json::ArrayIndex i = 0; i < type.size(); ++i) {
        text += (i == 0 ? "" : " or ") + article(type[i].asString());
    }
    return text.empty() ? "has the wrong type" : "must be " + text;
}

// valijson names only the first unknown key of an object; a file with two misspelt keys should
// not need two runs, so every object the schema closes is read key by key here instead.
void findUnknownKeys(const Json::Value& schema, const Json::Value& node, JsonPath* path,
                     std::vector<Finding>* out) {
    if (node.isArray()) {
        for (Json::ArrayIndex i = 0; i < node.size(); ++i) {
            path->emplace_back(i);
            findUnknownKeys(schema, node[i], path, out);
            path->pop_back();
        }
        return;
    }
    if (!node.isObject()) return;
    const Json::Value* sub = subschemaAt(schema, *path);
    if (sub == nullptr || !sub->isObject()) return;
    const bool closed = (*sub)["additionalProperties"] == Json::Value(false);
    for (const std::string& key : node.getMemberNames()) {
        path->emplace_back(key);
        if (closed && !(*sub)["properties"].isMember(key)) {
            out->push_back({*path, "unknown key"});
        } else {
            findUnknownKeys(schema, node[key], path, out);
        }
        path->pop_back();
    }
}

std::string enumMessage(const Json::Value& schema, const JsonPath& path) {
    const Json::Value* sub = subschemaAt(schema, path);
    if (sub == nullptr || !sub->isObject() || !(*sub)["enum"].isArray()) {
        return "is not one of the allowed values";
    }
    std::string text;
    for (const Json::Value& allowed : (*sub)["enum"]) {
        text += text.empty() ? "must be one of " : ", ";
        text += allowed.isString() ? "\"" + allowed.asString() + "\"" : allowed.asString();
    }
    return text;
}

}  // namespace

std::vector<Finding> checkAgainstSchema(const Json::Value& document, const char* schemaText) {
    Json::Value schemaDocument;
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string errors;
    const char* end = schemaText + strlen(schemaText);
    if (!reader->parse(schemaText, end, &schemaDocument, &errors)) {
        return {{{}, "the built-in schema is not valid JSON: " + errors}};
    }
    valijson::Schema schema;
    try {
        valijson::SchemaParser parser;
        valijson::adapters::JsonCppAdapter schemaAdapter(schemaDocument);
        parser.populateSchema(schemaAdapter, schema);
    } catch (const std::exception& e) {
        return {{{}, std::string("the built-in schema cannot be used: ") + e.what()}};
    }

    valijson::Validator validator;
    valijson::ValidationResults results;
    valijson::adapters::JsonCppAdapter target(document);
    validator.validate(schema, target, &results);

    std::vector<Finding> findings;
    for (const auto& error : results) {
        Finding finding{pathOf(document, error.context), error.description};
        const std::string& said = error.description;
        if (startsWith(said, kUnknownKey)) continue;  // see findUnknownKeys
        if (startsWith(said, kWrongType)) {
            finding.message = wrongTypeMessage(schemaDocument, finding.path);
        } else if (startsWith(said, kNotInEnum)) {
            finding.message = enumMessage(schemaDocument, finding.path);
        } else if (const Wording* wording = [&said]() -> const Wording* {
                       for (const Wording& w : kWordings) {
                           if (startsWith(said, w.theirs)) return &w;
                       }
                       return nullptr;
                   }()) {
            if (wording->ours == nullptr) continue;
            finding.message = wording->ours;
        } else if (startsWith(said, kMissingKey)) {
            finding.message = "missing \"" + quoted(said) + "\"";
        }
        findings.push_back(std::move(finding));
    }
    JsonPath root;
    findUnknownKeys(schemaDocument, document, &root, &findings);
    return findings;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
