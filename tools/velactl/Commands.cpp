#include "Commands.h"

#include <PaxEvent.h>
#include <PaxWrapper.h>
#include <android/binder_manager.h>
#include <android/log.h>
#include <hostbinder/hostbinder.h>
#include <velaHalclient.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <thread>

#include "Embedded.h"
#include "ResourceArgs.h"
#include "VelaService.h"

namespace velactl {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;
using PaxClient::Resource;

namespace {

std::atomic<bool> gInterrupted{false};

void onInterrupt(int) {
    gInterrupted = true;
}

std::string nameOf(const Context& ctx, uint32_t opcode) {
    using aidl::vendor::norvo::hardware::vela::impl::ResourceKey;
    const auto* info = ctx.config.infoFor(ResourceKey::ofOpcode(opcode));
    return info != nullptr ? info->name : std::string();
}

std::string showValue(const std::optional<std::string>& value) {
    return value ? *value : "(no value)";
}

// One resource line: "0x01010010 cpu.little.freq_min = 1804800".
std::string resourceLine(const Context& ctx, uint32_t opcode, const std::string& path,
                         const std::optional<std::string>& value) {
    return describeResource(opcode, path, ctx.config) + " = " + showValue(value);
}

Json::Value resourceJson(const Context& ctx, uint32_t opcode, const std::string& path,
                         const std::optional<std::string>& value) {
    return Output::resourceJson(opcode, path, value, opcode != 0 ? nameOf(ctx, opcode) : "");
}

// Why a call failed, in words: the library's -1, or one of the service's own codes.
std::string whyFailed(int32_t result) {
    if (result == -1) return "the call failed (-1)";
    if (const char* name = protocol::resultName(result)) {
        return std::string("refused by the service: ") + name + " (" + std::to_string(result) + ")";
    }
    return "result " + std::to_string(result);
}

int failed(Context& ctx, const std::string& what, int32_t result) {
    ctx.out.error(what + ": " + whyFailed(result));
    // An embedded service's own explanation is at hand: show it.
    if (ctx.embedded) {
        for (const std::string& line : serviceLines(ANDROID_LOG_WARN)) {
            ctx.out.error("  service: " + line);
        }
    }
    return kExitFailed;
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

// The --map form: a path-to-value map, a missing value standing as an empty one.
std::map<std::string, std::string> pathMap(const std::vector<ResourceArg>& args) {
    std::map<std::string, std::string> map;
    for (const auto& arg : args) {
        if (!arg.isPath()) throw UsageError{"--map takes paths only"};
        map[arg.path] = arg.value.value_or("");
    }
    return map;
}

// Resources as a result: one line each, or a JSON array.
struct ResourceListing {
    explicit ResourceListing(const Context& context) : ctx(context) {}

    const Context& ctx;
    std::string text;
    Json::Value items{Json::arrayValue};

    void add(uint32_t opcode, const std::string& path, const std::optional<std::string>& value) {
        text += (text.empty() ? "" : "\n") + resourceLine(ctx, opcode, path, value);
        items.append(resourceJson(ctx, opcode, path, value));
    }
};

// Receives listener callbacks and one-shot answers, prints them, and counts them.
class Printer : public velaHalclient::IClientCallback, public velaHalclient::IClientCallbackByPath {
public:
    Printer(Context& ctx, std::string label)
        : mCtx(ctx), mLabel(std::move(label)), mThermal(mLabel == "thermal") {}

    void setHandle(int32_t handle) { mHandle = handle; }
    size_t heard() const { return mHeard; }

    void onCallback(std::list<Resource>& resources) override {
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
    void onCallback(std::vector<std::string> values, std::vector<std::string> paths) override {
        std::string text;
        Json::Value items(Json::arrayValue);
        for (size_t i = 0; i < paths.size() && i < values.size(); ++i) {
            text += "\n  " + paths[i] + " = " + values[i];
            items.append(Output::resourceJson(0, paths[i], values[i], ""));
        }
        print(text, items);
    }

private:
    void print(const std::string& text, const Json::Value& items) {
        Json::Value json;
        json["callback"] = mLabel;
        json["handle"] = mHandle.load();
        json["items"] = items;
        mCtx.out.result("[" + mLabel + " " + std::to_string(mHandle) + " callback]" + text, json);
        ++mHeard;
        mCtx.callbackHeard();
    }

    Context& mCtx;
    const std::string mLabel;
    const bool mThermal;
    std::atomic<int32_t> mHandle{0};
    std::atomic<size_t> mHeard{0};
};

void printHandle(Context& ctx, int32_t handle) {
    Json::Value json;
    json["handle"] = handle;
    ctx.out.result("handle " + std::to_string(handle), json);
}

bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (gInterrupted || std::chrono::steady_clock::now() >= deadline) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// The common end of a request that answers a handle: a failure, or the handle noted for
// $handle and printed.
int reportHandle(Context& ctx, const std::string& what, int32_t handle) {
    if (handle < 1) return failed(ctx, what, handle);
    ctx.lastHandle = handle;
    printHandle(ctx, handle);
    return kExitOk;
}

// A control request's end: report the handle, and with a callback wait (bounded) for the
// service's answer to arrive through it.
int finishRequest(Context& ctx, const std::string& what, int32_t handle, Printer& printer,
                  bool callback, const std::string& timeout) {
    // Before the handle is out, so that an early callback prints under it.
    printer.setHandle(handle);
    if (int rc = reportHandle(ctx, what, handle); rc != kExitOk) return rc;
    if (callback && !waitFor([&] { return printer.heard() > 0; },
                             std::chrono::milliseconds(parseInt(timeout, "timeout")))) {
        ctx.out.error("no answer from the service within " + timeout + " ms");
        return kExitFailed;
    }
    return kExitOk;
}

struct DumpCommand {
    const char* name;
    const char* title;
    int (*call)();
};

const DumpCommand kDumps[] = {
        {"todo", "to-do queue", velaHalclient::velaDumpToDoQueue},
        {"run-map", "run map", velaHalclient::velaDumpRunMap},
        {"active", "active resources", velaHalclient::velaDumpActiveResMap},
        {"requests", "requests", velaHalclient::velaDumpResRequest},
        {"res-info", "resource info", velaHalclient::velaDumpResInfo},
        {"sa-info", "SA info", velaHalclient::velaDumpSAInfo},
        {"pid-fd", "pid fd list", velaHalclient::velaDumpPidFdList},
        {"pidfd-monitor", "pidfd monitor map", velaHalclient::velaDumpPidfdMonitorMap},
        {"records", "record list", velaHalclient::velaDumpResRecordList},
};

std::vector<std::string> dumpNames() {
    std::vector<std::string> names{"all"};
    for (const auto& dump : kDumps) names.push_back(dump.name);
    return names;
}

}  // namespace

// --- Context ----------------------------------------------------------------------------

Context::Context() : config(aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig::builtIn()) {}
Context::~Context() = default;

void Context::callbackHeard() {
    std::lock_guard<std::mutex> lock(mLock);
    ++mCallbacks;
    mHeard.notify_all();
}

size_t Context::callbacksHeard() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mCallbacks;
}

bool Context::awaitCallbacks(size_t total, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mLock);
    return mHeard.wait_for(lock, timeout, [&] { return mCallbacks >= total; });
}

int requireService(Context& ctx) {
    ::ndk::SpAIBinder binder(AServiceManager_checkService(protocol::instanceName().c_str()));
    if (binder.get() != nullptr) return kExitOk;

    const std::string dir = HostBinder_getDirectory();
    const std::string declaredFile = dir + "/declared";
    std::string detail;
    if (const char* problem = HostBinder_directoryProblem()) {
        // Nothing in a directory we cannot trust is looked at, so say that, not "not found".
        ctx.out.error("cannot use " + dir + ": " + problem);
        return kExitNoService;
    }
    if (AServiceManager_isDeclared(protocol::instanceName().c_str())) {
        detail = "it is declared in " + declaredFile + " but nothing serves it now";
    } else if (std::filesystem::exists(declaredFile)) {
        detail = "it is not declared in " + declaredFile;
    } else {
        detail = declaredFile + " does not exist";
    }
    ctx.out.error(std::string("the vela service is not running: looked for ") + protocol::instanceName().c_str() +
                  " in " + dir +
                  (getenv("HOSTBINDER_DIR") ? " ($HOSTBINDER_DIR)"
                                            : " (default; $HOSTBINDER_DIR is unset)") +
                  "; " + detail +
                  ". Start vela-service with the same HOSTBINDER_DIR, or add --embedded.");
    return kExitNoService;
}

// --- Commands ---------------------------------------------------------------------------

Commands::Commands(Context& ctx, Mode mode)
    : mCtx(ctx), mMode(mode), mApp("velactl: drive the resource-control service", "velactl") {
    mApp.require_subcommand(1);
    mApp.fallthrough(false);
    defineLibraryCommands();
    defineToolCommands();
}

CLI::App* Commands::add(const std::string& name, const std::string& help, bool needsService,
                        std::function<int()> run) {
    CLI::App* sub = mApp.add_subcommand(name, help);
    mHandlers[sub] = Handler{needsService, std::move(run)};
    return sub;
}

std::vector<std::string> Commands::names() const {
    std::vector<std::string> out;
    for (const auto* sub : mApp.get_subcommands({})) out.push_back(sub->get_name());
    return out;
}

int Commands::execute(std::vector<std::string> args) {
    // An unknown first word gets the nearest command names, not a generic parse error.
    if (!args.empty() && !args[0].empty() && args[0][0] != '-') {
        const auto known = names();
        if (std::find(known.begin(), known.end(), args[0]) == known.end()) {
            mCtx.out.error("unknown command '" + args[0] + "'" + suggestion(args[0], known) +
                           " (velactl --help lists them)");
            return kExitUnknownName;
        }
    }
    std::reverse(args.begin(), args.end());
    try {
        mApp.parse(args);
    } catch (const CLI::CallForHelp&) {
        std::cout << mApp.help();
        return kExitOk;
    } catch (const CLI::CallForAllHelp&) {
        std::cout << mApp.help("", CLI::AppFormatMode::All);
        return kExitOk;
    } catch (const CLI::ParseError& e) {
        mCtx.out.error(e.what());
        return kExitUnknownName;
    }
    for (const CLI::App* sub : mApp.get_subcommands()) {
        auto it = mHandlers.find(sub);
        if (it == mHandlers.end()) continue;
        try {
            if (it->second.needsService && !mCtx.embedded) {
                if (int rc = requireService(mCtx); rc != kExitOk) return rc;
            }
            clearServiceLines();
            return it->second.run();
        } catch (const UsageError& e) {
            mCtx.out.error(e.message);
            return e.code;
        } catch (const std::exception& e) {
            // The library lets a few standard errors through (a non-numeric answer, say).
            mCtx.out.error(sub->get_name() + ": the library raised " + e.what());
            return kExitFailed;
        }
    }
    return kExitUnknownName;
}

void Commands::defineLibraryCommands() {
    Args& a = mArgs;
    Context& ctx = mCtx;

    // init
    auto* init = add("init",
                     "connect and ask the service to initialise (vela_init, or paxInit "
                     "with --pax)",
                     true, [&] {
                         if (!a.pax) {
                             velaHalclient::vela_init();
                             ctx.out.result("init sent", Json::Value("sent"));
                             return kExitOk;
                         }
                         const int32_t rc = paxInit();
                         if (rc != 0) return failed(ctx, "paxInit", rc);
                         ctx.out.result("paxInit: ok", Json::Value(0));
                         return kExitOk;
                     });
    init->add_flag("--pax", a.pax, "use the Pax event interface (paxInit)");

    // acquire
    auto* acquire = add(
            "acquire",
            "report a usage scenario by action name or event id (PaxEventAcquireWrapper, or "
            "PaxEventAcquire for an id or with resources)",
            true, [&] {
                const auto args = parseResources(a.items, ctx.config, ValueRule::kRequired);
                auto resources = toVector(args, "acquire");
                const int32_t duration = parseInt(a.duration, "duration");
                int32_t event;
                std::string action;
                const bool numeric =
                        !a.target.empty() &&
                        (isdigit(static_cast<unsigned char>(a.target[0])) || a.target[0] == '-');
                if (numeric) {
                    event = parseInt(a.target, "event id");
                    if (event >= 0 && static_cast<size_t>(event) < gActionList.size()) {
                        action = gActionList[event];
                    }
                } else {
                    auto found = findAction(a.target);
                    if (!found) {
                        throw UsageError{"unknown action '" + a.target + "'" +
                                                 suggestion(a.target, gActionList) +
                                                 " (velactl actions lists them)",
                                         kExitUnknownName};
                    }
                    event = *found;
                    action = gActionList[event];
                }
                const bool viaWrapper = !numeric && resources.empty() && a.via != "pax";
                const int32_t handle =
                        viaWrapper ? PaxEventAcquireWrapper("MIRDAL_" + action, a.pkg, a.identity,
                                                            duration)
                                   : PaxEventAcquire(event, a.pkg, a.identity, duration, resources);
                const std::string what =
                        (action.empty() ? "event " + std::to_string(event)
                                        : action + " (event " + std::to_string(event) + ")");
                if (handle < 1) return failed(ctx, "acquire " + what, handle);
                ctx.lastHandle = handle;
                Json::Value json;
                json["action"] = action;
                json["event"] = event;
                json["handle"] = handle;
                json["via"] = viaWrapper ? "wrapper" : "pax";
                ctx.out.result(what + ": handle " + std::to_string(handle) +
                                       (duration > 0 ? ", for " + std::to_string(duration) + " ms"
                                                     : ", until released"),
                               json);
                return kExitOk;
            });
    acquire->add_option("action", a.target, "action name (ACTION_LAUNCH, launch) or event id")
            ->required();
    acquire->add_option("resources", a.items, "extra resources OPCODE=VALUE");
    acquire->add_option("--pkg", a.pkg, "package name");
    acquire->add_option("--identity", a.identity, "identity text");
    acquire->add_option("-d,--duration", a.duration, "duration in ms (0: until released)");
    acquire->add_option("--via", a.via, "force 'pax' (PaxEventAcquire) for a name");

    // res-acquire / platform-acquire
    auto* resAcquire =
            add("res-acquire", "request resources without an event (PaxResAcquire)", true, [&] {
                auto resources = toVector(parseResources(a.items, ctx.config, ValueRule::kRequired),
                                          "res-acquire");
                const int32_t handle = PaxResAcquire(resources, nullptr, a.identity,
                                                     parseInt(a.duration, "duration"));
                return reportHandle(ctx, "res-acquire", handle);
            });
    resAcquire->add_option("resources", a.items, "OPCODE=VALUE ...")->required();
    resAcquire->add_option("--identity", a.identity, "identity text");
    resAcquire->add_option("-d,--duration", a.duration, "duration in ms (0: until released)");

    auto* platform = add(
            "platform-acquire", "request platform resources for a package (PaxPlatformResAcquire)",
            true, [&] {
                auto resources = toVector(parseResources(a.items, ctx.config, ValueRule::kRequired),
                                          "platform-acquire");
                const int32_t handle = PaxPlatformResAcquire(resources, nullptr, a.identity, a.pkg,
                                                             parseInt(a.duration, "duration"));
                return reportHandle(ctx, "platform-acquire", handle);
            });
    platform->add_option("resources", a.items, "OPCODE=VALUE ...")->required();
    platform->add_option("--pkg", a.pkg, "package name");
    platform->add_option("--identity", a.identity, "identity text");
    platform->add_option("-d,--duration", a.duration, "duration in ms (0: until released)");

    // request (opcode or path form, with or without a one-shot callback)
    auto* request = add(
            "request",
            "set resources by opcode (velaResCtlRequest) or by path "
            "(vela_resctl_request_by_path); --callback waits for the service's answer",
            true, [&] {
                const auto args = parseResources(a.items, ctx.config, ValueRule::kRequired);
                const bool paths = allPaths(args);
                const int32_t duration = parseInt(a.duration, "duration");
                auto printer = std::make_shared<Printer>(ctx, "request");
                int32_t handle;
                if (!paths) {
                    auto list = toList(args);
                    handle = a.callback ? velaHalclient::velaResCtlRequest(-1, duration, list, -1,
                                                                           0, 0, printer)
                                        : velaHalclient::velaResCtlRequest(-1, duration, list, -1,
                                                                           0, 0);
                } else {
                    std::vector<std::string> pathList, valueList;
                    for (const auto& arg : args) {
                        pathList.push_back(arg.path);
                        valueList.push_back(*arg.value);
                    }
                    handle = a.callback
                                     ? velaHalclient::vela_resctl_request_with_callback_by_path(
                                               -1, duration, pathList, valueList, -1, 0, 0, printer)
                                     : velaHalclient::vela_resctl_request_by_path(
                                               -1, duration, pathList, valueList, -1, 0, 0);
                }
                return finishRequest(ctx, "request", handle, *printer, a.callback, a.timeout);
            });
    request->add_option("resources", a.items, "OPCODE=VALUE or /PATH=VALUE ...")->required();
    request->add_option("-d,--duration", a.duration, "duration in ms (0: until released)");
    request->add_flag("--callback", a.callback, "ask for the answer through a callback");
    request->add_option("--timeout", a.timeout, "how long to wait for the answer, in ms");

    // sa-request
    auto* sa = add("sa-request", "SA control of one id (velaSACtlRequest)", true, [&] {
        const int32_t id = parseInt(a.target, "SA id");
        const int32_t duration = parseInt(a.duration, "duration");
        auto printer = std::make_shared<Printer>(ctx, "request");
        const int32_t handle =
                a.callback ? velaHalclient::velaSACtlRequest(-1, duration, id, -1, 0, 0, printer)
                           : velaHalclient::velaSACtlRequest(-1, duration, id, -1, 0, 0);
        return finishRequest(ctx, "sa-request", handle, *printer, a.callback, a.timeout);
    });
    sa->add_option("id", a.target, "SA id (an event id)")->required();
    sa->add_option("-d,--duration", a.duration, "duration in ms (0: until released)");
    sa->add_flag("--callback", a.callback, "ask for the answer through a callback");
    sa->add_option("--timeout", a.timeout, "how long to wait for the answer, in ms");

    // release
    auto* release =
            add("release",
                "end a request (velaResCtlRelease; --via sa: velaSACtlRelease, pax: PaxRelease, "
                "wrapper: PaxReleaseWapper)",
                true, [&] {
                    const int32_t handle = parseInt(a.target, "handle");
                    int32_t rc = 0;
                    if (a.via.empty() || a.via == "hal") {
                        rc = velaHalclient::velaResCtlRelease(handle);
                    } else if (a.via == "sa") {
                        rc = velaHalclient::velaSACtlRelease(handle);
                    } else if (a.via == "pax") {
                        PaxRelease(handle);
                    } else if (a.via == "wrapper") {
                        PaxReleaseWapper(handle);
                    } else {
                        throw UsageError{"unknown --via '" + a.via + "'" +
                                                 suggestion(a.via, {"hal", "sa", "pax", "wrapper"}),
                                         kExitUnknownName};
                    }
                    if (rc != 0) return failed(ctx, "release " + a.target, rc);
                    Json::Value json;
                    json["released"] = handle;
                    ctx.out.result("released handle " + std::to_string(handle), json);
                    return kExitOk;
                });
    release->add_option("handle", a.target, "request handle")->required();
    release->add_option("--via", a.via, "hal (default), sa, pax or wrapper");

    // state
    auto* state = add(
            "state",
            "values in force (velaResStateRequest; --pax: PaxMutiResStateRequest, --single: "
            "PaxResStateRequest; paths: vela_res_state_request_by_path, --map: by path map)",
            true, [&] {
                const auto args = parseResources(
                        a.items, ctx.config, a.map ? ValueRule::kOptional : ValueRule::kForbidden);
                if (args.empty()) throw UsageError{"name at least one resource"};
                ResourceListing listing(ctx);
                if (a.map) {
                    std::map<std::string, std::string> out;
                    const int rc = velaHalclient::vela_res_state_request_map_by_path(pathMap(args),
                                                                                     0, out);
                    if (rc < 0) return failed(ctx, "state --map", rc);
                    for (const auto& [path, value] : out) listing.add(0, path, value);
                } else if (allPaths(args)) {
                    const std::vector<std::string> paths = pathsOf(args);
                    std::vector<std::string> out;
                    const int rc = velaHalclient::vela_res_state_request_by_path(paths, {}, 0, out);
                    if (rc < 0) return failed(ctx, "state", rc);
                    for (size_t i = 0; i < paths.size() && i < out.size(); ++i) {
                        listing.add(0, paths[i], out[i]);
                    }
                } else if (a.single) {
                    if (args.size() != 1) throw UsageError{"--single takes exactly one opcode"};
                    std::string out = "\x01";  // tells "left alone" from an empty answer
                    PaxResStateRequest(args[0].opcode, out);
                    if (out == "\x01") return failed(ctx, "state --single", -1);
                    listing.add(args[0].opcode, "", out);
                } else if (a.pax) {
                    auto resources = toVector(args, "state --pax");
                    const int32_t rc = PaxMutiResStateRequest(resources);
                    if (rc < 0) return failed(ctx, "state --pax", rc);
                    for (const auto& r : resources) listing.add(r.id, "", r.value);
                } else {
                    auto request = toList(args);
                    velaHalclient::ResourceList reply;
                    const int rc = velaHalclient::velaResStateRequest(request, 0, reply);
                    if (rc < 0) return failed(ctx, "state", rc);
                    for (const auto& r : reply) listing.add(r.id, "", r.value);
                }
                ctx.out.result(listing.text, listing.items);
                return kExitOk;
            });
    state->add_option("resources", a.items, "OPCODE, NAME or /PATH (PATH=VALUE with --map)")
            ->required();
    state->add_flag("--pax", a.pax, "ask through the Pax event interface");
    state->add_flag("--single", a.single, "one opcode through PaxResStateRequest");
    state->add_flag("--map", a.map, "paths as a path-to-value map");

    // listen / unlisten
    auto* listen = add(
            "listen",
            "hear changes (velaResListeningRegister; paths: vela_res_listening_register_by_path; "
            "--map: by path map; --thermal: velaThermalListeningRegister)",
            true, [&] {
                auto printer = std::make_shared<Printer>(ctx, a.thermal ? "thermal" : "listener");
                int32_t handle;
                std::string on;
                if (a.thermal) {
                    std::vector<int32_t> ids;
                    for (const auto& text : a.items) {
                        ids.push_back(parseInt(text, "thermal subsystem id"));
                        on += " " + text;
                    }
                    handle = velaHalclient::velaThermalListeningRegister(ids, printer);
                } else {
                    const auto args =
                            parseResources(a.items, ctx.config,
                                           a.map ? ValueRule::kOptional : ValueRule::kForbidden);
                    for (const auto& arg : args) {
                        on += " " + describeResource(arg.opcode, arg.path, ctx.config);
                    }
                    if (a.map) {
                        handle = velaHalclient::vela_res_listening_register_map_by_path(
                                pathMap(args), 0, printer);
                    } else if (allPaths(args)) {
                        handle = velaHalclient::vela_res_listening_register_by_path(pathsOf(args),
                                                                                    0, printer);
                    } else {
                        auto list = toList(args);
                        handle = velaHalclient::velaResListeningRegister(list, 0, printer);
                    }
                }
                if (handle < 1) return failed(ctx, "listen", handle);
                printer->setHandle(handle);
                ctx.lastListener = handle;
                Json::Value json;
                json["listener"] = handle;
                json["thermal"] = a.thermal;
                ctx.out.result(std::string(a.thermal ? "thermal listener " : "listener ") +
                                       std::to_string(handle) + " on" + on,
                               json);
                const bool bounded = !a.count.empty() || !a.waitMs.empty();
                if (ctx.scriptMode && !bounded) return kExitOk;  // stays in the background

                // In the foreground: until enough callbacks, the time is up, or Ctrl-C.
                const size_t count = a.count.empty() ? SIZE_MAX : parseInt(a.count, "count");
                const auto wait = std::chrono::milliseconds(
                        a.waitMs.empty() ? (a.count.empty() ? INT32_MAX : 10000)
                                         : parseInt(a.waitMs, "wait"));
                gInterrupted = false;
                auto previous = signal(SIGINT, onInterrupt);
                const bool enough = waitFor([&] { return printer->heard() >= count; }, wait);
                signal(SIGINT, previous);
                if (a.thermal) {
                    velaHalclient::velaThermalListeningUnregister(handle);
                } else {
                    velaHalclient::velaResListeningUnRegister(handle);
                }
                if (!a.count.empty() && !enough) {
                    ctx.out.error("heard " + std::to_string(printer->heard()) + " of " + a.count +
                                  " callbacks");
                    return kExitFailed;
                }
                return kExitOk;
            });
    listen->add_option("resources", a.items, "OPCODE, NAME or /PATH ... (ids with --thermal)")
            ->required();
    listen->add_flag("--thermal", a.thermal, "thermal subsystem ids");
    listen->add_flag("--map", a.map, "paths as a path-to-value map");
    listen->add_option("--count", a.count, "stop after this many callbacks");
    listen->add_option("--wait", a.waitMs, "stop after this many ms");

    auto* unlisten =
            add("unlisten",
                "stop listening (velaResListeningUnRegister; --thermal: "
                "velaThermalListeningUnregister)",
                true, [&] {
                    const int32_t handle = parseInt(a.target, "handle");
                    const int rc = a.thermal ? velaHalclient::velaThermalListeningUnregister(handle)
                                             : velaHalclient::velaResListeningUnRegister(handle);
                    if (rc != 0) return failed(ctx, "unlisten " + a.target, rc);
                    ctx.out.result("listener " + a.target + " removed", Json::Value(handle));
                    return kExitOk;
                });
    unlisten->add_option("handle", a.target, "listener handle")->required();
    unlisten->add_flag("--thermal", a.thermal, "a thermal listener");

    // thermal notify
    auto* thermal = add("thermal", "report thermal levels ID=LEVEL (velaThermalNotify)", true, [&] {
        velaHalclient::ResourceList levels;
        for (const auto& text : a.items) {
            const size_t equals = text.find('=');
            if (equals == std::string::npos || equals + 1 == text.size()) {
                throw UsageError{"'" + text + "': write ID=LEVEL"};
            }
            const int32_t id = parseInt(text.substr(0, equals), "thermal subsystem id");
            levels.push_back(Resource{static_cast<uint32_t>(id), text.substr(equals + 1)});
        }
        const int rc = velaHalclient::velaThermalNotify(levels, 0);
        if (rc != 0) return failed(ctx, "thermal", rc);
        ctx.out.result("thermal levels sent", Json::Value(0));
        return kExitOk;
    });
    thermal->add_option("levels", a.items, "ID=LEVEL ...")->required();

    // notify / notify-source
    auto* notify = add("notify", "send a notification (PaxNotify)", true, [&] {
        std::vector<int32_t> values;
        for (const auto& text : a.items) values.push_back(parseInt(text, "value"));
        const int32_t rc =
                PaxNotify(parseInt(a.target, "command id"), parseInt(a.param, "param"), values);
        if (rc < 0) return failed(ctx, "notify", rc);
        ctx.out.result("notification sent: " + std::to_string(rc), Json::Value(rc));
        return kExitOk;
    });
    notify->add_option("cmd", a.target, "command id")->required();
    notify->add_option("values", a.items, "values");
    notify->add_option("--param", a.param, "second integer of the items");

    auto* source = add(
            "notify-source",
            "a notification by source and type, turned into rules (PaxNotifyWapper)", true, [&] {
                const int32_t src = parseInt(a.target, "source");
                const int32_t type = parseInt(a.second, "type");
                PaxNotifyWapper(a.data, src, type, parseInt(a.level, "level"), 0, 0, a.text);
                ctx.out.result("notification from source " + a.target + " sent", Json::Value(0));
                return kExitOk;
            });
    source->add_option("src", a.target, "source (1-131, 1000, 9000)")->required();
    source->add_option("type", a.second, "type (often 1 on, 0 off)")->required();
    source->add_option("--data", a.data, "data text (target loads, colocation, ...)");
    source->add_option("--level", a.level, "level (game upgrade)");
    source->add_option("--text", a.text, "game text");

    // rule
    auto* rule = add("rule", "switch a rule on or off with its resources (paxRuleCtl)", true, [&] {
        int32_t status;
        if (a.second == "on") {
            status = 1;
        } else if (a.second == "off") {
            status = 0;
        } else {
            status = parseInt(a.second, "rule status (on, off or a number)");
        }
        auto resources =
                toVector(parseResources(a.items, ctx.config, ValueRule::kOptional), "rule");
        const int32_t rc = paxRuleCtl(parseInt(a.target, "rule id"), status, resources);
        if (rc != 0) return failed(ctx, "rule " + a.target, rc);
        ctx.out.result("rule " + a.target + (status != 0 ? " on" : " off"), Json::Value(rc));
        return kExitOk;
    });
    rule->add_option("id", a.target, "rule id")->required();
    rule->add_option("status", a.second, "on, off or a status number")->required();
    rule->add_option("resources", a.items, "OPCODE[=VALUE] ...");

    // sysinfo
    auto* sysinfo =
            add("sysinfo", "pass related system information (setRelatedSysInfo)", true, [&] {
                const int32_t rc =
                        setRelatedSysInfo(parseInt(a.target, "info"), parseLong(a.second, "value"));
                if (rc != 0) return failed(ctx, "sysinfo", rc);
                ctx.out.result("system info sent", Json::Value(rc));
                return kExitOk;
            });
    sysinfo->add_option("info", a.target, "info id")->required();
    sysinfo->add_option("value", a.second, "64-bit value")->required();

    // dump
    auto* dump = add("dump", "make the service write a table to its log (velaDump...)", true, [&] {
        std::vector<const DumpCommand*> chosen;
        for (const auto& name : a.items) {
            bool found = false;
            for (const auto& d : kDumps) {
                if (name == d.name || name == "all") {
                    chosen.push_back(&d);
                    found = true;
                }
            }
            if (!found) {
                throw UsageError{"unknown dump '" + name + "'" + suggestion(name, dumpNames()),
                                 kExitUnknownName};
            }
        }
        Json::Value json(Json::objectValue);
        for (const DumpCommand* d : chosen) {
            clearServiceLines();
            if (d->call() != 0) return failed(ctx, std::string("dump ") + d->name, -1);
            Json::Value lines(Json::arrayValue);
            std::string text;
            if (ctx.embedded) {
                for (const auto& line : serviceLines(ANDROID_LOG_INFO)) {
                    text += "\n" + line;
                    lines.append(line);
                }
            } else {
                text = std::string("\nthe service wrote its ") + d->title +
                       " to its log (vela-service logs to its standard error)";
            }
            json[d->name] = lines;
            ctx.out.note(std::string("== ") + d->title + text);
        }
        if (ctx.out.json()) ctx.out.result("", json);
        return kExitOk;
    });
    dump->add_option("tables", a.items,
                     "all, todo, run-map, active, requests, res-info, sa-info, pid-fd, "
                     "pidfd-monitor, records")
            ->required();

    // history
    auto* history = add(
            "history",
            "history recording on/off (velaHistoryRequestRecordOn/Off) or get (PaxGetHistory)",
            true, [&] {
                if (a.target == "on" || a.target == "off") {
                    const int rc = a.target == "on" ? velaHalclient::velaHistoryRequestRecordOn()
                                                    : velaHalclient::velaHistoryRequestRecordOff();
                    if (rc != 0) return failed(ctx, "history " + a.target, rc);
                    ctx.out.result("history recording " + a.target, Json::Value(a.target));
                    return kExitOk;
                }
                if (a.target != "get") {
                    throw UsageError{"history takes on, off or get" +
                                             suggestion(a.target, {"on", "off", "get"}),
                                     kExitUnknownName};
                }
                std::string out;
                Json::Value records(Json::arrayValue);
                if (PaxGetHistory(out) != 0) {
                    // The library answers the same for "nothing recorded" and for a failure;
                    // the service was reachable a moment ago, so it is most likely the former.
                    ctx.out.result(
                            "no history records (recording is off, or nothing happened "
                            "since it was switched on)",
                            records);
                    return kExitOk;
                }
                // "start:<record>;<record>;end"
                std::string body = out;
                if (body.rfind("start:", 0) == 0) body = body.substr(6);
                if (body.size() >= 4 && body.compare(body.size() - 4, 4, ";end") == 0) {
                    body.resize(body.size() - 4);
                }
                std::string text;
                std::stringstream split(body);
                for (std::string record; std::getline(split, record, ';');) {
                    text += (text.empty() ? "" : "\n") + record;
                    records.append(record);
                }
                ctx.out.result(text, records);
                return kExitOk;
            });
    history->add_option("action", a.target, "on, off or get")->required();

    // prop
    auto* prop = add("prop", "read or write a service property (velaPropertyGet/Set)", true, [&] {
        if (a.target == "get") {
            if (a.items.size() != 1) throw UsageError{"prop get KEY", kExitUnknownName};
            std::unique_ptr<char[]> value(velaHalclient::velaPropertyGet(a.items[0]));
            Json::Value json;
            json[a.items[0]] = value.get();
            ctx.out.result(a.items[0] + " = " + value.get(), json);
            return kExitOk;
        }
        if (a.target == "set") {
            if (a.items.size() != 2) throw UsageError{"prop set KEY VALUE", kExitUnknownName};
            const int rc = velaHalclient::velaPropertySet(a.items[0], a.items[1]);
            if (rc != 0) return failed(ctx, "prop set " + a.items[0], rc);
            ctx.out.result(a.items[0] + " set", Json::Value(rc));
            return kExitOk;
        }
        throw UsageError{"prop takes get or set" + suggestion(a.target, {"get", "set"}),
                         kExitUnknownName};
    });
    prop->add_option("action", a.target, "get or set")->required();
    prop->add_option("args", a.items, "KEY [VALUE]")->required();

    // dataset / power / pm
    add("dataset", "the service's dataset (Pax_fetch_dataset)", true, [&] {
        std::vector<Resource> out;
        const int32_t rc = Pax_fetch_dataset(out);
        if (rc < 0) return failed(ctx, "dataset", rc);
        ResourceListing listing(ctx);
        for (const auto& r : out) listing.add(r.id, "", r.value);
        ctx.out.result(listing.text, listing.items);
        return kExitOk;
    });
    add("power", "power consumption (PaxGetPowerConsis)", true, [&] {
        const int32_t mw = PaxGetPowerConsis();
        ctx.out.result("power consumption: " + std::to_string(mw), Json::Value(mw));
        return kExitOk;
    });
    auto* pm = add("pm", "power-mode status (PaxGetPMStatus)", true, [&] {
        const int32_t status = PaxGetPMStatus(parseInt(a.target, "power mode"));
        if (status < 0) return failed(ctx, "pm " + a.target, status);
        ctx.out.result("power mode " + a.target + ": " + std::to_string(status),
                       Json::Value(status));
        return kExitOk;
    });
    pm->add_option("mode", a.target, "power mode")->required();

    // Scenario list builders: no service needed, except to clear game upgrade mode.
    auto* build =
            add("build",
                "show the resource list a scenario text makes (getTargetLoadList, "
                "getColocationList, getGameAdpList, getGameUpgradeList)",
                false, [&] {
                    std::vector<Resource> list;
                    if (a.target == "target-load") {
                        list = getTargetLoadList(a.second);
                    } else if (a.target == "colocation") {
                        list = getColocationList(a.second);
                    } else if (a.target == "game-adp") {
                        list = getGameAdpList(a.second);
                    } else if (a.target == "game-upgrade") {
                        list = getGameUpgradeList(0, 0, parseInt(a.level, "level"), 0, 0, a.second);
                    } else {
                        throw UsageError{"unknown list '" + a.target + "'" +
                                                 suggestion(a.target, {"target-load", "colocation",
                                                                       "game-adp", "game-upgrade"}),
                                         kExitUnknownName};
                    }
                    ResourceListing listing(ctx);
                    for (const auto& r : list) listing.add(r.id, "", r.value);
                    ctx.out.result(listing.text.empty() ? "(empty list)" : listing.text,
                                   listing.items);
                    return kExitOk;
                });
    build->add_option("kind", a.target, "target-load, colocation, game-adp or game-upgrade")
            ->required();
    build->add_option("text", a.second, "the scenario text");
    build->add_option("--level", a.level, "level (game-upgrade)");

    auto* clear =
            add("game-upgrade-clear", "leave game upgrade mode (clrGameUpgradeMode)", true, [&] {
                clrGameUpgradeMode(parseInt(a.target, "rule id"), parseInt(a.second, "status"));
                ctx.out.result("game upgrade mode cleared", Json::Value(0));
                return kExitOk;
            });
    clear->add_option("rule", a.target, "rule id")->required();
    clear->add_option("status", a.second, "status")->required();
}

void Commands::defineToolCommands() {
    Args& a = mArgs;
    Context& ctx = mCtx;

    auto* actions = add("actions", "list the action table (event id, name, configured scenario)",
                        false, [&] {
                            std::string text;
                            Json::Value rows(Json::arrayValue);
                            for (size_t id = 0; id < gActionList.size(); ++id) {
                                const std::string& name = gActionList[id];
                                if (!a.target.empty() && name.find(a.target) == std::string::npos) {
                                    continue;
                                }
                                const auto* scenario = ctx.config.scenarioFor(id);
                                char line[128];
                                snprintf(line, sizeof(line), "%3zu  %-44s%s", id, name.c_str(),
                                         scenario ? "scenario" : "");
                                text += (text.empty() ? "" : "\n") + std::string(line);
                                Json::Value row;
                                row["event"] = static_cast<Json::UInt>(id);
                                row["action"] = name;
                                row["scenario"] = scenario != nullptr;
                                rows.append(row);
                            }
                            if (rows.empty()) {
                                throw UsageError{"no action matches '" + a.target + "'" +
                                                         suggestion(a.target, gActionList),
                                                 kExitUnknownName};
                            }
                            ctx.out.result(text, rows);
                            return kExitOk;
                        });
    actions->add_option("filter", a.target, "show only names containing this text");

    add("status", "where velactl looks for the service, and whether it answers", false, [&] {
        ::ndk::SpAIBinder binder(AServiceManager_checkService(protocol::instanceName().c_str()));
        const bool running = binder.get() != nullptr;
        const bool declared = AServiceManager_isDeclared(protocol::instanceName().c_str());
        Json::Value json;
        json["directory"] = HostBinder_getDirectory();
        json["instance"] = protocol::instanceName().c_str();
        json["declared"] = declared;
        json["running"] = running;
        json["embedded"] = ctx.embedded != nullptr;
        const char* problem = HostBinder_directoryProblem();
        json["directory_problem"] = problem != nullptr ? Json::Value(problem) : Json::Value();
        ctx.out.result(std::string("service ") + protocol::instanceName().c_str() + "\n  directory " +
                               HostBinder_getDirectory() + (ctx.embedded ? " (embedded)" : "") +
                               (problem != nullptr ? std::string(" (refused: ") + problem + ")"
                                                   : std::string()) +
                               "\n  declared  " + (declared ? "yes" : "no") + "\n  running   " +
                               (running ? "yes" : "no"),
                       json);
        return running ? kExitOk : kExitNoService;
    });

    if (mMode == Mode::kScript) {
        auto* sleep = add("sleep", "pause the script for MS milliseconds", false, [&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(parseInt(a.target, "ms")));
            return kExitOk;
        });
        sleep->add_option("ms", a.target, "milliseconds")->required();
        auto* await =
                add("await", "wait until N callbacks have been heard in this run", false, [&] {
                    const size_t total = parseInt(a.target, "count");
                    if (!ctx.awaitCallbacks(
                                total, std::chrono::milliseconds(parseInt(a.timeout, "timeout")))) {
                        ctx.out.error("heard " + std::to_string(ctx.callbacksHeard()) +
                                      " callbacks, waited for " + a.target);
                        return kExitFailed;
                    }
                    return kExitOk;
                });
        await->add_option("count", a.target, "total callbacks")->required();
        await->add_option("--timeout", a.timeout, "ms");
        auto* echo = add("echo", "print a line", false, [&] {
            std::string text;
            for (const auto& word : a.items) text += (text.empty() ? "" : " ") + word;
            ctx.out.note(text);
            return kExitOk;
        });
        echo->add_option("words", a.items, "text");
        return;
    }

    auto* run =
            add("run", "run commands from FILE (- for standard input), one per line", false, [&] {
                if (a.target == "-") return runScript(ctx, std::cin, "stdin", a.keepGoing);
                std::ifstream in(a.target);
                if (!in) {
                    throw UsageError{"cannot read " + a.target, kExitUnknownName};
                }
                return runScript(ctx, in, a.target, a.keepGoing);
            });
    run->add_option("file", a.target, "script file, or -")->required();
    run->add_flag("-k,--keep-going", a.keepGoing, "go on after a failing line");

    add("demo", "a guided tour against the service (use with --embedded)", true,
        [&] { return runDemo(ctx); });
}

// --- Scripts ----------------------------------------------------------------------------

std::vector<std::string> splitWords(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool inWord = false;
    char quote = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote != 0) {
            if (c == quote) {
                quote = 0;
            } else if (c == '\\' && quote == '"' && i + 1 < line.size()) {
                word += line[++i];
            } else {
                word += c;
            }
        } else if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == '\\' && i + 1 < line.size()) {
            word += line[++i];
            inWord = true;
        } else if (isspace(static_cast<unsigned char>(c))) {
            if (inWord) words.push_back(std::move(word));
            word.clear();
            inWord = false;
        } else if (c == '#' && !inWord) {
            break;  // a comment to the end of the line
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quote != 0) throw UsageError{"unterminated quote", kExitMalformed};
    if (inWord) words.push_back(std::move(word));
    return words;
}

int runScript(Context& ctx, std::istream& in, const std::string& name, bool keepGoing) {
    ctx.scriptMode = true;
    int last = kExitOk;
    size_t number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        std::vector<std::string> words;
        try {
            words = splitWords(line);
        } catch (const UsageError& e) {
            ctx.out.error(name + ":" + std::to_string(number) + ": " + e.message);
            return e.code;
        }
        if (words.empty()) continue;
        for (std::string& word : words) {
            if (word == "$handle") word = std::to_string(ctx.lastHandle);
            if (word == "$listener") word = std::to_string(ctx.lastListener);
        }
        Commands commands(ctx, Commands::Mode::kScript);
        const int rc = commands.execute(words);
        if (rc == kExitOk) continue;
        ctx.out.error(name + ":" + std::to_string(number) + ": '" + line + "' exited with " +
                      std::to_string(rc));
        last = rc;
        if (!keepGoing) return rc;
    }
    return last;
}

}  // namespace velactl
