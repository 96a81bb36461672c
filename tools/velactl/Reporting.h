// What the commands share when they report: resources in words and as JSON, failures with the
// service's reason, handles, and the printer that hears callbacks.
#pragma once

#include <velaHalclient.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Context.h"
#include "Interrupt.h"
#include "ResourceArgs.h"

namespace velactl {

std::string showValue(const std::optional<std::string>& value);
// "0x01010010 cpu.little.freq_min = 1804800".
std::string resourceLine(const Context& ctx, uint32_t opcode, const std::string& path,
                         const std::optional<std::string>& value);
Json::Value resourceJson(const Context& ctx, uint32_t opcode, const std::string& path,
                         const std::optional<std::string>& value);

// Prints why `what` failed (with an embedded service's own explanation); the exit code.
int failed(Context& ctx, const std::string& what, int32_t result);

velaHalclient::ResourceList toList(const std::vector<ResourceArg>& args);
// Opcodes only: UsageError naming `what` for a path.
std::vector<PaxClient::Resource> toVector(const std::vector<ResourceArg>& args,
                                          const std::string& what);
std::vector<std::string> pathsOf(const std::vector<ResourceArg>& args);
// The --map form: a path-to-value map, a missing value standing as an empty one.
std::map<std::string, std::string> pathMap(const std::vector<ResourceArg>& args);

// Resources as a result: one line each, or a JSON array.
struct ResourceListing {
    explicit ResourceListing(const Context& context) : ctx(context) {}

    const Context& ctx;
    std::string text;
    Json::Value items{Json::arrayValue};

    void add(uint32_t opcode, const std::string& path, const std::optional<std::string>& value);
};

// Receives listener callbacks and one-shot answers, prints them, and counts them.
class Printer : public velaHalclient::IClientCallback, public velaHalclient::IClientCallbackByPath {
public:
    Printer(Context& ctx, std::string label);

    void setHandle(int32_t handle) { mHandle = handle; }
    size_t heard() const { return mHeard; }

    void onCallback(std::list<PaxClient::Resource>& resources) override;
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override;

private:
    void print(const std::string& text, const Json::Value& items);

    Context& mCtx;
    const std::string mLabel;
    const bool mThermal;
    std::atomic<int32_t> mHandle{0};
    std::atomic<size_t> mHeard{0};
};

// Polls `done` until it holds, the time is up or Ctrl-C was pressed (see Interrupt.h).
bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout);

// A request that answers a handle: a failure, or the handle noted for $handle and printed.
int reportHandle(Context& ctx, const std::string& what, int32_t handle);
// A control request's end: report the handle, and with a callback wait (bounded) for the
// service's answer to arrive through it.
int finishRequest(Context& ctx, const std::string& what, int32_t handle, Printer& printer,
                  bool callback, int32_t timeoutMs);

}  // namespace velactl
