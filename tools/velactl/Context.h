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

#include "ExitCodes.h"
#include "Output.h"
#include "ScenarioConfig.h"
#include "TraceWriter.h"

namespace velactl {

// Exit codes: the table velactl shares with vela-service.
constexpr int kExitOk = vela_exit::kOk;
constexpr int kExitRefused = vela_exit::kRefused;
constexpr int kExitNoValue = vela_exit::kNoValue;
constexpr int kExitUsage = vela_exit::kUsage;
constexpr int kExitData = vela_exit::kDataError;
constexpr int kExitNoInput = vela_exit::kNoInput;
constexpr int kExitUnavailable = vela_exit::kUnavailable;
constexpr int kExitSoftware = vela_exit::kSoftware;
constexpr int kExitInterrupted = vela_exit::kInterrupted;

class EmbeddedService;

struct Context {
    Context();
    ~Context();

    Output out;
    bool scriptMode = false;
    // velactl's own command line, program name first (listen --follow starts it again).
    std::vector<std::string>
            commandLine;  // inside `run` or `demo`: listeners stay in the background
    aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig config;
    std::unique_ptr<EmbeddedService> embedded;
    // The embedded service's timeline (--trace), closed before velactl leaves.
    std::shared_ptr<aidl::vendor::norvo::hardware::vela::impl::TraceWriter> trace;
    // Where --trace points: the embedded service's timeline, or the one a replay writes.
    std::string traceFile;
    // The last request handle and listener handle a command printed; scripts refer to them
    // as $handle and $listener.
    int32_t lastHandle = 0;
    int32_t lastListener = 0;
    // What followed `--` on a holding command's line (Hold.h): run while the request holds.
    std::vector<std::string> heldCommand;
    // The resource names are the ones to use: --config's, the embedded service's, or read
    // from the service (ServiceNames.h).
    bool namesSettled = false;

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
