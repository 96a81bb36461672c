#include "BoundedWrite.h"

#include <limits.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

// A write to a pipe whose reader is gone raises SIGPIPE, and its default kills the process.
// Ignoring it process-wide would change a disposition the embedding program may rely on, so
// instead the signal is blocked on this thread for the one write and, if that write raised it,
// taken back off the thread before unblocking (unless it was already pending before, which is
// then left for its owner).
class SigpipeBlocked {
public:
    SigpipeBlocked() {
        sigemptyset(&mPipe);
        sigaddset(&mPipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &mPipe, &mSaved);
        sigset_t pending;
        sigpending(&pending);
        mWasPending = sigismember(&pending, SIGPIPE) == 1;
    }
    ~SigpipeBlocked() {
        if (mRaised && !mWasPending) {
            const timespec none{0, 0};
            while (sigtimedwait(&mPipe, nullptr, &none) < 0 && errno == EINTR) {
            }
        }
        pthread_sigmask(SIG_SETMASK, &mSaved, nullptr);
    }
    void raised() { mRaised = true; }

private:
    sigset_t mPipe;
    sigset_t mSaved;
    bool mWasPending = false;
    bool mRaised = false;
};

// At most PIPE_BUF bytes at a time: once poll says a pipe is writable, a write that small
// finds room and so cannot block. The descriptor's own flags are not touched (O_NONBLOCK
// would change them for the peer too, who shares the open file).
ssize_t writeSome(int fd, bool socket, const char* data, size_t size) {
    size = std::min<size_t>(size, PIPE_BUF);
    if (socket) return send(fd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    SigpipeBlocked guard;
    const ssize_t n = write(fd, data, size);
    if (n < 0 && errno == EPIPE) guard.raised();
    return n;
}

}  // namespace

bool writeBounded(int fd, std::string_view text, std::chrono::milliseconds stall) {
    struct stat st {};
    if (fstat(fd, &st) != 0) return false;
    const bool socket = S_ISSOCK(st.st_mode);
    const int stallMs = static_cast<int>(std::clamp<long long>(stall.count(), 0, INT_MAX));
    while (!text.empty()) {
        pollfd p{fd, POLLOUT, 0};
        const int ready = poll(&p, 1, stallMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) return false;  // an error, or the reader took nothing for `stall`
        if ((p.revents & POLLOUT) == 0) return false;  // hung up or invalid
        const ssize_t n = writeSome(fd, socket, text.data(), text.size());
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
            return false;
        }
        text.remove_prefix(static_cast<size_t>(n));
    }
    return true;
}

int writeWhole(int fd, std::string_view text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            return n < 0 ? errno : EIO;
        }
    }
    return 0;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
