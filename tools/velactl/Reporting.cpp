#include "Reporting.h"

#include <android/log.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "CallDeadline.h"
#include "Embedded.h"
#include "Output.h"
#include "ResourceTable.h"
#include "ServiceDumpReader.h"
#include "ServiceWatch.h"
#include "WallClock.h"
#include "vela_protocol.h"

namespace velactl {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;
using PaxClient::Resource;

namespace {

std::string nameOf(const Context& ctx, uint32_t opcode) {
    using aidl::vendor::norvo::hardware::vela::impl::ResourceKey;
    const auto* info = ctx.config.infoFor(ResourceKey::ofOpcode(opcode));
    return info != nullptr ? info->name : std::string();
}

// Why a call failed, in words: the library's -1, or one of the service's own codes.
std::string whyFailed(int32_t result) {
    if (result == -1) return "the call failed (-1)";
    if (const char* name = protocol::resultName(result)) {
        return std::string("refused by the service: ") + name + " (" + std::to_string(result) + ")";
    }
    return "result " + std::to_string(result);
}

// When velactl began: a refusal the service logged before then was another process's that
// had this pid.
const auto kStarted = std::chrono::steady_clock::now();

// The service's reason for refusing this process's latest call, from its table of refusals:
// the most recent entry with velactl's pid, if it is younger than velactl.
std::optional<std::string> refusalReason(int32_t result) {
    if (result == -1 || protocol::resultName(result) == nullptr) return std::nullopt;
    const auto rows = readServiceTable("refusals");
    if (!rows || !rows->isArray()) return std::nullopt;
    const auto lived = std::chrono::duration_cast<std::chrono::milliseconds>(
                               std::chrono::steady_clock::now() - kStarted)
                               .count();
    const Json::Value* latest = nullptr;
    for (const Json::Value& row : *rows) {
        if (!row.isObject() || row["pid"].asInt64() != getpid()) continue;
        if (row["age_ms"].isInt64() && row["age_ms"].asInt64() > lived) continue;
        if (latest == nullptr || row["sequence"].asUInt64() > (*latest)["sequence"].asUInt64()) {
            latest = &row;
        }
    }
    if (latest == nullptr || !(*latest)["reason"].isString()) return std::nullopt;
    return (*latest)["reason"].asString();
}

}  // namespace

std::string showValue(const std::optional<std::string>& value) {
    return value ? *value : "(no value)";
}

std::string resourceLine(const Context& ctx, uint32_t opcode, const std::string& path,
                         const std::optional<std::string>& value) {
    return describeResource(opcode, path, ctx.config) + " = " + showValue(value);
}

Json::Value resourceJson(const Context& ctx, uint32_t opcode, const std::string& path,
                         const std::optional<std::string>& value) {
    return Output::resourceJson(opcode, path, value, opcode != 0 ? nameOf(ctx, opcode) : "");
}

int failed(Context& ctx, const std::string& what, int32_t result) {
    // The library answers -1 for a transport failure as for other troubles: a service that is
    // gone now is the likely cause, and it has a code of its own.
    if (result == -1 && !ctx.embedded && !serviceRunning()) {
        ctx.out.error(what + ": the service went away");
        return kExitUnavailable;
    }
    ctx.out.error(what + ": " + whyFailed(result));
    if (const auto reason = refusalReason(result)) {
        ctx.out.error("  reason: " + *reason);
        return kExitRefused;
    }
    // An embedded service's own explanation is at hand: show it.
    if (ctx.embedded) {
        for (const std::string& line : serviceLines(ANDROID_LOG_WARN)) {
            ctx.out.error("  service: " + line);
        }
    }
    // -1 is the library's own: the call did not get through (a service that turned the caller
    // away, or is not there), which is not a refusal of the request itself.
    return result == -1 ? kExitUnavailable : kExitRefused;
}

velaHalclient::ResourceList toList(const std::vector<ResourceArg>& args) {
    velaHalclient::ResourceList list;
    for (const auto& arg : args) list.push_back(Resource{arg.opcode, arg.value});
    return list;
}

std::vector<Resource> toVector(const std::vector<ResourceArg>& args, const std::string& what) {
    std::vector<Resource> out;
    for (const auto& arg : args) {
        if (arg.isPath()) {
            throw UsageError{what + " takes opcodes only; for paths use `velactl request`"};
        }
        out.push_back(Resource{arg.opcode, arg.value});
    }
    return out;
}

std::vector<std::string> pathsOf(const std::vector<ResourceArg>& args) {
    std::vector<std::string> paths;
    for (const auto& arg : args) paths.push_back(arg.path);
    return paths;
}

std::map<std::string, std::string> pathMap(const std::vector<ResourceArg>& args) {
    std::map<std::string, std::string> map;
    for (const auto& arg : args) {
        if (!arg.isPath()) throw UsageError{"--map takes paths only"};
        map[arg.path] = arg.value.value_or("");
    }
    return map;
}

void ResourceListing::add(uint32_t opcode, const std::string& path,
                          const std::optional<std::string>& value) {
    text += (text.empty() ? "" : "\n") + resourceLine(ctx, opcode, path, value);
    items.append(resourceJson(ctx, opcode, path, value));
}

Printer::Printer(Context& ctx, std::string label)
    : mCtx(ctx), mLabel(std::move(label)), mThermal(mLabel == "thermal") {}

void Printer::onCallback(std::list<Resource>& resources) {
    std::string text;
    Json::Value items(Json::arrayValue);
    for (const Resource& r : resources) {
        if (mThermal) {
            // Thermal items are subsystems and levels, not resources.
            text += "\n  subsystem " + std::to_string(r.id) + " level " + showValue(r.value);
            Json::Value item;
            item["subsystem"] = r.id;
            item["level"] = r.value ? Json::Value(*r.value) : Json::Value();
            items.append(item);
            continue;
        }
        text += "\n  " + resourceLine(mCtx, r.id, "", r.value);
        items.append(resourceJson(mCtx, r.id, "", r.value));
    }
    print(text, items);
}

void Printer::onCallback(std::vector<std::string> values, std::vector<std::string> paths) {
    std::string text;
    Json::Value items(Json::arrayValue);
    for (size_t i = 0; i < paths.size() && i < values.size(); ++i) {
        text += "\n  " + paths[i] + " = " + values[i];
        items.append(Output::resourceJson(0, paths[i], values[i], ""));
    }
    print(text, items);
}

void Printer::print(const std::string& text, const Json::Value& items) {
    const WallClock heard = WallClock::now();
    Json::Value json;
    json["callback"] = mLabel;
    json["handle"] = mHandle.load();
    heard.stamp(&json);
    json["items"] = items;
    mCtx.out.result(heard.iso + " [" + mLabel + " " + std::to_string(mHandle) + " callback]" + text,
                    json);
    ++mHeard;
    mCtx.callbackHeard();
}

bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    DeadlinePause waitingOnPurpose;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (interrupted() || std::chrono::steady_clock::now() >= deadline) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

int reportHandle(Context& ctx, const std::string& what, int32_t handle) {
    if (handle < 1) return failed(ctx, what, handle);
    ctx.lastHandle = handle;
    Json::Value json;
    json["handle"] = handle;
    ctx.out.result("handle " + std::to_string(handle), json);
    return kExitOk;
}

int finishRequest(Context& ctx, const std::string& what, int32_t handle, Printer& printer,
                  bool callback, int32_t timeoutMs) {
    // Before the handle is out, so that an early callback prints under it.
    printer.setHandle(handle);
    if (int rc = reportHandle(ctx, what, handle); rc != kExitOk) return rc;
    if (!callback) return kExitOk;
    InterruptScope scope;
    if (!waitFor([&] { return printer.heard() > 0; }, std::chrono::milliseconds(timeoutMs))) {
        if (interrupted()) return kExitInterrupted;
        ctx.out.error("no answer from the service within " + std::to_string(timeoutMs) + " ms");
        return kExitNoValue;
    }
    return kExitOk;
}

}  // namespace velactl
