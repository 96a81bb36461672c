#include "ConfigVerifier.h"

#include "ConfigDryRun.h"
#include "ConfigReader.h"
#include "ExitCodes.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

int say(const std::string& file, const ConfigReading& reading, FILE* err) {
    if (!reading.unreadable.empty()) {
        fprintf(err, "vela-service: %s\n", reading.unreadable.c_str());
        return vela_exit::kNoInput;
    }
    for (const ConfigProblem& problem : reading.problems) {
        fprintf(err, "%s: %s: %s\n", file.c_str(), problem.path.c_str(), problem.message.c_str());
    }
    return reading.problems.empty() ? vela_exit::kOk : vela_exit::kDataError;
}

}  // namespace

int readConfigOrSayWhy(const std::string& file, FILE* err, std::optional<ScenarioConfig>* config) {
    ConfigReading reading = readConfigFile(file);
    const int code = say(file, reading, err);
    if (code == vela_exit::kOk) *config = std::move(reading.config);
    return code;
}

int checkConfig(const std::string& file, bool execAll, FILE* out, FILE* err) {
    const ConfigReading reading = readConfigFile(file);
    const int code = say(file, reading, err);
    const size_t count = reading.problems.size();
    if (code == vela_exit::kDataError) {
        fprintf(out, "%s: invalid, %zu problem%s\n", file.c_str(), count, count == 1 ? "" : "s");
    }
    if (code != vela_exit::kOk) return code;
    fprintf(out, "%s: valid\n", file.c_str());
    if (!execAll) return vela_exit::kOk;
    fflush(out);
    return dryRunScenarios(reading.config, out) ? vela_exit::kOk : vela_exit::kDataError;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
