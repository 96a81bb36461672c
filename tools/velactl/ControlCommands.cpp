#include "ControlCommands.h"

#include <PaxEvent.h>
#include <velaHalclient.h>

#include "Reporting.h"

namespace velactl {

void bindRequest(CLI::App& app, RequestOptions& o) {
    app.add_option("resources", o.resources, "OPCODE=VALUE or /PATH=VALUE ...")->required();
    app.add_option("-d,--duration", o.duration, "duration in ms (0: until released)");
    app.add_flag("--callback", o.callback, "ask for the answer through a callback");
    app.add_option("--timeout", o.timeout, "how long to wait for the answer, in ms");
}

int runRequest(Context& ctx, RequestOptions& o) {
    const auto args = parseResources(o.resources, ctx.config, ValueRule::kRequired);
    const bool paths = allPaths(args);
    const int32_t duration = parseInt(o.duration, "duration");
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
    return finishRequest(ctx, "request", handle, *printer, o.callback, o.timeout);
}

void bindSaRequest(CLI::App& app, SaRequestOptions& o) {
    app.add_option("id", o.id, "SA id (an event id)")->required();
    app.add_option("-d,--duration", o.duration, "duration in ms (0: until released)");
    app.add_flag("--callback", o.callback, "ask for the answer through a callback");
    app.add_option("--timeout", o.timeout, "how long to wait for the answer, in ms");
}

int runSaRequest(Context& ctx, SaRequestOptions& o) {
    const int32_t id = parseInt(o.id, "SA id");
    const int32_t duration = parseInt(o.duration, "duration");
    auto printer = std::make_shared<Printer>(ctx, "request");
    const int32_t handle =
            o.callback ? velaHalclient::velaSACtlRequest(-1, duration, id, -1, 0, 0, printer)
                       : velaHalclient::velaSACtlRequest(-1, duration, id, -1, 0, 0);
    return finishRequest(ctx, "sa-request", handle, *printer, o.callback, o.timeout);
}

void bindResAcquire(CLI::App& app, ResAcquireOptions& o) {
    app.add_option("resources", o.resources, "OPCODE=VALUE ...")->required();
    app.add_option("--identity", o.identity, "identity text");
    app.add_option("-d,--duration", o.duration, "duration in ms (0: until released)");
}

int runResAcquire(Context& ctx, ResAcquireOptions& o) {
    auto resources =
            toVector(parseResources(o.resources, ctx.config, ValueRule::kRequired), "res-acquire");
    const int32_t handle =
            PaxResAcquire(resources, nullptr, o.identity, parseInt(o.duration, "duration"));
    return reportHandle(ctx, "res-acquire", handle);
}

void bindPlatformAcquire(CLI::App& app, ResAcquireOptions& o) {
    bindResAcquire(app, o);
    app.add_option("--pkg", o.pkg, "package name");
}

int runPlatformAcquire(Context& ctx, ResAcquireOptions& o) {
    auto resources = toVector(parseResources(o.resources, ctx.config, ValueRule::kRequired),
                              "platform-acquire");
    const int32_t handle = PaxPlatformResAcquire(resources, nullptr, o.identity, o.pkg,
                                                 parseInt(o.duration, "duration"));
    return reportHandle(ctx, "platform-acquire", handle);
}

}  // namespace velactl
