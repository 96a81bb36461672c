#include "ChildService.h"

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

extern char** environ;

namespace paxtest {

int runChildServiceRole(const char* instance) {
    if (HostBinder_declareService(instance) != STATUS_OK) {
        fprintf(stderr, "child service: cannot declare %s\n", instance);
        return 3;
    }
    auto fake = ::ndk::SharedRefBase::make<FakeVela>();
    if (AServiceManager_addService(fake->asBinder().get(), instance) != EX_NONE) {
        fprintf(stderr, "child service: cannot serve %s\n", instance);
        return 4;
    }
    ABinderProcess_joinThreadPool();
    return 5;  // joinThreadPool is not meant to return
}

namespace {

std::string describeWaitStatus(int status) {
    if (WIFEXITED(status)) return "exited with code " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) return std::string("killed by ") + strsignal(WTERMSIG(status));
    return "wait status " + std::to_string(status);
}

}  // namespace

ChildService::ChildService(std::string instance) : mInstance(std::move(instance)) {}

ChildService::~ChildService() {
    kill();
}

bool ChildService::startFake(std::chrono::milliseconds timeout) {
    mPath = "/proc/self/exe";
    mArgs.clear();
    mEnv = {std::string(kChildServiceEnv) + "=" + mInstance};
    return launch(timeout);
}

bool ChildService::startExecutable(const std::string& path, const std::vector<std::string>& args,
                                   const std::vector<std::string>& extraEnv,
                                   std::chrono::milliseconds timeout) {
    mPath = path;
    mArgs = args;
    mEnv = extraEnv;
    return launch(timeout);
}

bool ChildService::launch(std::chrono::milliseconds timeout) {
    kill();

    // Everything the child needs is built before fork: between fork and exec only
    // async-signal-safe calls are allowed, and other threads may hold the allocator's locks.
    std::vector<std::string> argStrings;
    argStrings.push_back(mPath);
    argStrings.insert(argStrings.end(), mArgs.begin(), mArgs.end());
    std::vector<char*> argv;
    for (auto& s : argStrings) argv.push_back(s.data());
    argv.push_back(nullptr);

    // The child-role variable is never inherited by accident: only startFake() sets it.
    std::vector<std::string> envStrings;
    const std::string roleKey = std::string(kChildServiceEnv) + "=";
    for (char** e = environ; *e != nullptr; ++e) {
        if (strncmp(*e, roleKey.c_str(), roleKey.size()) != 0) envStrings.emplace_back(*e);
    }
    envStrings.insert(envStrings.end(), mEnv.begin(), mEnv.end());
    std::vector<char*> envp;
    for (auto& s : envStrings) envp.push_back(s.data());
    envp.push_back(nullptr);

    struct rlimit limit {};
    int maxFd = 1024;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        maxFd = static_cast<int>(limit.rlim_cur);
    }
    const pid_t parent = getpid();

    pid_t pid = fork();
    if (pid < 0) {
        ADD_FAILURE() << "fork failed: " << strerror(errno);
        return false;
    }
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(126);
            // The test's own sockets must not stay open in the child: a service that this process
            // stops would otherwise look alive to its clients.
#ifdef SYS_close_range
        if (syscall(SYS_close_range, 3U, ~0U, 0U) != 0)
#endif
        {
            for (int fd = 3; fd < maxFd; ++fd) close(fd);
        }
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    mPid = pid;
    return waitUntilServing(timeout);
}

bool ChildService::waitUntilServing(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        int status = 0;
        if (waitpid(mPid, &status, WNOHANG) == mPid) {
            ADD_FAILURE() << "service " << mPath << " " << describeWaitStatus(status)
                          << " before serving " << mInstance;
            mPid = -1;
            return false;
        }
        if (AIBinder* binder = AServiceManager_checkService(mInstance.c_str())) {
            AIBinder_decStrong(binder);
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "service " << mPath << " did not serve " << mInstance << " within "
                  << timeout.count() << " ms";
    kill();
    return false;
}

void ChildService::kill() {
    if (mPid <= 0) return;
    ::kill(mPid, SIGKILL);
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    forgetService();
}

void ChildService::forgetService() {
    if (!waitUntilUnreachable(mInstance)) {
        ADD_FAILURE() << mInstance << " still reachable after its process ended";
    }
}

int ChildService::terminate(std::chrono::milliseconds timeout) {
    if (mPid <= 0) return -1;
    ::kill(mPid, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    int status = 0;
    while (true) {
        pid_t done = waitpid(mPid, &status, WNOHANG);
        if (done == mPid) break;
        if (done < 0 && errno != EINTR) break;
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(mPid, SIGKILL);
            while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    mPid = -1;
    forgetService();
    return status;
}

bool ChildService::restart(std::chrono::milliseconds timeout) {
    if (mPath.empty()) {
        ADD_FAILURE() << "ChildService::restart before any start";
        return false;
    }
    return launch(timeout);
}

bool ChildService::running() {
    if (mPid <= 0) return false;
    int status = 0;
    if (waitpid(mPid, &status, WNOHANG) == mPid) {
        mPid = -1;
        return false;
    }
    return true;
}

}  // namespace paxtest
