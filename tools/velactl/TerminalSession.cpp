#include "TerminalSession.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "Interrupt.h"

namespace velactl {

namespace {

// What the signal handler may touch: plain data and async-signal-safe calls only.
int gWakePipe[2] = {-1, -1};
std::atomic<bool> gInLibrary{false};
std::atomic<bool> gTerminalRaw{false};
struct termios gSavedTerminal;
constexpr char kSignalByte = 's';
constexpr char kStopByte = 'x';

void restoreTerminal() {
    if (gTerminalRaw.exchange(false)) tcsetattr(STDIN_FILENO, TCSANOW, &gSavedTerminal);
}

void onSignal(int) {
    if (gInLibrary.load()) {
        restoreTerminal();
        leaveInterrupted();
    }
    ssize_t ignored = write(gWakePipe[1], &kSignalByte, 1);
    (void)ignored;
}

}  // namespace

void Wakeup::changed() {
    std::lock_guard<std::mutex> lock(mLock);
    mChanged = true;
    mWake.notify_all();
}

void Wakeup::leave(Leave why) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mLeave == Leave::kStay) mLeave = why;
    mWake.notify_all();
}

Leave Wakeup::wait(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    mWake.wait_for(lock, timeout, [&] { return mChanged || mLeave != Leave::kStay; });
    mChanged = false;
    return mLeave;
}

InLibrary::InLibrary() {
    gInLibrary = true;
}

InLibrary::~InLibrary() {
    gInLibrary = false;
}

// A regular file or /dev/null is at its end from the start, and `velactl top </dev/null` (a
// service script, say) should keep refreshing rather than leave at once.
bool inputCanEnd() {
    struct stat st = {};
    if (fstat(STDIN_FILENO, &st) != 0) return false;
    return S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode) || isatty(STDIN_FILENO);
}

// Each line and the rest of the screen are cleared behind it; lines past the window's height
// are summed up in one, so that nothing scrolls away.
std::string screenOf(std::vector<std::string> lines) {
    struct winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 1) {
        if (lines.size() > size.ws_row - 1u) {
            const size_t hidden = lines.size() - (size.ws_row - 2u);
            lines.resize(size.ws_row - 2u);
            lines.push_back("(" + std::to_string(hidden) +
                            " more lines: a taller window, or name the resources)");
        }
        for (auto& line : lines) {
            // A number cut short reads as another number: a cut line ends in a mark.
            if (size.ws_col > 1 && line.size() > size.ws_col) {
                line.resize(size.ws_col - 1u);
                line += '>';
            }
        }
    }
    std::string text = "\x1b[H";
    for (size_t i = 0; i < lines.size(); ++i) text += (i > 0 ? "\x1b[K\n" : "") + lines[i];
    return text + "\x1b[J";
}

std::unique_ptr<TerminalSession> TerminalSession::start(bool rawKeys, bool watchInput,
                                                        std::shared_ptr<Wakeup> wakeup,
                                                        std::string* error) {
    std::unique_ptr<TerminalSession> session(new TerminalSession(std::move(wakeup)));
    if (pipe2(gWakePipe, O_CLOEXEC) != 0) {
        *error = std::string("cannot make a pipe: ") + strerror(errno);
        return nullptr;
    }
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &session->mOldInt);
    sigaction(SIGTERM, &action, &session->mOldTerm);
    if (rawKeys && tcgetattr(STDIN_FILENO, &gSavedTerminal) == 0) {
        struct termios raw = gSavedTerminal;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        gTerminalRaw = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
    }
    session->mThread = std::thread([s = session.get(), watchInput] { s->watch(watchInput); });
    return session;
}

TerminalSession::~TerminalSession() {
    ssize_t ignored = write(gWakePipe[1], &kStopByte, 1);
    (void)ignored;
    mThread.join();
    restoreTerminal();
    sigaction(SIGINT, &mOldInt, nullptr);
    sigaction(SIGTERM, &mOldTerm, nullptr);
    close(gWakePipe[0]);
    close(gWakePipe[1]);
    gWakePipe[0] = gWakePipe[1] = -1;
}

void TerminalSession::watch(bool watchInput) {
    pollfd fds[2] = {{gWakePipe[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    const nfds_t count = watchInput ? 2 : 1;
    for (;;) {
        if (poll(fds, count, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[0].revents != 0) {
            char byte = 0;
            if (read(gWakePipe[0], &byte, 1) == 1 && byte == kSignalByte) {
                mWakeup->leave(Leave::kInterrupted);
            }
            return;  // a signal, or the session ending
        }
        if (count == 2 && fds[1].revents != 0) {
            char keys[64];
            const ssize_t n = read(STDIN_FILENO, keys, sizeof(keys));
            if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (n <= 0 || memchr(keys, 'q', static_cast<size_t>(n)) != nullptr) {
                mWakeup->leave(Leave::kDone);
                return;
            }
        }
    }
}

}  // namespace velactl
