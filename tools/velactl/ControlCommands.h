// Control requests: resources set for a while, by opcode or path, with or without an event.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "Context.h"

namespace velactl {

struct RequestOptions {
    std::vector<std::string> resources;
    std::string duration = "0";
    bool callback = false;
    std::string timeout = "5000";
};
void bindRequest(CLI::App& app, RequestOptions& o);
int runRequest(Context& ctx, RequestOptions& o);

struct SaRequestOptions {
    std::string id;
    std::string duration = "0";
    bool callback = false;
    std::string timeout = "5000";
};
void bindSaRequest(CLI::App& app, SaRequestOptions& o);
int runSaRequest(Context& ctx, SaRequestOptions& o);

struct ResAcquireOptions {
    std::vector<std::string> resources;
    std::string identity;
    std::string pkg;
    std::string duration = "0";
};
void bindResAcquire(CLI::App& app, ResAcquireOptions& o);
int runResAcquire(Context& ctx, ResAcquireOptions& o);
void bindPlatformAcquire(CLI::App& app, ResAcquireOptions& o);
int runPlatformAcquire(Context& ctx, ResAcquireOptions& o);

}  // namespace velactl
