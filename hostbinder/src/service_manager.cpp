// The host's service manager: each served instance is a listening Unix-domain socket in the
// runtime directory, and the declaration file there stands in for the device's manifest.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <hostbinder/hostbinder.h>

#include "session.h"
#include "thread_pool.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

namespace {

const std::string& directory() {
    static const std::string* dir = [] {
        const char* env = getenv("HOSTBINDER_DIR");
        if (env != nullptr && env[0] != '\0') return new std::string(env);
        const char* runtime = getenv("XDG_RUNTIME_DIR");
        std::string base = runtime != nullptr && runtime[0] != '\0' ? runtime : "/tmp";
        return new std::string(base + "/hostbinder-" + std::to_string(getuid()));
    }();
    return *dir;
}

// The directory is ours alone: made owner-only, and refused if someone else owns it.
bool ensureDirectory() {
    const std::string& dir = directory();
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return false;
    struct stat st {};
    if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != getuid()) {
        return false;
    }
    return true;
}

// Instance names contain '/', which a file name cannot.
std::string socketPath(const std::string& instance) {
    std::string name = instance;
    for (char& c : name) {
        if (c == '/') c = '@';
    }
    return directory() + "/" + name + ".sock";
}

bool fillAddress(const std::string& path, sockaddr_un* addr) {
    if (path.size() >= sizeof(addr->sun_path)) return false;
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    memcpy(addr->sun_path, path.c_str(), path.size() + 1);
    return true;
}

bool peerIsUs(int fd) {
    ucred cred{};
    socklen_t len = sizeof(cred);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0 && cred.uid == getuid();
}

struct Served {
    int listenFd;
    AIBinder* binder;
    bool stopped = false;
};

std::mutex gServedMutex;
std::unordered_map<std::string, std::shared_ptr<Served>>& served() {
    static auto* map = new std::unordered_map<std::string, std::shared_ptr<Served>>;
    return *map;
}

void acceptLoop(std::string instance, std::shared_ptr<Served> entry) {
    for (;;) {
        int fd = accept4(entry->listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EMFILE || errno == ENFILE) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
                continue;
            }
            break;
        }
        bool stopped;
        {
            std::lock_guard<std::mutex> lock(gServedMutex);
            stopped = entry->stopped;
        }
        if (stopped || !peerIsUs(fd)) {
            close(fd);
            if (stopped) break;
            continue;
        }
        Session::start(fd, instance, entry->binder);
    }
    close(entry->listenFd);
    AIBinder_decStrong(entry->binder);
}

AIBinder* connectTo(const std::string& instance) {
    if (auto session = SessionRegistry::get().clientFor(instance)) return session->rootProxy();
    sockaddr_un addr;
    if (!fillAddress(socketPath(instance), &addr)) return nullptr;
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return nullptr;
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || !peerIsUs(fd)) {
        close(fd);
        return nullptr;
    }
    return Session::start(fd, instance, nullptr)->rootProxy();
}

// Polls for the instance; a zero limit waits for ever.
AIBinder* waitFor(const char* instance, std::chrono::milliseconds limit) {
    if (instance == nullptr) return nullptr;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (AIBinder* binder = connectTo(instance)) return binder;
        if (limit.count() != 0 && std::chrono::steady_clock::now() >= deadline) return nullptr;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace

extern "C" {

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr || binder->isRemote()) {
        return EX_ILLEGAL_ARGUMENT;
    }
    if (!ensureDirectory()) return EX_SECURITY;
    sockaddr_un addr;
    const std::string path = socketPath(instance);
    if (!fillAddress(path, &addr)) return EX_ILLEGAL_ARGUMENT;

    std::lock_guard<std::mutex> lock(gServedMutex);
    auto existing = served().find(instance);
    if (existing != served().end() && !existing->second->stopped) return EX_ILLEGAL_STATE;

    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return EX_ILLEGAL_STATE;
    // A socket file left by a process that died is stale; one that answers is in use.
    int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe >= 0) {
        bool inUse = connect(probe, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
        close(probe);
        if (inUse) {
            close(fd);
            return EX_ILLEGAL_STATE;
        }
    }
    unlink(path.c_str());
    const mode_t old = umask(0177);
    int rc = bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
    umask(old);
    if (rc != 0 || listen(fd, 64) != 0) {
        close(fd);
        return EX_ILLEGAL_STATE;
    }
    AIBinder_incStrong(binder);
    auto entry = std::make_shared<Served>(Served{fd, binder});
    served()[instance] = entry;
    std::thread(acceptLoop, std::string(instance), entry).detach();
    return EX_NONE;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    return instance == nullptr ? nullptr : connectTo(instance);
}

AIBinder* AServiceManager_getService(const char* instance) {
    return waitFor(instance, std::chrono::seconds(5));
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    return waitFor(instance, std::chrono::milliseconds(0));
}

bool AServiceManager_isDeclared(const char* instance) {
    if (instance == nullptr) return false;
    std::ifstream in(directory() + "/declared");
    std::string line;
    while (std::getline(in, line)) {
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
        if (line == instance) return true;
    }
    return false;
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
    ThreadPool::get().setMaxThreads(numThreads);
    return true;
}

void ABinderProcess_startThreadPool() {}

void ABinderProcess_joinThreadPool() { ThreadPool::get().join(); }

const char* HostBinder_getDirectory() { return directory().c_str(); }

binder_status_t HostBinder_declareService(const char* instance) {
    if (instance == nullptr || strchr(instance, '\n') != nullptr) return STATUS_BAD_VALUE;
    if (!ensureDirectory()) return STATUS_PERMISSION_DENIED;
    static std::mutex declareMutex;
    std::lock_guard<std::mutex> lock(declareMutex);
    if (AServiceManager_isDeclared(instance)) return STATUS_OK;
    std::ofstream out(directory() + "/declared", std::ios::app);
    out << instance << '\n';
    return out.good() ? STATUS_OK : STATUS_UNKNOWN_ERROR;
}

binder_status_t HostBinder_stopService(const char* instance) {
    if (instance == nullptr) return STATUS_UNEXPECTED_NULL;
    {
        std::lock_guard<std::mutex> lock(gServedMutex);
        auto it = served().find(instance);
        if (it == served().end() || it->second->stopped) return STATUS_NAME_NOT_FOUND;
        it->second->stopped = true;
        // Wakes the accept loop, which then closes the socket.
        shutdown(it->second->listenFd, SHUT_RDWR);
        unlink(socketPath(instance).c_str());
        served().erase(it);
    }
    // Our own clients of the instance are closed here too, so that a lookup made right after
    // this returns cannot be handed the connection that is going away.
    for (auto& session : SessionRegistry::get().sessionsOf(instance)) session->shutdown();
    return STATUS_OK;
}

bool HostBinder_isBinderThread() { return ThreadPool::onBinderThread(); }

int32_t HostBinder_connectionCount() { return SessionRegistry::get().count(); }

}  // extern "C"
