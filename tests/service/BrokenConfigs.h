// Broken configurations (broken-configs.json), each with every line the reader must say about
// it: the reader's own test reads them, and the schema's test checks that the schema refuses
// the same ones.
#pragma once

#include <string>
#include <vector>

namespace aidl::vendor::norvo::hardware::vela::impl {

struct BrokenConfig {
    // What the schema makes of it: it refuses it too, it cannot see the rule (the action
    // table, a reference across the file, a rule that joins two members) and accepts it, or
    // the text is not JSON it could be given.
    enum class Schema { kRefuses, kBlind, kNotJson };

    std::string what;
    std::string text;
    std::vector<std::string> findings;  // "$.path: message", in the order of the text
    Schema schema = Schema::kRefuses;
};

const std::vector<BrokenConfig>& brokenConfigs();

}  // namespace aidl::vendor::norvo::hardware::vela::impl
