// Reading what people type: resources ("0x01010010=1804800", "cpu.little.freq_min=1804800",
// "/dev/cpuctl/top-app/cpu.uclamp.min=30"), handles, action names, and the nearest names to
// offer when one is mistyped.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ExitCodes.h"
#include "ScenarioConfig.h"

namespace velactl {

using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;

// Thrown for anything the user typed wrong; the message says what and how to write it. The
// code is velactl's exit code: malformed data unless said otherwise.
struct UsageError {
    std::string message;
    int code = vela_exit::kDataError;
};

struct ResourceArg {
    uint32_t opcode = 0;  // 0 for a path
    std::string path;
    std::optional<std::string> value;

    bool isPath() const { return opcode == 0; }
};

// `text` is OPCODE, NAME or PATH, optionally followed by "=VALUE". A value is required when
// `needValue` (and must then not be empty for an opcode), refused when `forbidValue`.
enum class ValueRule { kOptional, kRequired, kForbidden };
ResourceArg parseResource(const std::string& text, const ScenarioConfig& config, ValueRule rule);
std::vector<ResourceArg> parseResources(const std::vector<std::string>& texts,
                                        const ScenarioConfig& config, ValueRule rule);
// Refuses more items than the service takes in one request, naming them `what`.
void checkItemCount(size_t count, const std::string& what);
// Either all opcodes or all paths; UsageError when mixed. True for paths. An empty list
// counts as opcodes.
bool allPaths(const std::vector<ResourceArg>& args);

// A whole 32-bit number (decimal or 0x hex); UsageError naming `what` otherwise.
int32_t parseInt(const std::string& text, const std::string& what);
int64_t parseLong(const std::string& text, const std::string& what);

// "0x01010010 cpu.little.freq_min", or the path.
std::string describeResource(uint32_t opcode, const std::string& path,
                             const ScenarioConfig& config);

// The event id of an action. Accepts the exact name, the name with the wrapper's "MIRDAL_"
// prefix, and (case-insensitively) the name without "ACTION_": "launch" is ACTION_LAUNCH.
// Nothing when unknown.
std::optional<int32_t> findAction(const std::string& name);
// Up to `count` names of `candidates` nearest to `text`, nearest first.
std::vector<std::string> nearest(const std::string& text,
                                 const std::vector<std::string>& candidates, size_t count = 3);
// ", did you mean A, B or C?" (empty when there is nothing close enough).
std::string suggestion(const std::string& text, const std::vector<std::string>& candidates);

}  // namespace velactl
