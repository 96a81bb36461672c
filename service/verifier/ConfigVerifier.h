// What vela-service says about a configuration file, with --config and --check-config alike:
// the service's own reader's findings, one a line on stderr, and the exit code they earn.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "ScenarioConfig.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// Reads `file`; every problem goes to `err` as "FILE: $.json.path: message". The exit code: 0
// with `config` set, 65 when the file is not a valid configuration, 66 when it cannot be read.
int readConfigOrSayWhy(const std::string& file, FILE* err, std::optional<ScenarioConfig>* config);

// --check-config FILE [--exec-all]: the problems as above and a verdict on `out`; for a valid
// file and `execAll`, every scenario applied and released again (ConfigDryRun.h).
int checkConfig(const std::string& file, bool execAll, FILE* out, FILE* err);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
