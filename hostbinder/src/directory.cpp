#include "directory.h"

#include <android/binder_auto_utils.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "dispatcher.h"

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
    // The usual case in one call, on every lookup: a real directory (lstat follows no link) that
    // is ours. Anything else takes the long way below, for the line that says what is wrong.
    struct stat st {};
    if (lstat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode) &&
        directoryProblemOf(st, geteuid()).empty()) {
        return "";
    }
    const std::string name = "$HOSTBINDER_DIR " + dir + " ";
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
        return name + "cannot be created: " + strerror(errno);
    }
    // Opened without following a link, then examined through the descriptor: what is checked
    // is what is used.
    const ndk::ScopedFileDescriptor directory(
            open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (directory.get() < 0) {
        if (errno == ELOOP || errno == ENOTDIR) {
            return name + "is not a directory (a symbolic link or another file)";
        }
        return name + "cannot be opened: " + strerror(errno);
    }
    if (fstat(directory.get(), &st) != 0) return name + "cannot be examined: " + strerror(errno);
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
