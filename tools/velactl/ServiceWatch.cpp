#include "ServiceWatch.h"

#include <android/binder_manager.h>
#include <hostbinder/hostbinder.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "vela_protocol.h"

namespace velactl {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

bool serviceRunning() {
    ::ndk::SpAIBinder binder(AServiceManager_checkService(protocol::instanceName().c_str()));
    return binder.get() != nullptr;
}

Ping pingService(std::chrono::milliseconds timeout) {
    struct Shared {
        std::mutex lock;
        std::condition_variable done;
        std::optional<Ping> answer;
    };
    auto shared = std::make_shared<Shared>();
    std::thread([shared] {
        ::ndk::SpAIBinder binder(AServiceManager_checkService(protocol::instanceName().c_str()));
        const Ping answer = binder.get() != nullptr && AIBinder_ping(binder.get()) == STATUS_OK
                                    ? Ping::kAnswered
                                    : Ping::kGone;
        std::lock_guard<std::mutex> lock(shared->lock);
        shared->answer = answer;
        shared->done.notify_all();
    }).detach();
    std::unique_lock<std::mutex> lock(shared->lock);
    if (!shared->done.wait_for(lock, timeout, [&] { return shared->answer.has_value(); })) {
        return Ping::kSilent;
    }
    return *shared->answer;
}

int restartVelactl(Context& ctx) {
    fflush(stdout);
    fflush(stderr);
    std::vector<char*> argv;
    for (std::string& arg : ctx.commandLine) argv.push_back(arg.data());
    argv.push_back(nullptr);
    execv("/proc/self/exe", argv.data());
    ctx.out.error(std::string("cannot start velactl again: ") + strerror(errno));
    return kExitSoftware;
}

DeathWatch::DeathWatch() : mState(std::make_shared<State>()) {
    mBinder = AServiceManager_checkService(protocol::instanceName().c_str());
    if (mBinder == nullptr) return;
    if (!AIBinder_isRemote(mBinder)) {
        AIBinder_decStrong(mBinder);
        mBinder = nullptr;
        return;
    }
    mRecipient = AIBinder_DeathRecipient_new(
            [](void* cookie) { static_cast<State*>(cookie)->died = true; });
    // The state outlives any late notice: the recipient is deleted (which waits for a running
    // notice) before the state can go.
    if (AIBinder_linkToDeath(mBinder, mRecipient, mState.get()) != STATUS_OK) {
        mState->died = true;  // linking fails on a binder that is already dead
    }
}

DeathWatch::~DeathWatch() {
    if (mRecipient != nullptr) {
        AIBinder_unlinkToDeath(mBinder, mRecipient, mState.get());
        AIBinder_DeathRecipient_delete(mRecipient);
    }
    if (mBinder != nullptr) AIBinder_decStrong(mBinder);
}

WaitNotice::WaitNotice(Context& ctx) : mCtx(ctx), mThread([this] { watch(); }) {}

WaitNotice::~WaitNotice() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mDone = true;
    }
    mWake.notify_all();
    mThread.join();
}

void WaitNotice::watch() {
    using namespace std::chrono_literals;
    auto missingSince = std::chrono::steady_clock::time_point::max();
    std::unique_lock<std::mutex> lock(mLock);
    while (!mWake.wait_for(lock, 250ms, [&] { return mDone; })) {
        const auto now = std::chrono::steady_clock::now();
        if (serviceRunning()) {
            missingSince = std::chrono::steady_clock::time_point::max();
        } else if (missingSince == std::chrono::steady_clock::time_point::max()) {
            missingSince = now;
        } else if (now - missingSince >= 1s) {
            mCtx.out.error(std::string("waiting for vela-service (declared in ") +
                           HostBinder_getManifestDirectory() + ")");
            return;
        }
    }
}

}  // namespace velactl
