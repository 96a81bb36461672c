// The one reader of a configuration, for the service and its verifier alike: it walks the
// document once, names every problem at its JSON path, and builds the configuration from what
// is well formed. What it refuses, nothing in the program accepts.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ScenarioConfig.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

struct ConfigProblem {
    std::string path;  // "$.scenarios[3].resources[1].value"
    std::string message;
};

struct ConfigReading {
    // Built from what is well formed; whole only when there is no problem.
    ScenarioConfig config;
    // Every problem, in the order of the text.
    std::vector<ConfigProblem> problems;
    // Why a file could not be read at all ("cannot open f.json: No such file or directory");
    // the rest is then empty.
    std::string unreadable;

    bool valid() const { return unreadable.empty() && problems.empty(); }
};

ConfigReading readConfig(const std::string& text);
ConfigReading readConfigFile(const std::string& file);

// Above this a file is not read: no configuration comes near, and a device node would never end.
constexpr size_t kMaxConfigBytes = 4 << 20;

// Reads at most a little over kMaxConfigBytes of `file` into `text` (a longer file is too big
// to be a profile or a configuration, which the caller tells by its size): nothing, or why it
// cannot be read ("cannot open FILE: …", "cannot read FILE: …").
std::optional<std::string> readBoundedText(const std::string& file, std::string* text);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
