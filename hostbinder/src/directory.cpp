#include "directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "dispatcher.h"

namespace {
// More than any honest list of instances; a file that points at an endless device is cut here.
constexpr size_t kDeclaredLimit = 64 * 1024;

std::string declaredPath() {
    return runtimeDirectory() + "/declared";
}

// Opens the list without following a link or blocking on a pipe; refuses anything but a
// regular file.
int openDeclared(int flags) {
    int fd = open(declaredPath().c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0) {
        if (errno != ENOENT) {
            hostbinderLog("cannot open %s: %s", declaredPath().c_str(), strerror(errno));
        }
        return -1;
    }
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        hostbinderLog("ignoring %s: not a regular file", declaredPath().c_str());
        close(fd);
        return -1;
    }
    return fd;
}

// The list's text up to the limit; a line cut by the limit is dropped.
std::string readList(int fd) {
    std::string text(kDeclaredLimit, '\0');
    size_t got = 0;
    while (got < text.size()) {
        ssize_t n = pread(fd, text.data() + got, text.size() - got, static_cast<off_t>(got));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    text.resize(got);
    if (got == kDeclaredLimit)
        text.resize(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n'));
    return text;
}

bool listHas(const std::string& text, const std::string& instance) {
    size_t begin = 0;
    while (begin < text.size()) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos) end = text.size();
        size_t last = end;
        while (last > begin && (text[last - 1] == '\r' || text[last - 1] == ' ')) --last;
        if (text.compare(begin, last - begin, instance) == 0 && last - begin == instance.size()) {
            return true;
        }
        begin = end + 1;
    }
    return false;
}
}  // namespace

std::string runtimeDirectory() {
    const char* env = getenv("HOSTBINDER_DIR");
    if (env != nullptr && env[0] != '\0') return env;
    const char* runtime = getenv("XDG_RUNTIME_DIR");
    std::string base = runtime != nullptr && runtime[0] != '\0' ? runtime : "/tmp";
    return base + "/hostbinder-" + std::to_string(getuid());
}

std::string directoryProblemOf(const struct stat& st, uid_t user) {
    char text[96];
    if (!S_ISDIR(st.st_mode)) return "is not a directory";
    if (st.st_uid != user) {
        snprintf(text, sizeof(text), "is owned by uid %u, not by this user (uid %u)",
                 static_cast<unsigned>(st.st_uid), static_cast<unsigned>(user));
        return text;
    }
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        snprintf(text, sizeof(text), "is writable by group or others (mode %04o)",
                 static_cast<unsigned>(st.st_mode & 07777));
        return text;
    }
    return "";
}

std::string directoryProblem() {
    const std::string dir = runtimeDirectory();
    const std::string name = "$HOSTBINDER_DIR " + dir + " ";
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
        return name + "cannot be created: " + strerror(errno);
    }
    // Opened without following a link, then examined through the descriptor: what is checked
    // is what is used.
    int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ELOOP || errno == ENOTDIR) {
            return name + "is not a directory (a symbolic link or another file)";
        }
        return name + "cannot be opened: " + strerror(errno);
    }
    struct stat st {};
    const int rc = fstat(fd, &st);
    close(fd);
    if (rc != 0) return name + "cannot be examined: " + strerror(errno);
    std::string problem = directoryProblemOf(st, geteuid());
    return problem.empty() ? problem : name + problem;
}

bool directoryTrusted() {
    std::string problem = directoryProblem();
    if (problem.empty()) return true;
    static std::mutex mutex;
    static std::string* lastLogged = new std::string;
    std::lock_guard<std::mutex> lock(mutex);
    if (*lastLogged != problem) {
        hostbinderLog("refusing to use it: %s", problem.c_str());
        *lastLogged = problem;
    }
    return false;
}

bool declaredInList(const std::string& instance) {
    int fd = openDeclared(O_RDONLY);
    if (fd < 0) return false;
    const bool found = listHas(readList(fd), instance);
    close(fd);
    return found;
}

binder_status_t addToDeclaredList(const std::string& instance) {
    int fd = openDeclared(O_RDWR | O_APPEND | O_CREAT);
    if (fd < 0) return STATUS_PERMISSION_DENIED;
    // Services declaring at once must not interleave their lines.
    flock(fd, LOCK_EX);
    binder_status_t status = STATUS_OK;
    if (!listHas(readList(fd), instance)) {
        struct stat st {};
        char last = '\n';
        if (fstat(fd, &st) == 0 && st.st_size > 0) {
            if (pread(fd, &last, 1, st.st_size - 1) != 1) last = '\n';
        }
        // A list whose last line has no end gets one first, so our line stays our own.
        std::string line = (last == '\n' ? "" : "\n") + instance + "\n";
        if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            status = STATUS_UNKNOWN_ERROR;
        }
    }
    close(fd);  // also releases the lock
    return status;
}
