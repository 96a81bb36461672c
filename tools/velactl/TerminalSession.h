// top's hold on the process and the terminal while it runs: SIGINT and SIGTERM end the view,
// the terminal reads single keys without echo, a thread watches the keys and the end of input,
// and everything is given back as it was on the way out, a signal included.
#pragma once

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velactl {

enum class Leave { kStay, kDone, kInterrupted };

// Listener callbacks (binder threads) and the input watcher wake the refresher through here;
// nobody holds the lock while calling into the library.
class Wakeup {
public:
    void changed();
    void leave(Leave why);
    // Until a change, a reason to leave or `timeout`; the reason to leave, if any.
    Leave wait(std::chrono::milliseconds timeout);

private:
    std::mutex mLock;
    std::condition_variable mWake;
    bool mChanged = false;
    Leave mLeave = Leave::kStay;
};

// Marks a stretch of calls to the service: a signal during one leaves the process at once,
// since a call waiting for a vanished service would never return to look at the signal.
struct InLibrary {
    InLibrary();
    ~InLibrary();
    InLibrary(const InLibrary&) = delete;
    InLibrary& operator=(const InLibrary&) = delete;
};

// End of input is an event only where someone can still write: a pipe, a socket or a terminal.
bool inputCanEnd();

// The lines drawn over the previous screen from its top-left corner, cut to the window.
std::string screenOf(std::vector<std::string> lines);

// One at a time: the signal handler reaches it through process-wide state.
class TerminalSession {
public:
    // Raw keys (single keys, no echo) when `rawKeys`; the watcher reads the input when
    // `watchInput`. Null, with *error saying why, when it cannot start.
    static std::unique_ptr<TerminalSession> start(bool rawKeys, bool watchInput,
                                                  std::shared_ptr<Wakeup> wakeup,
                                                  std::string* error);
    ~TerminalSession();

private:
    explicit TerminalSession(std::shared_ptr<Wakeup> wakeup) : mWakeup(std::move(wakeup)) {}
    void watch(bool watchInput);

    const std::shared_ptr<Wakeup> mWakeup;
    struct sigaction mOldInt = {};
    struct sigaction mOldTerm = {};
    std::thread mThread;
};

}  // namespace velactl
