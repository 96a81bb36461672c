// The Pax event interface: usage scenarios, notifications, rules and power figures.
#pragma once

#include <CLI/CLI.hpp>
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
    std::string duration = "0";
    std::string via;
};
void bindAcquire(CLI::App& app, AcquireOptions& o);
int runAcquire(Context& ctx, AcquireOptions& o);

struct NotifyOptions {
    std::string cmd;
    std::vector<std::string> values;
    std::string param = "0";
};
void bindNotify(CLI::App& app, NotifyOptions& o);
int runNotify(Context& ctx, NotifyOptions& o);

struct RuleOptions {
    std::string id;
    std::string status;
    std::vector<std::string> resources;
};
void bindRule(CLI::App& app, RuleOptions& o);
int runRule(Context& ctx, RuleOptions& o);

struct SysinfoOptions {
    std::string info;
    std::string value;
};
void bindSysinfo(CLI::App& app, SysinfoOptions& o);
int runSysinfo(Context& ctx, SysinfoOptions& o);

struct PmOptions {
    std::string mode;
};
void bindPm(CLI::App& app, PmOptions& o);
int runPm(Context& ctx, PmOptions& o);

int runDataset(Context& ctx);
int runPower(Context& ctx);

}  // namespace velactl
