#include "Context.h"

#include "CallDeadline.h"
#include "Embedded.h"

namespace velactl {

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
    DeadlinePause waitingOnPurpose;
    std::unique_lock<std::mutex> lock(mLock);
    return mHeard.wait_for(lock, timeout, [&] { return mCallbacks >= total; });
}

}  // namespace velactl
