#include "HolderWatch.h"

#include <android/log.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ServiceState.h"

// The number is the same on every architecture; older C libraries do not name it.
#ifndef SYS_pidfd_open
#define SYS_pidfd_open 434
#endif

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

constexpr uint64_t kStopToken = 0;

bool hasEnded(int pidfd) {
    pollfd ready{pidfd, POLLIN, 0};
    return poll(&ready, 1, 0) > 0;
}

}  // namespace

HolderWatch::HolderWatch(Gone onGone)
    : mOnGone(std::move(onGone)),
      mEpoll(epoll_create1(EPOLL_CLOEXEC)),
      mStop(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    epoll_event stop{};
    stop.events = EPOLLIN;
    stop.data.u64 = kStopToken;
    if (mEpoll.get() < 0 || mStop.get() < 0 ||
        epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, mStop.get(), &stop) != 0) {
        // Without the thread every hold is kept as if unwatched: a degraded service, not none.
        serviceLog(ANDROID_LOG_ERROR, "holders cannot be watched: %s", strerror(errno));
        mEpoll = ::ndk::ScopedFileDescriptor();
        return;
    }
    mThread = std::thread([this] { run(); });
}

HolderWatch::~HolderWatch() {
    if (mThread.joinable()) {
        const uint64_t one = 1;
        if (write(mStop.get(), &one, sizeof(one)) != sizeof(one)) {
            serviceLog(ANDROID_LOG_ERROR, "holder watch: cannot stop its thread: %s",
                       strerror(errno));
        }
        mThread.join();
    }
}

uint64_t HolderWatch::watch(pid_t pid) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mEpoll.get() < 0) return 0;
    if (pid == getpid()) {
        // A hold made from within this process cannot outlive it.
        if (!mToldOwnPid) {
            serviceLog(ANDROID_LOG_INFO,
                       "requests made from within this process are not watched: they end when "
                       "released or expired");
            mToldOwnPid = true;
        }
        return 0;
    }
    if (auto known = mByPid.find(pid); known != mByPid.end()) {
        Process& process = mProcesses.at(known->second);
        if (!hasEnded(process.pidfd.get())) {
            ++process.holds;
            return known->second;
        }
        // The number's previous owner has ended and the thread has yet to report it: that
        // entry stays for the report, and the caller, a new process, is watched apart.
        mByPid.erase(known);
    }
    ::ndk::ScopedFileDescriptor pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (pidfd.get() < 0) {
        serviceLog(ANDROID_LOG_WARN,
                   "pid %d cannot be watched (pidfd_open: %s): its holds end only when released "
                   "or expired",
                   pid, strerror(errno));
        return 0;
    }
    const uint64_t token = mNextToken++;
    epoll_event ready{};
    // One report per process is all there is to say; the descriptor stays readable after it.
    ready.events = EPOLLIN | EPOLLONESHOT;
    ready.data.u64 = token;
    if (epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, pidfd.get(), &ready) != 0) {
        serviceLog(ANDROID_LOG_WARN, "pid %d cannot be watched (epoll: %s)", pid, strerror(errno));
        return 0;
    }
    mProcesses.emplace(token, Process{pid, std::move(pidfd), 1});
    mByPid[pid] = token;
    return token;
}

void HolderWatch::unwatch(uint64_t token) {
    if (token == 0) return;
    std::lock_guard<std::mutex> lock(mLock);
    auto process = mProcesses.find(token);
    if (process == mProcesses.end()) return;
    if (--process->second.holds == 0) closeLocked(process);
}

void HolderWatch::closeLocked(std::map<uint64_t, Process>::iterator process) {
    epoll_ctl(mEpoll.get(), EPOLL_CTL_DEL, process->second.pidfd.get(), nullptr);
    if (auto byPid = mByPid.find(process->second.pid);
        byPid != mByPid.end() && byPid->second == process->first) {
        mByPid.erase(byPid);
    }
    mProcesses.erase(process);
}

void HolderWatch::run() {
    epoll_event events[16];
    while (true) {
        const int count = epoll_wait(mEpoll.get(), events, 16, -1);
        if (count < 0) {
            if (errno == EINTR) continue;
            serviceLog(ANDROID_LOG_ERROR, "holder watch stopped: %s", strerror(errno));
            return;
        }
        for (int i = 0; i < count; ++i) {
            const uint64_t token = events[i].data.u64;
            if (token == kStopToken) return;
            pid_t pid = 0;
            {
                std::lock_guard<std::mutex> lock(mLock);
                auto process = mProcesses.find(token);
                // Its last hold ended while the report was on its way.
                if (process == mProcesses.end()) continue;
                pid = process->second.pid;
            }
            mOnGone(token, pid);
            // The owner unwatches each hold it ends; whatever it did not own goes too.
            std::lock_guard<std::mutex> lock(mLock);
            if (auto process = mProcesses.find(token); process != mProcesses.end()) {
                closeLocked(process);
            }
        }
    }
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
