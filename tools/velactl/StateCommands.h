// What is in force, and hearing when it changes: state, listen, thermal levels.
#pragma once

#include <CLI/CLI.hpp>
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
    std::string count;
    std::string waitMs;
};
void bindListen(CLI::App& app, ListenOptions& o);
int runListen(Context& ctx, ListenOptions& o);

struct ThermalOptions {
    std::vector<std::string> levels;
};
void bindThermal(CLI::App& app, ThermalOptions& o);
int runThermal(Context& ctx, ThermalOptions& o);

}  // namespace velactl
