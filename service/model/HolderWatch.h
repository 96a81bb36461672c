// Watches the processes that hold requests, so that a hold lives no longer than its holder.
//
// A process is watched through a pidfd opened while it is blocked in its call to us: its pid
// cannot have been reused by then, and the descriptor keeps naming that one process even after
// the number is given to another. One descriptor per process, shared by all its holds, closed
// with its last; one thread waits on all of them with epoll and reports each process that ends.
//
// Locking: watch() and unwatch() are called under the service lock and take this class's own
// lock beneath it. The thread reports an ending with no lock of ours held, so that the report
// may take the service lock (service lock, then this lock: never the other way round).
#pragma once

#include <android/binder_auto_utils.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace aidl::vendor::norvo::hardware::vela::impl {

class HolderWatch {
public:
    // A watched process has ended. `token` is what watch() returned for it.
    using Gone = std::function<void(uint64_t token, pid_t pid)>;

    explicit HolderWatch(Gone onGone);
    ~HolderWatch();  // stops the thread first; no report runs after it returns
    HolderWatch(const HolderWatch&) = delete;
    HolderWatch& operator=(const HolderWatch&) = delete;

    // One more hold of `pid`, which must be blocked in a call to us. Returns the token naming
    // that process, or 0 when it cannot be watched (this very process, or no pidfd): the
    // reason is logged, and such a hold ends only when released or expired.
    uint64_t watch(pid_t pid);
    // One hold fewer; the descriptor is closed with the last.
    void unwatch(uint64_t token);

private:
    struct Process {
        pid_t pid = 0;
        ::ndk::ScopedFileDescriptor pidfd;
        size_t holds = 0;
    };
    void run();
    void closeLocked(std::map<uint64_t, Process>::iterator process);

    const Gone mOnGone;
    ::ndk::ScopedFileDescriptor mEpoll;
    ::ndk::ScopedFileDescriptor mStop;  // an eventfd: written once to end the thread
    std::mutex mLock;
    std::map<uint64_t, Process> mProcesses;  // by token
    std::map<pid_t, uint64_t> mByPid;        // the live process of each pid
    uint64_t mNextToken = 1;
    bool mToldOwnPid = false;
    std::thread mThread;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
