// The bound on velactl's calls to the service: no command waits for ever on a service that is
// stopped or stuck.
//
// The library's calls block in binder until the service answers, and nothing can cancel a
// transaction from outside it: a service under SIGSTOP takes the request into its socket and
// never replies. A timer around each call is therefore the only robust bound. A watchdog thread
// keeps the deadline; when a call outlives it, the watchdog says which call did not answer and
// ends the process. Ending is the only sound way out: the blocked thread holds the library's
// locks and its connection, so nothing in this process could use the service again, and an
// exception cannot be raised into a thread that sits in a system call.
#pragma once

#include <chrono>
#include <string>

namespace velactl {

// Like dumpsys: long enough for a busy service, short enough for a person at a terminal.
constexpr std::chrono::milliseconds kDefaultCallTimeout{5000};

// The time every call is given (the default until set).
void setCallTimeout(std::chrono::milliseconds timeout);
std::chrono::milliseconds callTimeout();
// "2", "0.5": seconds, at most a day, above zero. False for anything else.
bool parseTimeoutSeconds(const std::string& text, std::chrono::milliseconds* out);
// "5 s", "0.5 s": a timeout as the messages say it.
std::string describeTimeout(std::chrono::milliseconds timeout);

// Run on the watchdog's thread, after its message, to leave the process with `code` (velactl's
// own way out: it closes a timeline and removes an embedded service's directory).
using DeadlineExit = void (*)(int code);
void setDeadlineExit(DeadlineExit leave);

// While one lives the calls made are bounded; `what` names them in the message ("state",
// "listen: velaResListeningRegister"). Nested ones name the innermost call.
class CallDeadline {
public:
    explicit CallDeadline(std::string what);
    ~CallDeadline();
    CallDeadline(const CallDeadline&) = delete;
    CallDeadline& operator=(const CallDeadline&) = delete;

private:
    std::string mOuter;
};

// While one lives velactl waits on purpose (for callbacks, a sleep, a key): the clock stops,
// and starts afresh for the calls after it.
class DeadlinePause {
public:
    DeadlinePause();
    ~DeadlinePause();
    DeadlinePause(const DeadlinePause&) = delete;
    DeadlinePause& operator=(const DeadlinePause&) = delete;
};

}  // namespace velactl
