#include "ReleaseCommands.h"

#include <PaxEvent.h>
#include <PaxWrapper.h>
#include <velaHalclient.h>

#include "Reporting.h"

namespace velactl {

void bindRelease(CLI::App& app, ReleaseOptions& o) {
    app.add_option("handle", o.handle, "request handle")->required();
    app.add_option("--via", o.via, "hal (default), sa, pax or wrapper");
}

int runRelease(Context& ctx, ReleaseOptions& o) {
    const int32_t handle = parseInt(o.handle, "handle");
    int32_t rc = 0;
    if (o.via.empty() || o.via == "hal") {
        rc = velaHalclient::velaResCtlRelease(handle);
    } else if (o.via == "sa") {
        rc = velaHalclient::velaSACtlRelease(handle);
    } else if (o.via == "pax") {
        PaxRelease(handle);
    } else if (o.via == "wrapper") {
        PaxReleaseWapper(handle);
    } else {
        throw UsageError{"unknown --via '" + o.via + "'" +
                                 suggestion(o.via, {"hal", "sa", "pax", "wrapper"}),
                         kExitUnknownName};
    }
    if (rc != 0) return failed(ctx, "release " + o.handle, rc);
    Json::Value json;
    json["released"] = handle;
    ctx.out.result("released handle " + std::to_string(handle), json);
    return kExitOk;
}

void bindUnlisten(CLI::App& app, UnlistenOptions& o) {
    app.add_option("handle", o.handle, "listener handle")->required();
    app.add_flag("--thermal", o.thermal, "a thermal listener");
}

int runUnlisten(Context& ctx, UnlistenOptions& o) {
    const int32_t handle = parseInt(o.handle, "handle");
    const int rc = o.thermal ? velaHalclient::velaThermalListeningUnregister(handle)
                             : velaHalclient::velaResListeningUnRegister(handle);
    if (rc != 0) return failed(ctx, "unlisten " + o.handle, rc);
    ctx.out.result("listener " + o.handle + " removed", Json::Value(handle));
    return kExitOk;
}

}  // namespace velactl
