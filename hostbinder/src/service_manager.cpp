// The host's service manager: each served instance is a listening Unix-domain socket in the
// runtime directory; what may be served is what the VINTF manifest fragments declare.
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <hostbinder/hostbinder.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "directory.h"
#include "dispatcher.h"
#include "manifest.h"
#include "session.h"

namespace {

// Connections one service accepts at once; enough for every honest client on a workstation.
constexpr size_t kMaxConnectionsPerService = 128;
// How often a waiter looks again when the directory says nothing (a full backlog, say).
constexpr int kWaitRetryMillis = 250;

// Instance names contain '/', which a file name cannot ('@' is in no valid name). A name too
// long for a socket address (108 bytes with the directory) is served under a hash of itself:
// servicemanager takes 127 characters whatever the directory.
std::string socketPath(const std::string& instance) {
    std::string name = instance;
    for (char& c : name) {
        if (c == '/') c = '@';
    }
    std::string path = runtimeDirectory() + "/" + name + ".sock";
    if (path.size() < sizeof(sockaddr_un::sun_path)) return path;
    uint64_t hash = 0xcbf29ce484222325ull;  // FNV-1a
    for (unsigned char c : instance) hash = (hash ^ c) * 0x100000001b3ull;
    char hashed[32];
    snprintf(hashed, sizeof(hashed), "#%016llx.sock", static_cast<unsigned long long>(hash));
    return runtimeDirectory() + "/" + hashed;
}

bool fillAddress(const std::string& path, sockaddr_un* addr) {
    if (path.size() >= sizeof(addr->sun_path)) return false;
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    return true;
}

// Whether the peer runs as this user (nobody else may reach our services); *cred is who it is.
bool peerIsUs(int fd, ucred* cred) {
    socklen_t len = sizeof(*cred);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, cred, &len) == 0 && cred->uid == getuid();
}

// A served instance: its listening socket, watched by the binder threads.
class Listener : public Watched {
public:
    Listener(ndk::ScopedFileDescriptor fd, std::string instance, AIBinder* binder)
        : mFd(std::move(fd)),
          mInstance(std::move(instance)),
          mBinder(binder),
          mId(Dispatcher::get().newId()) {
        AIBinder_incStrong(mBinder);
    }
    ~Listener() override { AIBinder_decStrong(mBinder); }
    void watch(const std::shared_ptr<Listener>& self) {
        Dispatcher::get().add(mFd.get(), mId, EPOLLIN, self);
    }
    void stop() {
        mStopped.store(true);
        Dispatcher::get().remove(mFd.get(), mId);
    }
    void onEvent(uint32_t) override;

private:
    void refuse(ndk::ScopedFileDescriptor fd, pid_t peer, size_t open);

    const ndk::ScopedFileDescriptor mFd;
    const std::string mInstance;
    AIBinder* const mBinder;
    const uint64_t mId;
    std::atomic<bool> mStopped{false};
    std::atomic<int64_t> mLastRefusalLog{0};
};

void Listener::onEvent(uint32_t) {
    // One connection per wake-up: the listener is re-armed as soon as one is taken, so another
    // binder thread takes the next while this one sets up the session, and nobody pays for a
    // last accept that finds nothing.
    ndk::ScopedFileDescriptor fd;
    do {
        fd.set(accept4(mFd.get(), nullptr, nullptr, SOCK_CLOEXEC));
    } while (fd.get() < 0 && (errno == EINTR || errno == ECONNABORTED));
    if (fd.get() < 0 && (errno == EMFILE || errno == ENFILE)) {
        // Out of descriptors: look again a little later rather than spin on it.
        hostbinderLog("cannot accept for %s: %s", mInstance.c_str(), strerror(errno));
        Dispatcher::get().post([fd = mFd.get(), id = mId] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            Dispatcher::get().rearm(fd, id, EPOLLIN);
        });
        return;
    }
    if (mStopped.load()) return;
    Dispatcher::get().rearm(mFd.get(), mId, EPOLLIN);
    ucred peer{};
    if (fd.get() < 0 || !peerIsUs(fd.get(), &peer)) return;
    const size_t open = SessionRegistry::get().servedCount(mInstance);
    if (open >= kMaxConnectionsPerService) {
        refuse(std::move(fd), peer.pid, open);
        return;
    }
    Session::start(std::move(fd), mInstance, mBinder, peer);
}

void Listener::refuse(ndk::ScopedFileDescriptor fd, pid_t peer, size_t open) {
    fd.set(-1);  // the refusal: closed before anything is logged
    // One line a second at most: a flood of refusals must not become a flood of logging.
    const int64_t now = monotonicMillis();
    int64_t last = mLastRefusalLog.load();
    if (now - last >= 1000 && mLastRefusalLog.compare_exchange_strong(last, now)) {
        hostbinderLog("refusing a connection to %s from pid %d: %zu connections open (limit %zu)",
                      mInstance.c_str(), static_cast<int>(peer), open, kMaxConnectionsPerService);
    }
}

std::mutex gServedMutex;
std::unordered_map<std::string, std::shared_ptr<Listener>>& served() {
    static auto* map = new std::unordered_map<std::string, std::shared_ptr<Listener>>;
    return *map;
}

// The connection this process last opened to each instance, and which socket it reached: a
// lookup shares it only while that socket still serves the name, so that after a second
// registration new lookups reach the newcomer, as servicemanager hands it out.
struct ClientConnection {
    dev_t device = 0;
    ino_t inode = 0;
    std::weak_ptr<Session> session;
};
std::mutex gClientsMutex;
std::unordered_map<std::string, ClientConnection>& clients() {
    static auto* map = new std::unordered_map<std::string, ClientConnection>;
    return *map;
}

// A proxy for the instance when it is served and reachable now, without waiting.
AIBinder* connectTo(const std::string& instance) {
    const std::string path = socketPath(instance);
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0 || !S_ISSOCK(st.st_mode)) return nullptr;
    {
        std::lock_guard<std::mutex> lock(gClientsMutex);
        auto it = clients().find(instance);
        if (it != clients().end() && it->second.device == st.st_dev &&
            it->second.inode == st.st_ino) {
            auto session = it->second.session.lock();
            if (session != nullptr && session->alive()) return session->rootProxy();
        }
    }
    sockaddr_un addr;
    if (!fillAddress(path, &addr)) return nullptr;
    // Non-blocking for the connect only: a service whose backlog is full is not reachable now.
    ndk::ScopedFileDescriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    ucred peer{};
    if (fd.get() < 0 || connect(fd.get(), reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
        !peerIsUs(fd.get(), &peer) || fcntl(fd.get(), F_SETFL, 0) != 0) {
        return nullptr;
    }
    std::shared_ptr<Session> session = Session::start(std::move(fd), instance, nullptr, peer);
    {
        std::lock_guard<std::mutex> lock(gClientsMutex);
        clients()[instance] = {st.st_dev, st.st_ino, session};
    }
    return session->rootProxy();
}

// Directory watches for waiters. Closing an inotify instance waits for the kernel to retire its
// marks (an RCU grace period: tens of milliseconds), which would stand between a service
// appearing and its waiter connecting. So an instance is never closed on that path: a finished
// waiter removes its watch (which does not wait) and puts the instance back for the next one.
// Each concurrent waiter still has an instance of its own, so no waiter can eat another's events.
class DirectoryWatches {
public:
    // -1 when the kernel gives none; the caller then looks again on a timer.
    int take(const std::string& dir, int* wd) {
        int fd = -1;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (!mFree.empty()) {
                fd = mFree.back();
                mFree.pop_back();
            }
        }
        if (fd < 0) fd = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        if (fd < 0) return -1;
        drain(fd);  // what a previous waiter left: its watch's removal notice, say
        *wd = inotify_add_watch(fd, dir.c_str(), IN_CREATE | IN_MOVED_TO | IN_ATTRIB);
        if (*wd < 0) {
            giveBack(fd, -1);
            return -1;
        }
        return fd;
    }

    void giveBack(int fd, int wd) {
        if (wd >= 0) inotify_rm_watch(fd, wd);
        std::lock_guard<std::mutex> lock(mMutex);
        mFree.push_back(fd);
    }

    // A read that leaves room in the buffer took everything queued: no second read just to
    // hear that nothing is left (what arrives meanwhile wakes the next poll).
    static void drain(int fd) {
        alignas(inotify_event) char events[4096];
        while (read(fd, events, sizeof(events)) > static_cast<ssize_t>(sizeof(events) / 2)) {
        }
    }

private:
    std::mutex mMutex;
    std::vector<int> mFree;
};

DirectoryWatches& directoryWatches() {
    // Never destroyed: a waiter may still be returning its instance while the process exits.
    static DirectoryWatches* watches = new DirectoryWatches;
    return *watches;
}

// Waits for the instance, woken by changes in the directory; a zero limit waits for ever, and
// says so once a second as the device's servicemanager client does (IServiceManager.cpp,
// waitForService), on stderr like every line of ours, so the caller's own log is untouched.
AIBinder* waitFor(const char* instance, std::chrono::milliseconds limit) {
    // servicemanager refuses to watch for a name it could never serve.
    if (instance == nullptr || !isValidServiceName(instance) || !directoryTrusted()) {
        return nullptr;
    }
    const auto start = std::chrono::steady_clock::now();
    const auto deadline = start + limit;
    auto nextSaying = start + std::chrono::seconds(1);
    // Watching starts before the first look, so an instance that appears in between is seen.
    int wd = -1;
    const int watch = directoryWatches().take(runtimeDirectory(), &wd);
    AIBinder* binder = nullptr;
    for (;;) {
        binder = connectTo(instance);
        if (binder != nullptr) break;
        int timeout = kWaitRetryMillis;
        if (limit.count() != 0) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) break;
            timeout = std::min<int>(timeout, static_cast<int>(left.count()));
        }
        pollfd p{watch, POLLIN, 0};
        if (watch < 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(timeout));
        } else if (poll(&p, 1, timeout) > 0) {
            DirectoryWatches::drain(watch);
        }
        if (limit.count() == 0 && std::chrono::steady_clock::now() >= nextSaying) {
            hostbinderLog(
                    "Waited one second for %s (is service started? Are binder threads "
                    "started and available?)",
                    instance);
            nextSaying += std::chrono::seconds(1);
        }
    }
    if (watch >= 0) directoryWatches().giveBack(watch, wd);
    return binder;
}

}  // namespace

extern "C" {

// servicemanager's order of refusals (ServiceManager::addService): a name it cannot serve,
// then one the manifest does not declare, both EX_ILLEGAL_ARGUMENT; a name served already is
// served by the newcomer from now on, its earlier clients keeping what they hold.
binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr || binder->isRemote()) {
        return EX_ILLEGAL_ARGUMENT;
    }
    if (!directoryTrusted()) return EX_SECURITY;
    if (!isValidServiceName(instance)) {
        hostbinderLog("refusing to serve \"%s\": not a valid service name", instance);
        return EX_ILLEGAL_ARGUMENT;
    }
    if (!manifestDeclares(instance)) {
        hostbinderLog("refusing to serve %s: no manifest fragment in %s declares it", instance,
                      manifestDirectory().c_str());
        return EX_ILLEGAL_ARGUMENT;
    }
    sockaddr_un addr;
    const std::string path = socketPath(instance);
    if (!fillAddress(path, &addr)) return EX_ILLEGAL_STATE;
    static std::atomic<uint32_t> counter{0};
    const std::string staging = runtimeDirectory() + "/.staging-" + std::to_string(getpid()) + "-" +
                                std::to_string(counter.fetch_add(1));
    sockaddr_un stagingAddr;
    if (!fillAddress(staging, &stagingAddr)) return EX_ILLEGAL_STATE;

    std::lock_guard<std::mutex> lock(gServedMutex);
    ndk::ScopedFileDescriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.get() < 0) return EX_ILLEGAL_STATE;
    unlink(staging.c_str());
    const mode_t old = umask(0177);
    int rc = bind(fd.get(), reinterpret_cast<sockaddr*>(&stagingAddr), sizeof(stagingAddr));
    umask(old);
    // The socket appears under its name only once it listens, so that a waiter woken by its
    // arrival connects at the first try; the rename replaces whoever served the name before.
    if (rc != 0 || listen(fd.get(), SOMAXCONN) != 0 || rename(staging.c_str(), path.c_str()) != 0) {
        unlink(staging.c_str());
        return EX_ILLEGAL_STATE;
    }
    auto listener = std::make_shared<Listener>(std::move(fd), instance, binder);
    std::shared_ptr<Listener>& slot = served()[instance];
    if (slot != nullptr) slot->stop();
    slot = listener;
    listener->watch(listener);
    return EX_NONE;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (instance == nullptr || !isValidServiceName(instance) || !directoryTrusted()) {
        return nullptr;
    }
    return connectTo(instance);
}

AIBinder* AServiceManager_getService(const char* instance) {
    return waitFor(instance, std::chrono::seconds(5));
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    return waitFor(instance, std::chrono::milliseconds(0));
}

bool AServiceManager_isDeclared(const char* instance) {
    return instance != nullptr && isValidServiceName(instance) && manifestDeclares(instance);
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
    return Dispatcher::get().setMaxThreads(numThreads);
}

void ABinderProcess_startThreadPool() {
    Dispatcher::get().start();
}

void ABinderProcess_joinThreadPool() {
    Dispatcher::get().join();
}

const char* HostBinder_getDirectory() {
    thread_local std::string dir;
    dir = runtimeDirectory();
    return dir.c_str();
}

const char* HostBinder_directoryProblem() {
    thread_local std::string problem;
    problem = directoryProblem();
    return problem.empty() ? nullptr : problem.c_str();
}

const char* HostBinder_getManifestDirectory() {
    thread_local std::string dir;
    dir = manifestDirectory();
    return dir.c_str();
}

binder_status_t HostBinder_declareService(const char* instance) {
    if (instance == nullptr) return STATUS_UNEXPECTED_NULL;
    return writeManifestFragment(instance);
}

binder_status_t HostBinder_stopService(const char* instance) {
    if (instance == nullptr) return STATUS_UNEXPECTED_NULL;
    std::shared_ptr<Listener> listener;
    {
        std::lock_guard<std::mutex> lock(gServedMutex);
        auto it = served().find(instance);
        if (it == served().end()) return STATUS_NAME_NOT_FOUND;
        listener = std::move(it->second);
        served().erase(it);
        unlink(socketPath(instance).c_str());
    }
    listener->stop();
    // Connections accepted for it are closed here too (our own clients among them), so that a
    // lookup made right after this returns cannot be handed the connection that is going away.
    for (auto& session : SessionRegistry::get().sessionsOf(instance)) session->shutdown();
    return STATUS_OK;
}

bool HostBinder_isBinderThread() {
    return Dispatcher::onBinderThread();
}

int32_t HostBinder_connectionCount() {
    return SessionRegistry::get().count();
}

}  // extern "C"
