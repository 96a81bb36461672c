#include "ToolCommands.h"

#include <PaxWrapper.h>
#include <android/binder_manager.h>
#include <hostbinder/hostbinder.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>

#include "CallDeadline.h"
#include "Embedded.h"
#include "ResourceArgs.h"
#include "ServiceWatch.h"
#include "vela_protocol.h"

namespace velactl {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

void bindActions(CLI::App& app, ActionsOptions& o) {
    app.add_option("filter", o.filter, "show only names containing this text");
}

int runActions(Context& ctx, ActionsOptions& o) {
    std::string wanted = o.filter;
    if (wanted.rfind("MIRDAL_", 0) == 0) wanted = wanted.substr(7);
    for (char& c : wanted) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    std::string text;
    Json::Value rows(Json::arrayValue);
    for (size_t id = 0; id < gActionList.size(); ++id) {
        const std::string& name = gActionList[id];
        // As acquire resolves a name: any case, ACTION_ and MIRDAL_ optional.
        if (!wanted.empty() && name.find(wanted) == std::string::npos) continue;
        const auto* scenario = ctx.config.scenarioFor(id);
        char line[128];
        snprintf(line, sizeof(line), "%3zu  %-44s%s", id, name.c_str(), scenario ? "scenario" : "");
        text += (text.empty() ? "" : "\n") + std::string(line);
        Json::Value row;
        row["event"] = static_cast<Json::UInt>(id);
        row["action"] = name;
        row["scenario"] = scenario != nullptr;
        rows.append(row);
    }
    if (rows.empty()) {
        throw UsageError{"no action matches '" + o.filter + "'" + suggestion(o.filter, gActionList),
                         kExitUsage};
    }
    Json::Value json;
    json["actions"] = rows;
    ctx.out.result(text, json);
    return kExitOk;
}

int runStatus(Context& ctx) {
    const char* instance = protocol::instanceName().c_str();
    ::ndk::SpAIBinder binder(AServiceManager_checkService(instance));
    bool running = binder.get() != nullptr;
    binder.set(nullptr);
    // Running is not answering: a stopped service still takes connections on its socket.
    bool answering = false;
    if (running) {
        const Ping ping = pingService(callTimeout());
        answering = ping == Ping::kAnswered;
        running = ping != Ping::kGone;
    }
    const bool declared = AServiceManager_isDeclared(instance);
    Json::Value json;
    json["directory"] = HostBinder_getDirectory();
    json["manifest"] = HostBinder_getManifestDirectory();
    json["instance"] = instance;
    json["declared"] = declared;
    json["running"] = running;
    json["answering"] = answering;
    json["embedded"] = ctx.embedded != nullptr;
    const char* problem = HostBinder_directoryProblem();
    json["directory_problem"] = problem != nullptr ? Json::Value(problem) : Json::Value();
    ctx.out.result(std::string("service ") + instance + "\n  directory " +
                           HostBinder_getDirectory() + (ctx.embedded ? " (embedded)" : "") +
                           (problem != nullptr ? std::string(" (refused: ") + problem + ")"
                                               : std::string()) +
                           "\n  manifest  " + HostBinder_getManifestDirectory() + "\n  declared  " +
                           (declared ? "yes" : "no") + "\n  running   " +
                           (!running    ? "no"
                            : answering ? "yes"
                                        : "yes, but not answering (no answer to a ping within " +
                                                  describeTimeout(callTimeout()) + ")"),
                   json);
    return answering ? kExitOk : kExitUnavailable;
}

int requireService(Context& ctx) {
    const char* instance = protocol::instanceName().c_str();
    ::ndk::SpAIBinder binder(AServiceManager_checkService(instance));
    if (binder.get() != nullptr) return kExitOk;

    const std::string dir = HostBinder_getDirectory();
    const std::string manifest = HostBinder_getManifestDirectory();
    std::string detail;
    if (const char* problem = HostBinder_directoryProblem()) {
        // Nothing in a directory we cannot trust is looked at, so say that, not "not found".
        ctx.out.error("cannot use " + dir + ": " + problem);
        return kExitUnavailable;
    }
    if (AServiceManager_isDeclared(instance)) {
        detail = "it is declared in " + manifest + " but nothing serves it now";
    } else if (std::filesystem::exists(manifest)) {
        detail = "no manifest fragment in " + manifest + " declares it";
    } else {
        detail = manifest + " does not exist";
    }
    ctx.out.error(std::string("the vela service is not running: looked for ") + instance + " in " +
                  dir +
                  (getenv("HOSTBINDER_DIR") ? " ($HOSTBINDER_DIR)"
                                            : " (default; $HOSTBINDER_DIR is unset)") +
                  "; " + detail +
                  ". Start vela-service with the same HOSTBINDER_DIR, or add --embedded.");
    return kExitUnavailable;
}

}  // namespace velactl
