#include "ListenerRegistry.h"

#include <android/binder_ibinder.h>
#include <android/log.h>

#include <algorithm>
#include <map>

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

namespace {

// Death links of listener callbacks, by token. A token rather than a pointer is the cookie, so
// a death that races with an unregistration or with the service going away finds nothing
// instead of a freed object. Lock order: gLinksLock, then a service's lock; never the other
// way round.
std::mutex gLinksLock;
std::map<uint64_t, ListenerRegistry*> gLinks;
uint64_t gNextLink = 1;

void* cookieOf(uint64_t link) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(link));
}

}  // namespace

ListenerRegistry::ListenerRegistry(ServiceState& state, std::mutex& lock)
    : mState(state),
      mLock(lock),
      mDeathRecipient(AIBinder_DeathRecipient_new(&ListenerRegistry::onClientDied)),
      mDeliveries(std::make_unique<DeliveryQueues>(
              [this](const Delivery& delivery) { deliver(delivery); })) {}

ListenerRegistry::~ListenerRegistry() {
    mDeliveries.reset();
    {
        std::lock_guard<std::mutex> links(gLinksLock);
        for (auto it = gLinks.begin(); it != gLinks.end();) {
            it = it->second == this ? gLinks.erase(it) : std::next(it);
        }
    }
    // Deleting the recipient unlinks it from every callback it watches.
    mDeathRecipient = ::ndk::ScopedAIBinder_DeathRecipient();
}

int32_t ListenerRegistry::add(Listener listener, const char* what) {
    if (listener.callback == nullptr) {
        std::lock_guard<std::mutex> lock(mLock);
        return mState.reject(kResultBadRequest, std::string(what) + " without a callback");
    }
    listener.pid = callingPid();

    uint64_t link;
    {
        std::lock_guard<std::mutex> links(gLinksLock);
        link = gNextLink++;
        gLinks[link] = this;
    }
    ::ndk::SpAIBinder binder = listener.callback->asBinder();
    binder_status_t linked =
            AIBinder_linkToDeath(binder.get(), mDeathRecipient.get(), cookieOf(link));
    if (linked != STATUS_OK) {
        forgetLink(link);
        if (linked == STATUS_DEAD_OBJECT) {
            std::lock_guard<std::mutex> lock(mLock);
            return mState.reject(kResultBadRequest, std::string(what) + ": the client is gone");
        }
        link = 0;  // a callback in this very process: it cannot die on its own
    }

    std::unique_lock<std::mutex> lock(mLock);
    if (mState.listeners.size() >= ServiceLimits::kMaxListeners) {
        const int32_t result = mState.reject(
                kResultLimitReached,
                "too many listeners (" + std::to_string(ServiceLimits::kMaxListeners) + ")");
        lock.unlock();
        unlink(listener.callback, link);
        return result;
    }
    listener.link = link;
    listener.handle = mState.newHandle();
    std::string on;
    for (const ResourceKey& key : listener.keys) on += " " + key.toString();
    for (int32_t id : listener.thermalIds) on += " " + std::to_string(id);
    serviceLog(ANDROID_LOG_INFO, "%s %d for pid %d on%s", what, listener.handle, listener.pid,
               on.empty() ? " nothing" : on.c_str());
    const int32_t handle = listener.handle;
    mState.listeners.emplace(handle, std::move(listener));
    return handle;
}

int32_t ListenerRegistry::remove(int32_t handle, bool thermal, const char* what) {
    std::shared_ptr<IVelaCallback> callback;
    uint64_t link = 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mState.listeners.find(handle);
        if (it == mState.listeners.end()) {
            return mState.reject(
                    kResultUnknownHandle,
                    std::string(what) + ": no listener with handle " + std::to_string(handle));
        }
        if (it->second.thermal != thermal) {
            serviceLog(ANDROID_LOG_WARN, "%s: handle %d is a %s listener; removed all the same",
                       what, handle, it->second.thermal ? "thermal" : "resource");
        }
        callback = std::move(it->second.callback);
        link = it->second.link;
        mState.listeners.erase(it);
        serviceLog(ANDROID_LOG_INFO, "%s handle %d", what, handle);
    }
    unlink(callback, link);
    return kResultOk;
}

void ListenerRegistry::unlink(const std::shared_ptr<IVelaCallback>& callback, uint64_t link) {
    if (link == 0) return;
    AIBinder_unlinkToDeath(callback->asBinder().get(), mDeathRecipient.get(), cookieOf(link));
    forgetLink(link);
}

void ListenerRegistry::forgetLink(uint64_t link) {
    std::lock_guard<std::mutex> links(gLinksLock);
    gLinks.erase(link);
}

void ListenerRegistry::onClientDied(void* cookie) {
    const uint64_t link = reinterpret_cast<uintptr_t>(cookie);
    std::lock_guard<std::mutex> links(gLinksLock);
    auto found = gLinks.find(link);
    if (found == gLinks.end()) return;
    ListenerRegistry* self = found->second;
    gLinks.erase(found);
    std::lock_guard<std::mutex> lock(self->mLock);
    ServiceState& state = self->mState;
    for (auto it = state.listeners.begin(); it != state.listeners.end(); ++it) {
        if (it->second.link != link) continue;
        serviceLog(ANDROID_LOG_INFO, "client of listener %d (pid %d) died: listener dropped",
                   it->first, it->second.pid);
        if (state.trace) {
            state.trace->instant("client died", "listener " + std::to_string(it->first),
                                 {{"pid", std::to_string(it->second.pid)}});
        }
        state.listeners.erase(it);
        ++state.counters.clientsLost;
        break;
    }
}

void ListenerRegistry::notifyLocked(const std::vector<Change>& changes) {
    if (changes.empty()) return;
    for (const auto& [handle, listener] : mState.listeners) {
        if (listener.thermal) continue;
        std::vector<VelaRequestData> items;
        for (const Change& change : changes) {
            if (std::find(listener.keys.begin(), listener.keys.end(), change.key) !=
                listener.keys.end()) {
                items.push_back(mState.itemFor(change.key));
            }
        }
        if (!items.empty()) mDeliveries->post(listener.pid, {handle, listener.callback, items});
    }
}

void ListenerRegistry::notifyThermalLocked(const std::vector<VelaRequestData>& levels) {
    for (const auto& [handle, listener] : mState.listeners) {
        if (!listener.thermal) continue;
        std::vector<VelaRequestData> mine;
        for (const VelaRequestData& level : levels) {
            if (listener.thermalIds.count(level.id) != 0) mine.push_back(level);
        }
        if (!mine.empty()) mDeliveries->post(listener.pid, {handle, listener.callback, mine});
    }
}

void ListenerRegistry::answerLocked(std::shared_ptr<IVelaCallback> callback,
                                    std::vector<VelaRequestData> items) {
    // Called during the request, so the caller is the process to answer.
    mDeliveries->post(AIBinder_getCallingPid(), {0, std::move(callback), std::move(items)});
}

void ListenerRegistry::deliver(const Delivery& delivery) {
    const int32_t listener = delivery.listener;
    const std::shared_ptr<IVelaCallback>& callback = delivery.callback;
    ::ndk::ScopedAStatus status = callback->onCallback(delivery.items);
    std::unique_lock<std::mutex> lock(mLock);
    if (status.isOk()) {
        ++mState.counters.delivered;
        if (auto it = mState.listeners.find(listener); it != mState.listeners.end()) {
            ++it->second.delivered;
        }
        return;
    }
    ++mState.counters.failedDeliveries;
    serviceLog(ANDROID_LOG_WARN, "callback to %s %d failed: %s",
               listener != 0 ? "listener" : "request callback", listener,
               status.getDescription().c_str());
    // A client that is gone will not come back on this callback: stop calling it.
    if (listener != 0 && status.getStatus() == STATUS_DEAD_OBJECT) {
        auto it = mState.listeners.find(listener);
        if (it != mState.listeners.end() && it->second.callback == callback) {
            serviceLog(ANDROID_LOG_INFO, "listener %d dropped: its client is gone", listener);
            const uint64_t link = it->second.link;
            mState.listeners.erase(it);
            ++mState.counters.clientsLost;
            lock.unlock();
            if (link != 0) forgetLink(link);
        }
    }
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
