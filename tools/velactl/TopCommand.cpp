#include "TopCommand.h"

#include <json/json.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

#include "CallDeadline.h"
#include "Interrupt.h"
#include "NumberOptions.h"
#include "Reporting.h"
#include "ServiceDumpReader.h"
#include "ServiceWatch.h"
#include "TerminalSession.h"
#include "WallClock.h"

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
    void onCallback(std::list<Resource>&) override { note(); }
    void onCallback(std::vector<std::string>, std::vector<std::string>) override { note(); }
    // A change was heard since the last call.
    bool takeChange() { return mChanged.exchange(false); }

private:
    void note() {
        mChanged = true;
        mWakeup->changed();
    }

    const std::shared_ptr<Wakeup> mWakeup;
    std::atomic<bool> mChanged{false};
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

// How old the frame on show is when the service stopped answering; empty while it answers.
struct Staleness {
    bool stale = false;
    std::chrono::milliseconds age{0};
};

std::string secondsText(std::chrono::milliseconds ms) {
    return std::to_string(ms.count() / 1000) + "." + std::to_string(ms.count() % 1000 / 100) + " s";
}

std::vector<std::string> textLines(const Snapshot* snap, uint64_t refresh, const std::string& how,
                                   const WallClock& at, const Staleness& staleness) {
    std::vector<std::string> lines{"refresh " + std::to_string(refresh) + " at " + at.iso + ": " +
                                   how};
    if (staleness.stale) {
        lines.push_back("STALE: the service has not answered for " + secondsText(staleness.age) +
                        (snap != nullptr ? "; the values below are from before" : ""));
    }
    if (snap == nullptr) return lines;
    std::istringstream listing(snap->listing.text);
    for (std::string line; std::getline(listing, line);) lines.push_back(line);
    if (snap->requests.isNull()) {
        lines.push_back("requests: not reported by the service");
        return lines;
    }
    lines.push_back("requests (" + std::to_string(snap->requests.size()) + "):");
    for (const Json::Value& row : snap->requests) lines.push_back(requestLine(row));
    return lines;
}

Json::Value jsonOf(const Snapshot* snap, uint64_t refresh, const WallClock& at,
                   const Staleness& staleness) {
    Json::Value json(Json::objectValue);
    json["refresh"] = static_cast<Json::UInt64>(refresh);
    at.stamp(&json);
    json["stale"] = staleness.stale;
    if (staleness.stale) json["stale_ms"] = static_cast<Json::Int64>(staleness.age.count());
    json["resources"] = snap != nullptr ? snap->listing.items : Json::Value(Json::arrayValue);
    json["requests"] = snap != nullptr ? snap->requests : Json::Value();
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

// One read of the service in flight at a time, on a thread of its own: a stopped service
// holds that thread, while the view goes on answering keys and says how old its frame is.
struct Fetch {
    std::mutex lock;
    bool done = false;
    int rc = kExitOk;
    std::unique_ptr<Snapshot> snap;
    std::vector<int32_t> handles;  // the listeners, when this read registered them
};

std::shared_ptr<Fetch> startFetch(Context& ctx, const Shown& shown,
                                  const std::shared_ptr<ChangeListener>& listener,
                                  const std::shared_ptr<Wakeup>& wakeup, bool registerFirst) {
    auto fetch = std::make_shared<Fetch>();
    // The thread owns copies of all it reads; the context lives until velactl leaves.
    std::thread([fetch, &ctx, shown = Shown(shown), listener, wakeup, registerFirst]() mutable {
        std::vector<int32_t> handles;
        if (registerFirst) handles = registerListeners(shown, listener);
        auto snap = std::make_unique<Snapshot>(ctx);
        const int rc = takeSnapshot(ctx, shown, snap.get());
        {
            std::lock_guard<std::mutex> lock(fetch->lock);
            fetch->done = true;
            fetch->rc = rc;
            fetch->snap = std::move(snap);
            fetch->handles = std::move(handles);
        }
        wakeup->changed();
    }).detach();
    return fetch;
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
    app.add_flag("--follow", o.follow,
                 "when the service dies, wait for it and show the new one (without it velactl "
                 "exits 69)");
    app.footer(
            "Shows the values in force and the service's active requests (handle, action, "
            "package, time left), read from its requests table through the binder dump hook; "
            "for a service that does not answer it, \"requests: not reported by the service\". "
            "Requests that change no value show at the next interval. On a terminal the screen "
            "is redrawn in place and q or Ctrl-C leaves; otherwise one block per refresh is "
            "printed until --iterations, Ctrl-C or the end of the input. Each frame carries its "
            "time; "
            "when the service stops answering (velactl --timeout, default 5 s) the last frame is "
            "shown as STALE with its age, and q still leaves.");
}

int runTop(Context& ctx, TopOptions& o) {
    using Clock = std::chrono::steady_clock;
    Shown shown = shownResources(ctx, o);
    const bool onScreen = isatty(STDOUT_FILENO) != 0;
    const bool rawKeys = onScreen && isatty(STDIN_FILENO) != 0;
    auto wakeup = std::make_shared<Wakeup>();
    auto listener = std::make_shared<ChangeListener>(wakeup);
    DeathWatch death;
    const std::chrono::milliseconds interval(o.intervalMs);
    const std::chrono::milliseconds timeout = callTimeout();
    // A stale frame is drawn again as it ages, no more than once a second.
    const std::chrono::milliseconds staleEvery =
            std::max(interval, std::chrono::milliseconds(1000));

    int rc = kExitOk;
    bool follow = false;
    std::vector<int32_t> handles;
    bool registered = false;
    std::string how;
    std::unique_ptr<Snapshot> shownSnap;
    Clock::time_point shownAt = Clock::now();
    std::shared_ptr<Fetch> fetch;
    Clock::time_point fetchStarted{};
    Clock::time_point nextFetch = Clock::now();
    Clock::time_point nextStale = Clock::time_point::max();
    uint64_t refresh = 0;
    bool changeHeard = false;
    std::string error;
    {
        // The view bounds its own reads (a frame goes stale rather than the process ending).
        DeadlinePause ownClock;
        auto session = TerminalSession::start(rawKeys, rawKeys || inputCanEnd(), wakeup, &error);
        if (!session) {
            ctx.out.error("top: " + error);
            return kExitSoftware;
        }
        for (;;) {
            if (death.died()) {
                if (o.follow) {
                    follow = true;
                    break;
                }
                ctx.out.error("top: the service died");
                rc = kExitUnavailable;
                break;
            }
            Clock::time_point now = Clock::now();
            // A change heard while a read is out may have come after it: it asks for one more.
            if (listener->takeChange()) changeHeard = true;
            if (!fetch && (now >= nextFetch || changeHeard)) {
                changeHeard = false;
                fetch = startFetch(ctx, shown, listener, wakeup, !registered);
                fetchStarted = now;
                nextStale = now + timeout;
            }
            bool drawn = false;
            Staleness staleness;
            std::unique_ptr<Snapshot> fresh;
            int fetchRc = kExitOk;
            bool fetched = false;
            if (fetch) {
                std::lock_guard<std::mutex> lock(fetch->lock);
                if (fetch->done) {
                    fetched = true;
                    fetchRc = fetch->rc;
                    fresh = std::move(fetch->snap);
                    if (!registered) {
                        registered = true;
                        handles = fetch->handles;
                    }
                }
            }
            if (fetched) {
                fetch.reset();
                if (fetchRc != kExitOk) {
                    if (o.follow && !death.died()) {
                        // A read that failed as the service went: let the death be seen.
                        wakeup->wait(std::chrono::milliseconds(200));
                        if (death.died()) continue;
                    }
                    rc = fetchRc;
                    break;
                }
                bool listening = !handles.empty();
                for (int32_t handle : handles) listening = listening && handle > 0;
                const std::string every = "every " + std::to_string(o.intervalMs) + " ms";
                how = (listening
                               ? "on change and " + every
                               : every + " (the service refused a listener: changes wait for it)") +
                      (rawKeys ? "; q leaves" : "");
                shownSnap = std::move(fresh);
                shownAt = now;
                nextFetch = now + interval;
                nextStale = Clock::time_point::max();
                drawn = true;
            } else if (fetch && now >= nextStale) {
                staleness.stale = true;
                staleness.age =
                        std::chrono::duration_cast<std::chrono::milliseconds>(now - fetchStarted);
                nextStale = now + staleEvery;
                drawn = true;
            }
            if (drawn) {
                ++refresh;
                const WallClock at = WallClock::now();
                const auto lines =
                        textLines(shownSnap.get(), refresh,
                                  how.empty() ? "waiting for the service" : how, at, staleness);
                std::string text;
                if (onScreen && !ctx.out.json()) {
                    text = screenOf(lines);
                } else {
                    for (const auto& line : lines) text += line + "\n";
                }
                ctx.out.result(text, jsonOf(shownSnap.get(), refresh, at, staleness));
                if (o.iterations > 0 && refresh >= static_cast<uint64_t>(o.iterations)) {
                    if (staleness.stale) {
                        ctx.out.error("top: the service did not answer within " +
                                      describeTimeout(timeout));
                        rc = kExitUnavailable;
                    }
                    break;
                }
            }
            const Clock::time_point until = fetch         ? nextStale
                                            : changeHeard ? Clock::now()
                                                          : nextFetch;
            now = Clock::now();
            const auto wait =
                    until > now
                            ? std::chrono::duration_cast<std::chrono::milliseconds>(until - now) +
                                      std::chrono::milliseconds(1)
                            : std::chrono::milliseconds(1);
            const Leave leave = wakeup->wait(wait);
            if (leave != Leave::kStay) {
                rc = leave == Leave::kDone ? kExitOk : kExitInterrupted;
                break;
            }
        }
    }
    if (follow) {
        ctx.out.error("top: the service died; waiting for it to return");
        InterruptScope scope;
        waitFor(serviceRunning, std::chrono::milliseconds(INT32_MAX));
        if (interrupted()) return kExitInterrupted;
        // The library still holds the dead service's listeners: a fresh velactl starts clean.
        return restartVelactl(ctx);
    }
    // With the service gone the library would wait for it to come back (see listen); with a
    // read still out, the service is not answering and the listeners go with the process.
    if (!fetch && !death.died() && serviceRunning()) {
        CallDeadline bounded("top: velaResListeningUnRegister");
        for (int32_t handle : handles) {
            if (handle > 0) velaHalclient::velaResListeningUnRegister(handle);
        }
    }
    return rc;
}

}  // namespace velactl
