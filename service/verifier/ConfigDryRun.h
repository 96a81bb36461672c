// `vela-service --check-config FILE --exec-all`: every scenario of a configuration applied in
// turn by a service inside this process, and released again, to show what it really moves.
#pragma once

#include <cstdio>

#include "ScenarioConfig.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// Writes each scenario's changes to `out` ("  cpu.big.freq_min: 710400 -> 2419200"). False
// when the service refused a scenario or a release did not restore what was there before.
bool dryRunScenarios(const ScenarioConfig& config, FILE* out);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
