#include "TopCommand.h"

#include <json/json.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <list>
#include <memory>
#include <optional>
#include <sstream>

#include "NumberOptions.h"
#include "Reporting.h"
#include "ServiceDumpReader.h"
#include "ServiceWatch.h"
#include "TerminalSession.h"

namespace velactl {

using PaxClient::Resource;

namespace {

constexpr Range kIntervalMs{10, 3600000, "10 to 3600000 ms"};

// Every callback only says "something changed": the refresh reads all values afresh, so a
// callback that arrives late or twice costs one extra read and never shows a stale value.
class ChangeListener : public velaHalclient::IClientCallback,
                       public velaHalclient::IClientCallbackByPath {
public:
    explicit ChangeListener(std::shared_ptr<Wakeup> wakeup) : mWakeup(std::move(wakeup)) {}
    void onCallback(std::list<Resource>&) override { mWakeup->changed(); }
    void onCallback(std::vector<std::string>, std::vector<std::string>) override {
        mWakeup->changed();
    }

private:
    const std::shared_ptr<Wakeup> mWakeup;
};

// --- What is shown ----------------------------------------------------------------------

struct Shown {
    velaHalclient::ResourceList opcodes;  // values left empty: a query
    std::vector<std::string> paths;
};

Shown shownResources(const Context& ctx, const TopOptions& o) {
    Shown shown;
    if (o.resources.empty()) {
        for (const auto& info : ctx.config.resources()) {
            if (info.key.isPath()) {
                shown.paths.push_back(info.key.path);
            } else {
                shown.opcodes.push_back(Resource{info.key.opcode, std::nullopt});
            }
        }
        if (shown.opcodes.empty() && shown.paths.empty()) {
            throw UsageError{"the configuration names no resources: name them", kExitUsage};
        }
    }
    for (const auto& arg : parseResources(o.resources, ctx.config, ValueRule::kForbidden)) {
        if (arg.isPath()) {
            shown.paths.push_back(arg.path);
        } else {
            shown.opcodes.push_back(Resource{arg.opcode, std::nullopt});
        }
    }
    checkItemCount(shown.opcodes.size(), "resources");
    checkItemCount(shown.paths.size(), "paths");
    return shown;
}

struct Snapshot {
    explicit Snapshot(const Context& ctx) : listing(ctx) {}
    ResourceListing listing;
    // The service's rows of its requests table; null when it does not answer the dump.
    Json::Value requests;
};

// The requests table as the service gives it to a dump, or null: a service of another make
// may have no dump hook or other tables, and top then says the requests are not reported.
Json::Value requestsOfService() {
    std::string error;
    const auto dump = readServiceDump({"--json", "requests"}, &error);
    if (!dump || dump->status != STATUS_OK || dump->cut) return Json::Value();
    Json::Value doc;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    const char* text = dump->text.data();
    if (!reader->parse(text, text + dump->text.size(), &doc, nullptr) || !doc.isObject() ||
        !doc["requests"].isArray()) {
        return Json::Value();
    }
    return doc["requests"];
}

// One line per request. Every member is checked before use: a row is what the service sent,
// and a member of an unexpected type must not end the view.
std::string requestLine(const Json::Value& row) {
    auto text = [&](const char* key) {
        const Json::Value& v = row.isObject() ? row[key] : Json::Value::nullSingleton();
        return v.isString() || v.isNumeric() ? v.asString() : std::string();
    };
    std::string what = text("action");
    if (what.empty() && !text("event").empty()) what = "event " + text("event");
    if (what.empty()) what = text("kind");
    const std::string package = text("package");
    const std::string msLeft = text("ms_left");
    return "  handle " + text("handle") + " " + what + " pkg " +
           (package.empty() ? "none" : package) + ", " +
           (msLeft.empty() ? "until released" : msLeft + " ms left");
}

// Reads everything shown; kExitOk, or the failure's exit code once it has been reported.
int takeSnapshot(Context& ctx, Shown& shown, Snapshot* snap) {
    InLibrary marked;
    if (!shown.opcodes.empty()) {
        velaHalclient::ResourceList reply;
        const int rc = velaHalclient::velaResStateRequest(shown.opcodes, 0, reply);
        if (rc < 0) return failed(ctx, "top", rc);
        for (const Resource& r : reply) snap->listing.add(r.id, "", r.value);
    }
    if (!shown.paths.empty()) {
        std::vector<std::string> out;
        const int rc = velaHalclient::vela_res_state_request_by_path(shown.paths, {}, 0, out);
        if (rc < 0) return failed(ctx, "top", rc);
        for (size_t i = 0; i < shown.paths.size() && i < out.size(); ++i) {
            snap->listing.add(0, shown.paths[i], out[i]);
        }
    }
    snap->requests = requestsOfService();
    return kExitOk;
}

std::vector<std::string> textLines(const Snapshot& snap, uint64_t refresh, const std::string& how) {
    std::vector<std::string> lines{"refresh " + std::to_string(refresh) + ": " + how};
    std::istringstream listing(snap.listing.text);
    for (std::string line; std::getline(listing, line);) lines.push_back(line);
    if (snap.requests.isNull()) {
        lines.push_back("requests: not reported by the service");
        return lines;
    }
    lines.push_back("requests (" + std::to_string(snap.requests.size()) + "):");
    for (const Json::Value& row : snap.requests) lines.push_back(requestLine(row));
    return lines;
}

Json::Value jsonOf(const Snapshot& snap, uint64_t refresh) {
    Json::Value json(Json::objectValue);
    json["refresh"] = static_cast<Json::UInt64>(refresh);
    json["resources"] = snap.listing.items;
    json["requests"] = snap.requests;
    return json;
}

std::vector<int32_t> registerListeners(Shown& shown,
                                       const std::shared_ptr<ChangeListener>& listener) {
    InLibrary marked;
    std::vector<int32_t> handles;
    if (!shown.opcodes.empty()) {
        handles.push_back(velaHalclient::velaResListeningRegister(shown.opcodes, 0, listener));
    }
    if (!shown.paths.empty()) {
        handles.push_back(
                velaHalclient::vela_res_listening_register_by_path(shown.paths, 0, listener));
    }
    return handles;
}

}  // namespace

void bindTop(CLI::App& app, TopOptions& o) {
    app.add_option("RESOURCE", o.resources,
                   "OPCODE, NAME or /PATH to show (default: every resource the configuration "
                   "names)")
            ->type_name("");
    addNumber(app, "--interval", o.intervalMs,
              "refresh at least this often, in ms (changes refresh at once)", kIntervalMs, "MS");
    addNumber(app, "--iterations", o.iterations, "leave after this many refreshes", kPositive, "N");
    app.footer(
            "Shows the values in force and the service's active requests (handle, action, "
            "package, time left), read from its requests table through the binder dump hook; "
            "for a service that does not answer it, \"requests: not reported by the service\". "
            "Requests that change no value show at the next interval. On a terminal the screen "
            "is redrawn in place and q or Ctrl-C leaves; otherwise one block per refresh is "
            "printed until --iterations, Ctrl-C or the end of the input.");
}

int runTop(Context& ctx, TopOptions& o) {
    Shown shown = shownResources(ctx, o);
    const bool onScreen = isatty(STDOUT_FILENO) != 0;
    const bool rawKeys = onScreen && isatty(STDIN_FILENO) != 0;
    auto wakeup = std::make_shared<Wakeup>();
    auto listener = std::make_shared<ChangeListener>(wakeup);
    DeathWatch death;

    std::vector<int32_t> handles = registerListeners(shown, listener);
    bool listening = true;
    for (int32_t handle : handles) listening = listening && handle > 0;
    const std::string every = "every " + std::to_string(o.intervalMs) + " ms";
    const std::string how =
            (listening ? "on change and " + every
                       : every + " (the service refused a listener: changes wait for it)") +
            (rawKeys ? "; q leaves" : "");

    int rc = kExitOk;
    std::string error;
    if (auto session = TerminalSession::start(rawKeys, rawKeys || inputCanEnd(), wakeup, &error)) {
        for (uint64_t refresh = 1;; ++refresh) {
            if (death.died()) {
                ctx.out.error("top: the service died");
                rc = kExitUnavailable;
                break;
            }
            Snapshot snap(ctx);
            if (rc = takeSnapshot(ctx, shown, &snap); rc != kExitOk) break;
            const auto lines = textLines(snap, refresh, how);
            std::string text;
            if (onScreen && !ctx.out.json()) {
                text = screenOf(lines);
            } else {
                for (const auto& line : lines) text += line + "\n";
            }
            ctx.out.result(text, jsonOf(snap, refresh));
            if (o.iterations > 0 && refresh >= static_cast<uint64_t>(o.iterations)) break;
            const Leave leave = wakeup->wait(std::chrono::milliseconds(o.intervalMs));
            if (leave != Leave::kStay) {
                rc = leave == Leave::kDone ? kExitOk : kExitInterrupted;
                break;
            }
        }
    } else {
        ctx.out.error("top: " + error);
        rc = kExitSoftware;
    }
    // With the service gone the library would wait for it to come back (see listen).
    if (!death.died() && serviceRunning()) {
        for (int32_t handle : handles) {
            if (handle > 0) velaHalclient::velaResListeningUnRegister(handle);
        }
    }
    return rc;
}

}  // namespace velactl
