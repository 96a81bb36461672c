#include "BrokenConfigs.h"

#include <gtest/gtest.h>
#include <json/json.h>

#include <fstream>

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

// An entry gives its configuration as JSON ("config"), written out as the reader would be
// given it, or, where the text is not JSON at all, as the text itself, "repeat" times.
BrokenConfig entry(const Json::Value& e) {
    BrokenConfig broken;
    broken.what = e["what"].asString();
    if (e.isMember("config")) {
        broken.text = Json::writeString(Json::StreamWriterBuilder(), e["config"]);
    } else {
        for (int i = 0; i < e.get("repeat", 1).asInt(); ++i) broken.text += e["text"].asString();
    }
    for (const Json::Value& f : e["findings"]) broken.findings.push_back(f.asString());
    const std::string schema = e.get("schema", "refuses").asString();
    broken.schema = schema == "blind"      ? BrokenConfig::Schema::kBlind
                    : schema == "not json" ? BrokenConfig::Schema::kNotJson
                                           : BrokenConfig::Schema::kRefuses;
    return broken;
}

std::vector<BrokenConfig> load() {
    std::ifstream in(VELA_BROKEN_CONFIGS_PATH);
    Json::Value table;
    // A table that cannot be read must fail the tests, not leave them nothing to check.
    if (!Json::Reader().parse(in, table) || table.empty()) {
        ADD_FAILURE() << "cannot read " << VELA_BROKEN_CONFIGS_PATH;
    }
    std::vector<BrokenConfig> entries;
    for (const Json::Value& e : table) entries.push_back(entry(e));
    return entries;
}

}  // namespace

const std::vector<BrokenConfig>& brokenConfigs() {
    static const std::vector<BrokenConfig> table = load();
    return table;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
