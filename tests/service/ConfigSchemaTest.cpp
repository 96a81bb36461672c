// The shipped schema, which editors read, and the service's reader agree: on the shipped
// file, and on every broken one except where the schema cannot see the rule.
#include <gtest/gtest.h>
#include <json/json.h>

#include <fstream>
#include <sstream>
#include <valijson/adapters/jsoncpp_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "BrokenConfigs.h"
#include "ConfigReader.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

class ConfigSchemaTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::ifstream in(VELA_CONFIG_SCHEMA_PATH);
        Json::Value document;
        ASSERT_TRUE(Json::Reader().parse(in, document)) << VELA_CONFIG_SCHEMA_PATH;
        valijson::adapters::JsonCppAdapter adapter(document);
        valijson::SchemaParser().populateSchema(adapter, mSchema);
    }

    bool schemaAccepts(const std::string& text) {
        Json::Value document;
        EXPECT_TRUE(Json::Reader().parse(text, document)) << text;
        valijson::adapters::JsonCppAdapter adapter(document);
        return valijson::Validator().validate(mSchema, adapter, nullptr);
    }

    valijson::Schema mSchema;
};

TEST_F(ConfigSchemaTest, BothAcceptTheShippedFile) {
    std::ifstream in(VELA_DEFAULT_CONFIG_PATH);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_TRUE(schemaAccepts(text.str()));
    const ConfigReading reading = readConfig(text.str());
    EXPECT_TRUE(reading.valid()) << reading.problems.front().path << ": "
                                 << reading.problems.front().message;
}

TEST_F(ConfigSchemaTest, TheSchemaRefusesWhatTheReaderDoesWhereItCanSee) {
    using S = BrokenConfig::Schema;
    for (const BrokenConfig& broken : brokenConfigs()) {
        if (broken.schema == S::kNotJson) continue;
        // A blind entry stays blind: a schema that learns the rule moves it to kRefuses.
        EXPECT_EQ(schemaAccepts(broken.text), broken.schema == S::kBlind) << broken.what;
    }
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
