#include <algorithm>

#include "session.h"

SessionRegistry& SessionRegistry::get() {
    static SessionRegistry* registry = new SessionRegistry;
    return *registry;
}

void SessionRegistry::add(const std::shared_ptr<Session>& s) {
    std::lock_guard<std::mutex> lock(mMutex);
    mSessions.push_back(s);
}

void SessionRegistry::remove(Session* s) {
    std::shared_ptr<Session> last;  // destroyed after the lock is released
    std::lock_guard<std::mutex> lock(mMutex);
    auto it = std::find_if(mSessions.begin(), mSessions.end(),
                           [s](const std::shared_ptr<Session>& p) { return p.get() == s; });
    if (it != mSessions.end()) {
        last = std::move(*it);
        mSessions.erase(it);
    }
}

std::shared_ptr<Session> SessionRegistry::clientFor(const std::string& instance) {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto& s : mSessions) {
        if (!s->serverSide() && s->instance() == instance && s->alive()) return s;
    }
    return nullptr;
}

std::vector<std::shared_ptr<Session>> SessionRegistry::sessionsOf(const std::string& instance) {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<std::shared_ptr<Session>> out;
    for (auto& s : mSessions) {
        if (s->instance() == instance) out.push_back(s);
    }
    return out;
}

int32_t SessionRegistry::count() {
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<int32_t>(mSessions.size());
}

size_t SessionRegistry::servedCount(const std::string& instance) {
    std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<size_t>(std::count_if(
            mSessions.begin(), mSessions.end(), [&](const std::shared_ptr<Session>& s) {
                return s->serverSide() && s->instance() == instance;
            }));
}

std::vector<std::shared_ptr<Session>> SessionRegistry::all() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mSessions;
}

void sweepConnections(int64_t nowMs) {
    for (const std::shared_ptr<Session>& s : SessionRegistry::get().all()) s->sweep(nowMs);
}
