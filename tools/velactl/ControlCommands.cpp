#include "ControlCommands.h"

#include <PaxEvent.h>
#include <velaHalclient.h>

#include "Hold.h"
#include "Limits.h"
#include "NumberOptions.h"
#include "Reporting.h"

namespace velactl {

void addDuration(CLI::App& app, int32_t& durationMs) {
    addNumber(app, "-d,--duration", durationMs,
              "how long it holds, in ms (0: while velactl or the command after -- runs)",
              kDurationMs, "MS");
    app.footer(kHoldHelp);
}

void addCallback(CLI::App& app, bool& callback, int32_t& timeoutMs) {
    app.add_flag("--callback", callback, "ask for the answer through a callback");
    addNumber(app, "--timeout", timeoutMs, "how long to wait for the answer, in ms", kTimeoutMs,
              "MS");
}

void addText(CLI::App& app, const std::string& name, std::string& target, const std::string& help) {
    app.add_option(name, target, help)
            ->check(CLI::Validator(
                    [](std::string& text) {
                        if (text.size() <= ServiceLimits::kMaxText) return std::string();
                        return std::to_string(text.size()) + " bytes; the service takes at most " +
                               std::to_string(ServiceLimits::kMaxText);
                    },
                    "", ""))
            ->type_name("TEXT");
}

void bindRequest(CLI::App& app, RequestOptions& o) {
    app.add_option("RESOURCE", o.resources, "OPCODE=VALUE, NAME=VALUE or /PATH=VALUE")
            ->required()
            ->type_name("");
    addDuration(app, o.durationMs);
    addCallback(app, o.callback, o.timeoutMs);
}

int runRequest(Context& ctx, RequestOptions& o) {
    const auto args = parseResources(o.resources, ctx.config, ValueRule::kRequired);
    const bool paths = allPaths(args);
    const int32_t duration = o.durationMs;
    auto printer = std::make_shared<Printer>(ctx, "request");
    int32_t handle;
    if (!paths) {
        auto list = toList(args);
        handle = o.callback
                         ? velaHalclient::velaResCtlRequest(-1, duration, list, -1, 0, 0, printer)
                         : velaHalclient::velaResCtlRequest(-1, duration, list, -1, 0, 0);
    } else {
        std::vector<std::string> pathList, valueList;
        for (const auto& arg : args) {
            pathList.push_back(arg.path);
            valueList.push_back(*arg.value);
        }
        handle = o.callback ? velaHalclient::vela_resctl_request_with_callback_by_path(
                                      -1, duration, pathList, valueList, -1, 0, 0, printer)
                            : velaHalclient::vela_resctl_request_by_path(-1, duration, pathList,
                                                                         valueList, -1, 0, 0);
    }
    if (int rc = finishRequest(ctx, "request", handle, *printer, o.callback, o.timeoutMs);
        rc != kExitOk) {
        return rc;
    }
    return holdRequest(ctx, handle, duration);
}

void bindSaRequest(CLI::App& app, SaRequestOptions& o) {
    addNumber(app, "ID", o.id, "SA id (an event id)", kNonNegative, "INT")->required();
    addDuration(app, o.durationMs);
    addCallback(app, o.callback, o.timeoutMs);
}

int runSaRequest(Context& ctx, SaRequestOptions& o) {
    const int32_t id = o.id;
    const int32_t duration = o.durationMs;
    auto printer = std::make_shared<Printer>(ctx, "request");
    const int32_t handle =
            o.callback ? velaHalclient::velaSACtlRequest(-1, duration, id, -1, 0, 0, printer)
                       : velaHalclient::velaSACtlRequest(-1, duration, id, -1, 0, 0);
    if (int rc = finishRequest(ctx, "sa-request", handle, *printer, o.callback, o.timeoutMs);
        rc != kExitOk) {
        return rc;
    }
    return holdRequest(ctx, handle, duration);
}

void bindResAcquire(CLI::App& app, ResAcquireOptions& o) {
    app.add_option("RESOURCE", o.resources, "OPCODE=VALUE or NAME=VALUE")
            ->required()
            ->type_name("");
    addText(app, "--identity", o.identity, "identity text");
    addDuration(app, o.durationMs);
}

int runResAcquire(Context& ctx, ResAcquireOptions& o) {
    auto resources =
            toVector(parseResources(o.resources, ctx.config, ValueRule::kRequired), "res-acquire");
    const int32_t handle = PaxResAcquire(resources, nullptr, o.identity, o.durationMs);
    if (int rc = reportHandle(ctx, "res-acquire", handle); rc != kExitOk) return rc;
    return holdRequest(ctx, handle, o.durationMs);
}

void bindPlatformAcquire(CLI::App& app, ResAcquireOptions& o) {
    bindResAcquire(app, o);
    addText(app, "--pkg", o.pkg, "package name");
}

int runPlatformAcquire(Context& ctx, ResAcquireOptions& o) {
    auto resources = toVector(parseResources(o.resources, ctx.config, ValueRule::kRequired),
                              "platform-acquire");
    const int32_t handle =
            PaxPlatformResAcquire(resources, nullptr, o.identity, o.pkg, o.durationMs);
    if (int rc = reportHandle(ctx, "platform-acquire", handle); rc != kExitOk) return rc;
    return holdRequest(ctx, handle, o.durationMs);
}

}  // namespace velactl
