#include "Hold.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <vector>

#include "CallDeadline.h"
#include "Reporting.h"
#include "ServiceWatch.h"
#include "vela_protocol.h"

namespace velactl {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

const char kHoldHelp[] =
        "\nWithout --duration the request holds while velactl runs: velactl stays, says so on\n"
        "stderr, and Ctrl-C or SIGTERM releases it (exit 0). With -- COMMAND ARGS... it holds\n"
        "for the life of COMMAND and exits with its status (127 when it cannot be started).\n"
        "With a duration velactl stays until the duration is over, as the service ends a\n"
        "request whose process is gone; Ctrl-C releases it sooner.\n";

namespace {

constexpr std::chrono::milliseconds kPastExpiry{200};

// The signal handlers reach the hold through these: one hold at a time per process.
int gWakePipe[2] = {-1, -1};
std::atomic<pid_t> gChild{0};

void onSignal(int signal) {
    // A command gets Ctrl-C from the terminal itself, with velactl; SIGTERM was meant for
    // velactl alone and is passed on, so that the command ends first and the release follows.
    if (const pid_t child = gChild.load(); child > 0) {
        if (signal == SIGTERM) kill(child, SIGTERM);
        return;
    }
    const char byte = 1;
    ssize_t ignored = write(gWakePipe[1], &byte, 1);
    (void)ignored;
}

// SIGINT and SIGTERM wake the hold instead of ending velactl, for as long as one lives.
class SignalWake {
public:
    SignalWake() {
        mOk = pipe2(gWakePipe, O_CLOEXEC | O_NONBLOCK) == 0;
        struct sigaction action = {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &mOldInt);
        sigaction(SIGTERM, &action, &mOldTerm);
    }
    ~SignalWake() {
        sigaction(SIGINT, &mOldInt, nullptr);
        sigaction(SIGTERM, &mOldTerm, nullptr);
        if (mOk) {
            close(gWakePipe[0]);
            close(gWakePipe[1]);
        }
        gWakePipe[0] = gWakePipe[1] = -1;
    }
    SignalWake(const SignalWake&) = delete;
    SignalWake& operator=(const SignalWake&) = delete;

    bool ok() const { return mOk; }
    // True once a signal came, false after `timeoutMs` without one.
    bool wait(int timeoutMs) {
        pollfd ready{gWakePipe[0], POLLIN, 0};
        if (poll(&ready, 1, timeoutMs) <= 0) return false;
        char byte;
        return read(gWakePipe[0], &byte, 1) == 1;
    }

private:
    bool mOk = false;
    struct sigaction mOldInt = {}, mOldTerm = {};
};

// Releases `handle` once the hold is over. A request that is gone already (it expired while a
// command ran) is what the hold wanted anyway.
int release(Context& ctx, int32_t handle) {
    const int32_t rc = velaHalclient::velaResCtlRelease(handle);
    if (rc == protocol::kResultUnknownHandle) return kExitOk;
    if (rc != 0) return failed(ctx, "release " + std::to_string(handle), rc);
    Json::Value json;
    json["released"] = handle;
    ctx.out.result("released handle " + std::to_string(handle), json);
    return kExitOk;
}

// The shells' reading of a status: the exit code, or 128 and the signal that ended it.
int statusCode(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return kExitSoftware;
}

int holdForCommand(Context& ctx, int32_t handle) {
    const std::vector<std::string>& words = ctx.heldCommand;
    // Everything the child touches between fork and exec is made here: the process has binder
    // threads, and the child may only make async-signal-safe calls.
    std::vector<char*> argv;
    for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    int failure[2];
    if (pipe2(failure, O_CLOEXEC) != 0) {
        ctx.out.error(std::string("cannot make a pipe: ") + strerror(errno));
        release(ctx, handle);
        return kExitSoftware;
    }
    SignalWake wake;
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[0], argv.data());
        const int error = errno;
        ssize_t ignored = write(failure[1], &error, sizeof(error));
        (void)ignored;
        _exit(vela_exit::kCannotRun);
    }
    close(failure[1]);
    if (child < 0) {
        close(failure[0]);
        ctx.out.error(std::string("cannot start ") + words[0] + ": " + strerror(errno));
        release(ctx, handle);
        return vela_exit::kCannotRun;
    }
    gChild = child;
    std::optional<DeadlinePause> waitingOnPurpose(std::in_place);  // the command's life
    int error = 0;
    ssize_t got;
    do {
        got = read(failure[0], &error, sizeof(error));
    } while (got < 0 && errno == EINTR);
    close(failure[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    gChild = 0;
    waitingOnPurpose.reset();
    const int released = release(ctx, handle);
    if (got == static_cast<ssize_t>(sizeof(error))) {
        ctx.out.error("cannot run " + clip(words[0], kEchoLimit) + ": " + strerror(error));
        return vela_exit::kCannotRun;
    }
    // The command's status is the answer; a failed release has had its say on stderr.
    (void)released;
    return statusCode(status);
}

}  // namespace

bool holdsRequests(const std::string& command) {
    for (const char* name :
         {"request", "sa-request", "acquire", "res-acquire", "platform-acquire"}) {
        if (command == name) return true;
    }
    return false;
}

int holdRequest(Context& ctx, int32_t handle, int32_t durationMs) {
    if (!ctx.heldCommand.empty()) return holdForCommand(ctx, handle);
    if (ctx.scriptMode) return kExitOk;
    SignalWake wake;
    if (!wake.ok()) {
        ctx.out.error(std::string("cannot wait for a signal: ") + strerror(errno));
        release(ctx, handle);
        return kExitSoftware;
    }
    const std::string holding = "holding handle " + std::to_string(handle);
    ctx.out.error(durationMs > 0 ? holding + " for " + std::to_string(durationMs) +
                                           " ms; Ctrl-C (or SIGTERM) releases it sooner"
                                 : holding + " until Ctrl-C (or SIGTERM) releases it");
    // A timed request also lives no longer than velactl, so velactl waits it out. It stays a
    // little past the duration so that the service ends the request as expired, which is what
    // happened, rather than as left by a gone holder.
    const auto expired =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(durationMs) + kPastExpiry;
    {
        // Holding is velactl waiting on purpose, not a call that hangs; the release after it
        // is bounded again.
        DeadlinePause waitingOnPurpose;
        // A service that dies takes the hold with it: then there is nothing left to wait for.
        DeathWatch death;
        while (!wake.wait(250)) {
            if (death.died()) {
                ctx.out.error("the service died; handle " + std::to_string(handle) + " is gone");
                return kExitUnavailable;
            }
            if (durationMs > 0 && std::chrono::steady_clock::now() >= expired) return kExitOk;
        }
    }
    return release(ctx, handle);
}

}  // namespace velactl
