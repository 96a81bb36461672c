// State shared by the commands of one velactl process: output, names, the embedded service,
// and the callbacks heard so far.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Output.h"
#include "ScenarioConfig.h"

namespace velactl {

// Exit codes, distinct per kind of trouble so that scripts can tell them apart.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;       // the library or the service said no
constexpr int kExitUnknownName = 2;  // unknown subcommand, action, dump, or another usage mistake
constexpr int kExitMalformed = 3;    // malformed opcode, path, number or value
constexpr int kExitNoService = 4;    // the service is not running where we looked

class EmbeddedService;

struct Context {
    Context();
    ~Context();

    Output out;
    bool verbose = false;
    bool scriptMode = false;  // inside `run` or `demo`: listeners stay in the background
    aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig config;
    std::unique_ptr<EmbeddedService> embedded;
    // The last request handle and listener handle a command printed; scripts refer to them
    // as $handle and $listener.
    int32_t lastHandle = 0;
    int32_t lastListener = 0;

    // Counts callbacks printed so far, for `await`.
    void callbackHeard();
    size_t callbacksHeard() const;
    bool awaitCallbacks(size_t total, std::chrono::milliseconds timeout) const;

private:
    mutable std::mutex mLock;
    mutable std::condition_variable mHeard;
    size_t mCallbacks = 0;
};

}  // namespace velactl
