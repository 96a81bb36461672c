// The Pax event interface: usage scenarios, notifications, rules and power figures.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

struct InitOptions {
    bool pax = false;
};
void bindInit(CLI::App& app, InitOptions& o);
int runInit(Context& ctx, InitOptions& o);

struct AcquireOptions {
    std::string action;
    std::vector<std::string> resources;
    std::string pkg;
    std::string identity;
    int32_t durationMs = 0;
    std::string via;
};
void bindAcquire(CLI::App& app, AcquireOptions& o);
int runAcquire(Context& ctx, AcquireOptions& o);

struct NotifyOptions {
    int32_t cmd = 0;
    std::vector<int32_t> values;
    int32_t param = 0;
};
void bindNotify(CLI::App& app, NotifyOptions& o);
int runNotify(Context& ctx, NotifyOptions& o);

struct RuleOptions {
    int32_t id = 0;
    std::string status;
    std::vector<std::string> resources;
};
void bindRule(CLI::App& app, RuleOptions& o);
int runRule(Context& ctx, RuleOptions& o);

struct SysinfoOptions {
    int32_t info = 0;
    int64_t value = 0;
};
void bindSysinfo(CLI::App& app, SysinfoOptions& o);
int runSysinfo(Context& ctx, SysinfoOptions& o);

struct PmOptions {
    int32_t mode = 0;
};
void bindPm(CLI::App& app, PmOptions& o);
int runPm(Context& ctx, PmOptions& o);

int runDataset(Context& ctx);
int runPower(Context& ctx);

}  // namespace velactl
