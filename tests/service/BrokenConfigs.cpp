#include "BrokenConfigs.h"

#include <json/json.h>

#include <functional>

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

// One resource and one scenario that claims it: valid, and small enough that each entry
// below breaks exactly one thing.
constexpr char kSmall[] = R"({
    "resources": [{"opcode": "0x1", "name": "a.freq_min", "range": [0, 10]}],
    "scenarios": [{"event": 0, "action": "ACTION_LAUNCH",
                   "resources": [{"opcode": "0x1", "value": "5"}]}]})";

Json::Value json(const std::string& text) {
    Json::Value value;
    Json::Reader().parse(text, value);
    return value;
}

std::string small(const std::function<void(Json::Value&)>& edit) {
    Json::Value config = json(kSmall);
    edit(config);
    return Json::writeString(Json::StreamWriterBuilder(), config);
}

// The small configuration with a second resource, $.resources[1].
std::string withResource(const std::string& resource) {
    return small([&](Json::Value& c) { c["resources"].append(json(resource)); });
}

// The small configuration with a second claim, $.scenarios[0].resources[1].
std::string withClaim(const std::string& claim) {
    return small([&](Json::Value& c) { c["scenarios"][0]["resources"].append(json(claim)); });
}

constexpr char kNotAnOpcode[] =
        "$.resources[1].opcode: not an opcode (0x followed by up to 8 hex digits, or decimal; "
        "not 0)";

}  // namespace

const std::vector<BrokenConfig>& brokenConfigs() {
    using S = BrokenConfig::Schema;
    static const std::vector<BrokenConfig> table = {
            {"not JSON",
             "{",
             {"$: not valid JSON: Line 1, Column 2; Missing '}' or object member name"},
             S::kNotJson},
            {"empty", " \n", {"$: empty: a configuration is a JSON object"}, S::kNotJson},
            {"key twice",
             R"({"resources": [], "resources": []})",
             {"$: not valid JSON: Line 1, Column 19; Duplicate key: 'resources'"},
             S::kNotJson},
            {"comment",
             "// mine\n{}",
             {"$: not valid JSON: Line 1, Column 1; Syntax error: value, object or array "
              "expected.; "
              "Line 2, Column 1; Extra non-whitespace after JSON value."},
             S::kNotJson},
            {"deep nesting",
             std::string(100000, '['),
             {"$: nested more than 32 levels deep: not a configuration"},
             S::kNotJson},

            {"not an object", "[]", {"$: must be an object"}},
            {"no resources",
             "{}",
             {"$: missing \"resources\": a configuration declares at least one resource"}},
            {"empty resources",
             R"({"resources": []})",
             {"$.resources: empty: a configuration declares at least one resource"}},
            {"misspelt key",
             small([](Json::Value& c) { c["resources"][0]["arbitraton"] = "max"; }),
             {"$.resources[0].arbitraton: unknown key; did you mean arbitration?"}},
            {"unknown key",
             small([](Json::Value& c) { c["colour"] = "red"; }),
             {"$.colour: unknown key"}},
            {"unknown key, not a word",
             small([](Json::Value& c) { c["power"]["base mw"] = 1; }),
             {"$.power['base mw']: unknown key; did you mean base_mw?"}},
            {"version", small([](Json::Value& c) { c["version"] = 2; }), {"$.version: must be 1"}},
            {"power as text",
             small([](Json::Value& c) { c["power"]["base_mw"] = "a lot"; }),
             {"$.power.base_mw: must be an integer from 0 to 2147483647"}},
            {"negative power",
             small([](Json::Value& c) { c["power"]["per_rule_mw"] = -1; }),
             {"$.power.per_rule_mw: must be an integer from 0 to 2147483647"}},
            {"opcode not hex", withResource(R"({"opcode": "0x1zz", "name": "b"})"), {kNotAnOpcode}},
            {"opcode in octal", withResource(R"({"opcode": "010", "name": "b"})"), {kNotAnOpcode}},
            {"opcode 0", withResource(R"({"opcode": "0", "name": "b"})"), {kNotAnOpcode}},
            {"opcode past 32 bits",
             withResource(R"({"opcode": "0x100000000", "name": "b"})"),
             {kNotAnOpcode}},
            {"opcode number 0", withResource(R"({"opcode": 0, "name": "b"})"), {kNotAnOpcode}},
            {"empty path",
             withResource(R"({"path": "", "name": "b"})"),
             {"$.resources[1].path: not a usable path (empty, too long, or with \"..\")"}},
            {"opcode and path",
             withResource(R"({"opcode": "0x2", "path": "/a", "name": "b"})"),
             {"$.resources[1]: needs exactly one of \"opcode\" and \"path\""}},
            {"neither opcode nor path",
             withResource(R"({"name": "b"})"),
             {"$.resources[1]: needs exactly one of \"opcode\" and \"path\""}},
            {"no name", withResource(R"({"opcode": "0x2"})"), {"$.resources[1]: missing \"name\""}},
            {"empty name",
             withResource(R"({"opcode": "0x2", "name": ""})"),
             {"$.resources[1].name: must not be empty"}},
            {"unknown type",
             withResource(R"({"opcode": "0x2", "name": "b", "type": "real"})"),
             {"$.resources[1].type: unknown type \"real\" (integer or text)"}},
            {"unknown arbitration",
             withResource(R"({"opcode": "0x2", "name": "b", "arbitration": "top"})"),
             {"$.resources[1].arbitration: unknown arbitration \"top\" (max, min or latest)"}},
            {"short range",
             withResource(R"({"opcode": "0x2", "name": "b", "range": [0]})"),
             {"$.resources[1].range: must be [lo, hi], two 64-bit integers"}},
            {"range as text",
             withResource(R"({"opcode": "0x2", "name": "b", "range": "0..1"})"),
             {"$.resources[1].range: must be [lo, hi], two 64-bit integers"}},
            {"default as a number",
             withResource(R"({"opcode": "0x2", "name": "b", "default": 5})"),
             {"$.resources[1].default: must be a string"}},
            {"negative event",
             small([](Json::Value& c) { c["scenarios"][0]["event"] = -1; }),
             {"$.scenarios[0].event: must be a non-negative integer"}},
            {"no event",
             small([](Json::Value& c) { c["scenarios"][0].removeMember("event"); }),
             {"$.scenarios[0]: missing \"event\""}},
            {"no action",
             small([](Json::Value& c) { c["scenarios"][0].removeMember("action"); }),
             {"$.scenarios[0]: missing \"action\""}},
            {"no claims",
             small([](Json::Value& c) { c["scenarios"][0].removeMember("resources"); }),
             {"$.scenarios[0]: missing \"resources\""}},
            {"action not in the form",
             small([](Json::Value& c) { c["scenarios"][0]["action"] = "launch"; }),
             {"$.scenarios[0].action: unknown action \"launch\""}},
            {"claim without a value",
             small([](Json::Value& c) { c["scenarios"][0]["resources"][0].removeMember("value"); }),
             {"$.scenarios[0].resources[0]: missing \"value\""}},
            {"value as a number",
             small([](Json::Value& c) { c["scenarios"][0]["resources"][0]["value"] = 5; }),
             {"$.scenarios[0].resources[0].value: must be a string"}},
            {"misspelt claim key",
             small([](Json::Value& c) { c["scenarios"][0]["resources"][0]["description"] = "x"; }),
             {"$.scenarios[0].resources[0].description: unknown key"}},

            {"opcode past 32 bits in decimal",
             withResource(R"({"opcode": "4294967296", "name": "b"})"),
             {kNotAnOpcode},
             S::kBlind},
            {"opcode 0 in hex",
             withResource(R"({"opcode": "0x0", "name": "b"})"),
             {kNotAnOpcode},
             S::kBlind},
            {"path out of its tree",
             withResource(R"({"path": "/sys/../etc/passwd", "name": "b"})"),
             {"$.resources[1].path: not a usable path (empty, too long, or with \"..\")"},
             S::kBlind},
            {"min of text",
             withResource(
                     R"({"opcode": "0x2", "name": "b", "type": "text", "arbitration": "min"})"),
             {"$.resources[1].arbitration: \"min\" needs an integer resource"},
             S::kBlind},
            {"range of text",
             withResource(R"({"opcode": "0x2", "name": "b", "type": "text", "range": [0, 1]})"),
             {"$.resources[1].range: a range needs an integer resource"},
             S::kBlind},
            {"range upside down",
             withResource(R"({"opcode": "0x2", "name": "b", "range": [2, 1]})"),
             {"$.resources[1].range: lo is greater than hi"},
             S::kBlind},
            {"default out of range",
             withResource(R"({"opcode": "0x2", "name": "b", "range": [0, 1], "default": "2"})"),
             {"$.resources[1].default: 2 is outside [0, 1]"},
             S::kBlind},
            {"default not a number",
             withResource(R"({"opcode": "0x2", "name": "b", "default": "fast"})"),
             {"$.resources[1].default: \"fast\" is not a decimal integer"},
             S::kBlind},
            {"declared twice",
             withResource(R"({"opcode": "1", "name": "b"})"),
             {"$.resources[1].opcode: 0x00000001 is declared twice (first at $.resources[0])"},
             S::kBlind},
            {"name taken",
             withResource(R"({"opcode": "0x2", "name": "a.freq_min"})"),
             {"$.resources[1].name: the name \"a.freq_min\" is taken by $.resources[0]"},
             S::kBlind},
            {"misspelt action",
             small([](Json::Value& c) { c["scenarios"][0]["action"] = "ACTION_LANCH"; }),
             {"$.scenarios[0].action: unknown action \"ACTION_LANCH\"; did you mean "
              "ACTION_LAUNCH?"},
             S::kBlind},
            {"event of another action",
             small([](Json::Value& c) { c["scenarios"][0]["event"] = 5; }),
             {"$.scenarios[0].event: event 5 is ACTION_WINDOW_ROTATION; ACTION_LAUNCH is event 0"},
             S::kBlind},
            {"event past the table",
             small([](Json::Value& c) { c["scenarios"][0]["event"] = 300; }),
             {"$.scenarios[0].event: event 300 is past the action table (0 to 198); ACTION_LAUNCH "
              "is event 0"},
             S::kBlind},
            {"event twice",
             small([](Json::Value& c) { c["scenarios"].append(c["scenarios"][0]); }),
             {"$.scenarios[1].event: event 0 is listed twice (first at $.scenarios[0])"},
             S::kBlind},
            {"undeclared opcode",
             withClaim(R"({"opcode": "0x2", "value": "1"})"),
             {"$.scenarios[0].resources[1].opcode: undeclared opcode 0x00000002"},
             S::kBlind},
            {"undeclared path",
             withClaim(R"({"path": "/a", "value": "1"})"),
             {"$.scenarios[0].resources[1].path: undeclared path /a"},
             S::kBlind},
            {"claimed twice",
             withClaim(R"({"opcode": "1", "value": "6"})"),
             {"$.scenarios[0].resources[1].opcode: 0x00000001 is claimed twice in this scenario "
              "(first at resources[0])"},
             S::kBlind},
            {"text for a number",
             small([](Json::Value& c) { c["scenarios"][0]["resources"][0]["value"] = "fast"; }),
             {"$.scenarios[0].resources[0].value: \"fast\" is not a decimal integer for "
              "a.freq_min"},
             S::kBlind},
            {"value out of range",
             small([](Json::Value& c) { c["scenarios"][0]["resources"][0]["value"] = "11"; }),
             {"$.scenarios[0].resources[0].value: 11 is outside [0, 10] for a.freq_min"},
             S::kBlind},
    };
    return table;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
