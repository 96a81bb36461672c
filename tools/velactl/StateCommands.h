// What is in force, and hearing when it changes: state, listen, thermal levels.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

struct StateOptions {
    std::vector<std::string> resources;
    bool pax = false;
    bool single = false;
    bool map = false;
};
void bindState(CLI::App& app, StateOptions& o);
int runState(Context& ctx, StateOptions& o);

struct ListenOptions {
    std::vector<std::string> resources;
    bool thermal = false;
    bool map = false;
    bool follow = false;
    int32_t count = 0;    // 0: no bound
    int32_t waitMs = -1;  // -1: no bound
};
void bindListen(CLI::App& app, ListenOptions& o);
int runListen(Context& ctx, ListenOptions& o);

struct ThermalOptions {
    std::vector<std::string> levels;
};
void bindThermal(CLI::App& app, ThermalOptions& o);
int runThermal(Context& ctx, ThermalOptions& o);

}  // namespace velactl
