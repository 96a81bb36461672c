// Control requests: resources set for a while, by opcode or path, with or without an event.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

struct RequestOptions {
    std::vector<std::string> resources;
    int32_t durationMs = 0;
    bool callback = false;
    int32_t timeoutMs = 5000;
};
void bindRequest(CLI::App& app, RequestOptions& o);
int runRequest(Context& ctx, RequestOptions& o);

struct SaRequestOptions {
    int32_t id = 0;
    int32_t durationMs = 0;
    bool callback = false;
    int32_t timeoutMs = 5000;
};
void bindSaRequest(CLI::App& app, SaRequestOptions& o);
int runSaRequest(Context& ctx, SaRequestOptions& o);

struct ResAcquireOptions {
    std::vector<std::string> resources;
    std::string identity;
    std::string pkg;
    int32_t durationMs = 0;
};
void bindResAcquire(CLI::App& app, ResAcquireOptions& o);
int runResAcquire(Context& ctx, ResAcquireOptions& o);
void bindPlatformAcquire(CLI::App& app, ResAcquireOptions& o);
int runPlatformAcquire(Context& ctx, ResAcquireOptions& o);

// The options every timed request takes.
void addDuration(CLI::App& app, int32_t& durationMs);
void addCallback(CLI::App& app, bool& callback, int32_t& timeoutMs);
// --pkg and --identity, bounded as the service bounds its texts.
void addText(CLI::App& app, const std::string& name, std::string& target, const std::string& help);

}  // namespace velactl
