#include "CallDeadline.h"

#include <unistd.h>

#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "ExitCodes.h"

namespace velactl {

namespace {

using Clock = std::chrono::steady_clock;

struct Watchdog {
    std::mutex lock;
    std::condition_variable wake;
    std::chrono::milliseconds timeout = kDefaultCallTimeout;
    int armed = 0;   // live CallDeadlines
    int paused = 0;  // live DeadlinePauses
    std::string what;
    Clock::time_point deadline = Clock::time_point::max();
    DeadlineExit leave = nullptr;
    bool started = false;

    // Called with the lock held, whenever what counts may have changed.
    void restart() {
        deadline = armed > 0 && paused == 0 ? Clock::now() + timeout : Clock::time_point::max();
        if (!started) {
            started = true;
            // Lives as long as the process: velactl leaves by _exit, never by returning.
            std::thread([this] { watch(); }).detach();
        }
        wake.notify_all();
    }

    void watch() {
        std::unique_lock<std::mutex> held(lock);
        for (;;) {
            if (deadline == Clock::time_point::max()) {
                wake.wait(held);
                continue;
            }
            if (wake.wait_until(held, deadline) == std::cv_status::no_timeout) continue;
            if (Clock::now() < deadline) continue;
            const std::string message = "velactl: " + what +
                                        ": the service did not answer within " +
                                        describeTimeout(timeout) +
                                        " (it is running but not answering: stopped or stuck; "
                                        "--timeout SECONDS waits longer)\n";
            const DeadlineExit out = leave;
            held.unlock();
            ssize_t ignored = write(STDERR_FILENO, message.data(), message.size());
            (void)ignored;
            if (out != nullptr) out(vela_exit::kUnavailable);
            _exit(vela_exit::kUnavailable);
        }
    }
};

Watchdog& watchdog() {
    static Watchdog* dog = new Watchdog;  // never destroyed: its thread outlives main
    return *dog;
}

}  // namespace

void setCallTimeout(std::chrono::milliseconds timeout) {
    std::lock_guard<std::mutex> lock(watchdog().lock);
    watchdog().timeout = timeout;
}

std::chrono::milliseconds callTimeout() {
    std::lock_guard<std::mutex> lock(watchdog().lock);
    return watchdog().timeout;
}

bool parseTimeoutSeconds(const std::string& text, std::chrono::milliseconds* out) {
    if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos) return false;
    char* end = nullptr;
    const double seconds = strtod(text.c_str(), &end);
    if (end == nullptr || *end != '\0' || !std::isfinite(seconds)) return false;
    const double ms = std::round(seconds * 1000);
    if (ms < 1 || ms > 86400000) return false;
    *out = std::chrono::milliseconds(static_cast<int64_t>(ms));
    return true;
}

std::string describeTimeout(std::chrono::milliseconds timeout) {
    const long long ms = timeout.count();
    std::string text = std::to_string(ms / 1000);
    if (ms % 1000 != 0) {
        std::string fraction = std::to_string(1000 + ms % 1000).substr(1);
        while (fraction.back() == '0') fraction.pop_back();
        text += "." + fraction;
    }
    return text + " s";
}

void setDeadlineExit(DeadlineExit leave) {
    std::lock_guard<std::mutex> lock(watchdog().lock);
    watchdog().leave = leave;
}

CallDeadline::CallDeadline(std::string what) {
    Watchdog& dog = watchdog();
    std::lock_guard<std::mutex> lock(dog.lock);
    mOuter = std::move(dog.what);
    dog.what = std::move(what);
    ++dog.armed;
    dog.restart();
}

CallDeadline::~CallDeadline() {
    Watchdog& dog = watchdog();
    std::lock_guard<std::mutex> lock(dog.lock);
    dog.what = std::move(mOuter);
    --dog.armed;
    dog.restart();
}

DeadlinePause::DeadlinePause() {
    Watchdog& dog = watchdog();
    std::lock_guard<std::mutex> lock(dog.lock);
    ++dog.paused;
    dog.restart();
}

DeadlinePause::~DeadlinePause() {
    Watchdog& dog = watchdog();
    std::lock_guard<std::mutex> lock(dog.lock);
    --dog.paused;
    dog.restart();
}

}  // namespace velactl
