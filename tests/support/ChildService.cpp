#include "ChildService.h"

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <thread>
#include <utility>

#include "ExecProgram.h"
#include "ServiceHarness.h"

namespace paxtest {

namespace {

std::string describeWaitStatus(int status) {
    if (WIFEXITED(status)) return "exited with code " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) return std::string("killed by ") + strsignal(WTERMSIG(status));
    return "wait status " + std::to_string(status);
}

}  // namespace

ChildService::~ChildService() {
    kill();
}

bool ChildService::startExecutable(const std::string& path, const std::vector<std::string>& args) {
    // The service serves only what the manifest declares, as installed beside it.
    if (!declareVela()) return false;
    mPath = path;
    mArgs = args;
    return launch();
}

bool ChildService::launch() {
    kill();

    // Everything the child needs is built before fork: between fork and exec only
    // async-signal-safe calls are allowed, and other threads may hold the allocator's locks.
    std::vector<std::string> argStrings{mPath};
    argStrings.insert(argStrings.end(), mArgs.begin(), mArgs.end());
    const ChildCommand command(mPath, argStrings);

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
        command.exec();
    }
    mPid = pid;
    return waitUntilServing();
}

bool ChildService::waitUntilServing() {
    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        if (waitpid(mPid, &status, WNOHANG) == mPid) {
            ADD_FAILURE() << "service " << mPath << " " << describeWaitStatus(status)
                          << " before serving " << kVelaInstance;
            mPid = -1;
            return false;
        }
        if (AIBinder* binder = AServiceManager_checkService(kVelaInstance)) {
            AIBinder_decStrong(binder);
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ADD_FAILURE() << "service " << mPath << " did not serve " << kVelaInstance << " within "
                  << kStartTimeout.count() << " ms";
    kill();
    return false;
}

void ChildService::kill() {
    if (mPid <= 0) return;
    ::kill(mPid, SIGKILL);
    while (waitpid(mPid, nullptr, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    EXPECT_TRUE(waitUntilUnreachable(kVelaInstance))
            << kVelaInstance << " still reachable after its process ended";
}

bool ChildService::restart() {
    if (mPath.empty()) {
        ADD_FAILURE() << "ChildService::restart before any start";
        return false;
    }
    return launch();
}

bool ChildService::running() {
    if (mPid > 0 && waitpid(mPid, nullptr, WNOHANG) == mPid) mPid = -1;
    return mPid > 0;
}

}  // namespace paxtest
