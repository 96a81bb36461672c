#include "ReleaseCommands.h"

#include <PaxEvent.h>
#include <PaxWrapper.h>
#include <velaHalclient.h>

#include <algorithm>

#include "Limits.h"
#include "NumberOptions.h"
#include "Reporting.h"

namespace velactl {

namespace {

const std::vector<std::string> kVias = {"hal", "sa", "pax", "wrapper"};

}  // namespace

void bindRelease(CLI::App& app, ReleaseOptions& o) {
    addNumber(app, "HANDLE", o.handle, "the request's handle", kHandle, "INT")->required();
    app.add_option("--via", o.via, "hal (default), sa, pax or wrapper")
            ->check(CLI::Validator(
                    [](std::string& via) {
                        if (std::find(kVias.begin(), kVias.end(), via) != kVias.end()) {
                            return std::string();
                        }
                        return "'" + via + "' is no layer" + suggestion(via, kVias) +
                               " (hal, sa, pax or wrapper)";
                    },
                    "", ""))
            ->type_name("LAYER");
}

int runRelease(Context& ctx, ReleaseOptions& o) {
    const int32_t handle = o.handle;
    const std::string what = "release " + std::to_string(handle);
    Json::Value json;
    json["handle"] = handle;
    json["via"] = o.via;
    if (o.via == "pax" || o.via == "wrapper") {
        // These releases return nothing: whether the service knew the handle is not told.
        if (o.via == "pax") {
            PaxRelease(handle);
        } else {
            PaxReleaseWapper(handle);
        }
        json["release"] = "sent";
        ctx.out.result("release of handle " + std::to_string(handle) + " sent (the " + o.via +
                               " layer does not report the result)",
                       json);
        return kExitOk;
    }
    const int32_t rc = o.via == "sa" ? velaHalclient::velaSACtlRelease(handle)
                                     : velaHalclient::velaResCtlRelease(handle);
    if (rc != 0) return failed(ctx, what, rc);
    json["released"] = handle;
    ctx.out.result("released handle " + std::to_string(handle), json);
    return kExitOk;
}

void bindUnlisten(CLI::App& app, UnlistenOptions& o) {
    addNumber(app, "HANDLE", o.handle, "the listener's handle", kHandle, "INT")->required();
    app.add_flag("--thermal", o.thermal, "a thermal listener");
}

int runUnlisten(Context& ctx, UnlistenOptions& o) {
    const int rc = o.thermal ? velaHalclient::velaThermalListeningUnregister(o.handle)
                             : velaHalclient::velaResListeningUnRegister(o.handle);
    if (rc != 0) return failed(ctx, "unlisten " + std::to_string(o.handle), rc);
    Json::Value json;
    json["removed"] = o.handle;
    json["thermal"] = o.thermal;
    ctx.out.result("listener " + std::to_string(o.handle) + " removed", json);
    return kExitOk;
}

}  // namespace velactl
