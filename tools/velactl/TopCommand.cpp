#include "TopCommand.h"

#include <android/log.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

#include "Embedded.h"
#include "NumberOptions.h"
#include "Reporting.h"
#include "ServiceWatch.h"

namespace velactl {

using PaxClient::Resource;

namespace {

constexpr Range kIntervalMs{10, 3600000, "10 to 3600000 ms"};
// The reference service answers its number of active requests under this property; a service
// that does not know it answers an empty text, shown as "not reported".
constexpr const char* kActiveRequestsProperty = "vendor.vela.active_requests";

// --- Waking the refresher ---------------------------------------------------------------

enum class Leave { kStay, kDone, kInterrupted };

// Listener callbacks (binder threads) and the input watcher wake the refresher through here;
// nobody holds the lock while calling into the library.
class Wakeup {
public:
    void changed() {
        std::lock_guard<std::mutex> lock(mLock);
        mChanged = true;
        mWake.notify_all();
    }
    void leave(Leave why) {
        std::lock_guard<std::mutex> lock(mLock);
        if (mLeave == Leave::kStay) mLeave = why;
        mWake.notify_all();
    }
    // Until a change, a reason to leave or `timeout`; the reason to leave, if any.
    Leave wait(std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mLock);
        mWake.wait_for(lock, timeout, [&] { return mChanged || mLeave != Leave::kStay; });
        mChanged = false;
        return mLeave;
    }

private:
    std::mutex mLock;
    std::condition_variable mWake;
    bool mChanged = false;
    Leave mLeave = Leave::kStay;
};

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

// --- The terminal, signals and keys -----------------------------------------------------

// What the signal handler may touch: plain data and async-signal-safe calls only.
int gWakePipe[2] = {-1, -1};
std::atomic<bool> gInLibrary{false};
std::atomic<bool> gTerminalRaw{false};
struct termios gSavedTerminal;
constexpr char kSignalByte = 's';
constexpr char kStopByte = 'x';

void restoreTerminal() {
    if (gTerminalRaw.exchange(false)) tcsetattr(STDIN_FILENO, TCSANOW, &gSavedTerminal);
}

void onSignal(int) {
    // A library call waiting for a vanished service would never return to look at the pipe:
    // leave at once, with the terminal as it was.
    if (gInLibrary.load()) {
        restoreTerminal();
        static const char kMessage[] = "\nvelactl: interrupted\n";
        ssize_t ignored = write(STDERR_FILENO, kMessage, sizeof(kMessage) - 1);
        (void)ignored;
        _exit(kExitInterrupted);
    }
    ssize_t ignored = write(gWakePipe[1], &kSignalByte, 1);
    (void)ignored;
}

// Marks a stretch of library calls for onSignal.
struct InLibrary {
    InLibrary() { gInLibrary = true; }
    ~InLibrary() { gInLibrary = false; }
};

// End of input is an event only where someone can still write: a pipe, a socket or a
// terminal. A regular file or /dev/null is at its end from the start, and `velactl top
// </dev/null` (a service script, say) should keep refreshing rather than leave at once.
bool inputCanEnd() {
    struct stat st = {};
    if (fstat(STDIN_FILENO, &st) != 0) return false;
    return S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode) || isatty(STDIN_FILENO);
}

// While it lives: SIGINT and SIGTERM end the view, the terminal reads single keys without
// echo (when asked), and a thread watches the keys and the end of input.
class Session {
public:
    static std::unique_ptr<Session> start(bool rawKeys, bool watchInput,
                                          std::shared_ptr<Wakeup> wakeup, std::string* error) {
        std::unique_ptr<Session> session(new Session(std::move(wakeup)));
        if (pipe2(gWakePipe, O_CLOEXEC) != 0) {
            *error = std::string("cannot make a pipe: ") + strerror(errno);
            return nullptr;
        }
        struct sigaction action = {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &session->mOldInt);
        sigaction(SIGTERM, &action, &session->mOldTerm);
        if (rawKeys && tcgetattr(STDIN_FILENO, &gSavedTerminal) == 0) {
            struct termios raw = gSavedTerminal;
            raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
            raw.c_cc[VMIN] = 1;
            raw.c_cc[VTIME] = 0;
            gTerminalRaw = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
        }
        session->mThread = std::thread([s = session.get(), watchInput] { s->watch(watchInput); });
        return session;
    }

    ~Session() {
        ssize_t ignored = write(gWakePipe[1], &kStopByte, 1);
        (void)ignored;
        mThread.join();
        restoreTerminal();
        sigaction(SIGINT, &mOldInt, nullptr);
        sigaction(SIGTERM, &mOldTerm, nullptr);
        close(gWakePipe[0]);
        close(gWakePipe[1]);
        gWakePipe[0] = gWakePipe[1] = -1;
    }

private:
    explicit Session(std::shared_ptr<Wakeup> wakeup) : mWakeup(std::move(wakeup)) {}

    void watch(bool watchInput) {
        pollfd fds[2] = {{gWakePipe[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
        const nfds_t count = watchInput ? 2 : 1;
        for (;;) {
            if (poll(fds, count, -1) < 0) {
                if (errno == EINTR) continue;
                return;
            }
            if (fds[0].revents != 0) {
                char byte = 0;
                if (read(gWakePipe[0], &byte, 1) == 1 && byte == kSignalByte) {
                    mWakeup->leave(Leave::kInterrupted);
                }
                return;  // a signal, or the session ending
            }
            if (count == 2 && fds[1].revents != 0) {
                char keys[64];
                const ssize_t n = read(STDIN_FILENO, keys, sizeof(keys));
                if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
                if (n <= 0 || memchr(keys, 'q', static_cast<size_t>(n)) != nullptr) {
                    mWakeup->leave(Leave::kDone);
                    return;
                }
            }
        }
    }

    const std::shared_ptr<Wakeup> mWakeup;
    struct sigaction mOldInt = {};
    struct sigaction mOldTerm = {};
    std::thread mThread;
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
    std::optional<int64_t> activeRequests;
    // An embedded service's request table: its log is velactl's own. A service apart writes
    // the table where velactl cannot read it, so then there is none.
    std::optional<std::vector<std::string>> requests;
};

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
    std::unique_ptr<char[]> count(velaHalclient::velaPropertyGet(kActiveRequestsProperty));
    if (count != nullptr) snap->activeRequests = parseWhole(count.get());
    if (ctx.embedded) {
        clearServiceLines();
        if (velaHalclient::velaDumpResRequest() == 0) {
            auto lines = serviceLines(ANDROID_LOG_INFO);
            // From the table's heading on: what the service logged before is not the table.
            auto heading = std::find(lines.begin(), lines.end(), "requests:");
            if (heading != lines.end()) {
                snap->requests.emplace(std::next(heading), lines.end());
            }
        }
    }
    return kExitOk;
}

std::vector<std::string> textLines(const Snapshot& snap, uint64_t refresh, const std::string& how) {
    std::vector<std::string> lines{"refresh " + std::to_string(refresh) + ": " + how};
    std::istringstream listing(snap.listing.text);
    for (std::string line; std::getline(listing, line);) lines.push_back(line);
    lines.push_back("active requests: " + (snap.activeRequests
                                                   ? std::to_string(*snap.activeRequests)
                                                   : std::string("not reported by the service")));
    if (snap.requests) {
        lines.push_back("requests:");
        for (const auto& line : *snap.requests) lines.push_back(line);
    }
    return lines;
}

Json::Value jsonOf(const Snapshot& snap, uint64_t refresh) {
    Json::Value json(Json::objectValue);
    json["refresh"] = static_cast<Json::UInt64>(refresh);
    json["resources"] = snap.listing.items;
    json["active_requests"] = snap.activeRequests
                                      ? Json::Value(static_cast<Json::Int64>(*snap.activeRequests))
                                      : Json::Value();
    if (snap.requests) {
        Json::Value requests(Json::arrayValue);
        for (const auto& line : *snap.requests) requests.append(line);
        json["requests"] = requests;
    }
    return json;
}

// The lines drawn over the previous screen from its top-left corner, each line and the rest
// of the screen cleared behind it; cut to the window so that nothing scrolls away.
std::string screenOf(std::vector<std::string> lines) {
    struct winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1) {
        if (lines.size() > size.ws_row - 1u) {
            const size_t hidden = lines.size() - (size.ws_row - 2u);
            lines.resize(size.ws_row - 2u);
            lines.push_back("(" + std::to_string(hidden) +
                            " more lines: a taller window, or name the resources)");
        }
        for (auto& line : lines) {
            if (size.ws_col > 0 && line.size() > size.ws_col) line.resize(size.ws_col);
        }
    }
    std::string text = "\x1b[H";
    for (size_t i = 0; i < lines.size(); ++i) text += (i > 0 ? "\x1b[K\n" : "") + lines[i];
    return text + "\x1b[J";
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
            "Shows the values in force and the number of active requests the service reports. "
            "The requests themselves are listed only with --embedded: a service apart writes "
            "its request table to its own log, and the library returns it to no caller. On a "
            "terminal the screen is redrawn in place and q or Ctrl-C leaves; otherwise one "
            "block per refresh is printed until --iterations, Ctrl-C or the end of the input.");
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
    if (auto session = Session::start(rawKeys, rawKeys || inputCanEnd(), wakeup, &error)) {
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
