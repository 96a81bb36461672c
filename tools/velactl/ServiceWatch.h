// Watching the service from the tool's side: whether it is there now, its death while a
// command waits on it, and a word to the user when a call sits waiting for it.
#pragma once

#include <android/binder_ibinder.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "Context.h"

namespace velactl {

// The service answers in the directory velactl looks in (never waits).
bool serviceRunning();

// Whether the service answers a ping within `timeout`. The ping runs on a thread of its own,
// left behind when the service is silent: a stopped service would hold it for ever.
enum class Ping { kAnswered, kSilent, kGone };
Ping pingService(std::chrono::milliseconds timeout);

// Starts velactl again with its own command line (listen and top --follow, once the service is
// back: the library still holds what belonged to the dead service); the exit code if it cannot.
int restartVelactl(Context& ctx);

// Notes the death of the service as it is now. Without a service (or with one in this
// process, which cannot die apart from velactl) nothing is ever noted.
class DeathWatch {
public:
    DeathWatch();
    ~DeathWatch();
    bool died() const { return mState->died; }

private:
    struct State {
        std::atomic<bool> died{false};
    };
    std::shared_ptr<State> mState;
    AIBinder* mBinder = nullptr;
    AIBinder_DeathRecipient* mRecipient = nullptr;
};

// While alive, prints "waiting for vela-service (declared in ...)" once, should the service be
// missing for a second on end.
class WaitNotice {
public:
    explicit WaitNotice(Context& ctx);
    ~WaitNotice();

private:
    void watch();

    Context& mCtx;
    std::mutex mLock;
    std::condition_variable mWake;
    bool mDone = false;
    std::thread mThread;
};

}  // namespace velactl
