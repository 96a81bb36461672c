// The configuration verifier behind `vela-service --check-config`: the shipped JSON Schema
// first, then what a schema cannot know (the clients' action table, which resources are
// declared, each value against its resource, duplicates). Host builds only: it needs valijson.
#pragma once

#include <string>
#include <vector>

namespace aidl::vendor::norvo::hardware::vela::impl {

struct ConfigProblem {
    std::string path;  // "$.scenarios[3].resources[1].value"
    std::string message;
};

// Every problem of the configuration `text`, in document order; none when it is valid.
std::vector<ConfigProblem> verifyConfig(const std::string& text);

// The schema compiled into the program (vela-config.schema.json).
const char* configSchemaText();

}  // namespace aidl::vendor::norvo::hardware::vela::impl
