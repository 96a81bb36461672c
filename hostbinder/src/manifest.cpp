#include "manifest.h"

#include <android/binder_auto_utils.h>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "dispatcher.h"
#include "manifest_xml.h"

namespace {

// Larger than any honest fragment, and than the most fragments a directory may hold: past
// these the manifest is refused, never read in part.
constexpr size_t kFragmentLimit = 64 * 1024;
constexpr size_t kMaxFragments = 256;

// A file or directory that this user or root made and nobody else can change.
std::string untrustedBecause(const struct stat& st) {
    if (st.st_uid != geteuid() && st.st_uid != 0) {
        return "is owned by uid " + std::to_string(st.st_uid) + ", neither this user nor root";
    }
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "is writable by group or others";
    return "";
}

// One line per distinct problem: a refused manifest is read again on every lookup, and a broken
// fragment must not become a flood.
void refuse(const std::string& problem) {
    static std::mutex mutex;
    static std::string* lastLogged = new std::string;
    std::lock_guard<std::mutex> lock(mutex);
    if (*lastLogged == problem) return;
    *lastLogged = problem;
    hostbinderLog("declaring nothing: %s", problem.c_str());
}

bool readWhole(int fd, std::string* text) {
    text->assign(kFragmentLimit + 1, '\0');
    size_t got = 0;
    while (got < text->size()) {
        const ssize_t n = read(fd, text->data() + got, text->size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return false;
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    text->resize(got);
    return true;
}

// What a stat says about a file that a change to it would alter: which file it is, its size,
// its times (an edit in place moves mtime; a chmod or chown moves ctime) and its owner and mode.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    mode_t mode = 0;
    uid_t owner = 0;
    timespec modified{};
    timespec changed{};

    static FileIdentity of(const struct stat& st) {
        return {st.st_dev, st.st_ino, st.st_size, st.st_mode, st.st_uid, st.st_mtim, st.st_ctim};
    }
    bool operator==(const FileIdentity& o) const {
        return device == o.device && inode == o.inode && size == o.size && mode == o.mode &&
               owner == o.owner && modified.tv_sec == o.modified.tv_sec &&
               modified.tv_nsec == o.modified.tv_nsec && changed.tv_sec == o.changed.tv_sec &&
               changed.tv_nsec == o.changed.tv_nsec;
    }
    // A content change in the same clock tick as a reading can leave mtime as it was (owner,
    // mode and identity are compared exactly, so only mtime needs to be older than the reading).
    bool modifiedBefore(const timespec& t) const {
        return modified.tv_sec < t.tv_sec ||
               (modified.tv_sec == t.tv_sec && modified.tv_nsec < t.tv_nsec);
    }
};

// One whole reading of the manifest, and what each file it read looked like.
struct ManifestReading {
    std::string directory;
    uid_t reader = 0;
    FileIdentity directoryIdentity;
    std::vector<std::pair<std::string, FileIdentity>> fragments;
    std::vector<std::string> instances;
};

// Reads one fragment into `reading`; otherwise says why not.
std::string readFragment(int dirFd, const std::string& name, ManifestReading* reading) {
    const ndk::ScopedFileDescriptor file(
            openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    const int fd = file.get();
    if (fd < 0) return std::string("cannot be opened: ") + strerror(errno);
    struct stat st {};
    std::string problem;
    std::string text;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        problem = "is not a regular file";
    } else if (problem = untrustedBecause(st); problem.empty()) {
        if (!readWhole(fd, &text)) {
            problem = std::string("cannot be read: ") + strerror(errno);
        } else if (text.size() > kFragmentLimit) {
            problem = "is larger than " + std::to_string(kFragmentLimit) + " bytes";
        } else if (std::string why; !aidlInstancesOfManifest(text, &reading->instances, &why)) {
            problem = "is not a manifest: " + why;
        }
    }
    if (problem.empty()) reading->fragments.emplace_back(name, FileIdentity::of(st));
    return problem;
}

// Reads every fragment in `dir`; false when the manifest is refused.
bool readManifest(const std::string& dir, ManifestReading* reading) {
    const ndk::ScopedFileDescriptor directory(
            open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const int dirFd = directory.get();
    if (dirFd < 0) {
        // No directory is an empty manifest, as on a device with no fragments.
        if (errno != ENOENT) refuse(dir + " cannot be opened: " + strerror(errno));
        return false;
    }
    struct stat st {};
    std::string problem = fstat(dirFd, &st) == 0 ? untrustedBecause(st) : strerror(errno);
    reading->directoryIdentity = FileIdentity::of(st);
    std::vector<std::string> names;
    if (problem.empty()) {
        // The listing takes a descriptor of its own and closes it with closedir.
        ndk::ScopedFileDescriptor listFd(dup(dirFd));
        DIR* listing = listFd.get() < 0 ? nullptr : fdopendir(listFd.get());
        if (listing != nullptr) listFd.release();
        if (listing == nullptr) {
            problem = std::string("cannot be listed: ") + strerror(errno);
        } else {
            // Fragments are the .xml files; a name with a leading dot is one being written.
            while (const dirent* entry = readdir(listing)) {
                const std::string name = entry->d_name;
                if (name[0] != '.' && name.size() > 4 &&
                    name.compare(name.size() - 4, 4, ".xml") == 0) {
                    names.push_back(name);
                }
            }
            closedir(listing);
            if (names.size() > kMaxFragments) {
                problem = "holds more than " + std::to_string(kMaxFragments) + " fragments";
            }
        }
    }
    if (!problem.empty()) {
        refuse(dir + " " + problem);
        return false;
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        problem = readFragment(dirFd, name, reading);
        if (!problem.empty()) {
            refuse(dir + "/" + name + " " + problem);
            return false;
        }
    }
    return true;
}

// Whether `reading` still describes the directory: a stat of it and of each fragment, where a
// reading costs a dozen calls and a parse (and a client that polls for its service looks on
// every try). A fragment added, removed or renamed into place changes the directory's times; an
// edit in place changes the fragment's.
bool stillCurrent(const ManifestReading& reading, const std::string& dir) {
    if (reading.directory != dir || reading.reader != geteuid()) return false;
    struct stat st {};
    if (fstatat(AT_FDCWD, dir.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
        !(FileIdentity::of(st) == reading.directoryIdentity)) {
        return false;
    }
    std::string path = dir + "/";
    const size_t base = path.size();
    for (const auto& [name, identity] : reading.fragments) {
        path.resize(base);
        path += name;
        if (fstatat(AT_FDCWD, path.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
            !(FileIdentity::of(st) == identity)) {
            return false;
        }
    }
    return true;
}

// File times come from a clock that lags the real one by a tick, and some file systems keep
// them to the second (FAT to two): an edit made in the same tick as a reading can leave mtime
// as it was. So a reading is kept only when everything it read was last modified well before
// it began; the robust choice, paid only in the first seconds after a fragment changes.
constexpr time_t kSettledSeconds = 2;

std::mutex gReadingMutex;
std::shared_ptr<const ManifestReading>& keptReading() {
    static auto* kept = new std::shared_ptr<const ManifestReading>;
    return *kept;
}

// The manifest as it is now: the kept reading while nothing changed, else a new one. Null
// when the manifest is refused (never kept, so that it is looked at again on each lookup).
std::shared_ptr<const ManifestReading> currentManifest() {
    const std::string dir = manifestDirectory();
    std::shared_ptr<const ManifestReading> kept;
    {
        std::lock_guard<std::mutex> lock(gReadingMutex);
        kept = keptReading();
    }
    if (kept != nullptr && stillCurrent(*kept, dir)) return kept;

    timespec began{};
    clock_gettime(CLOCK_REALTIME, &began);
    auto reading = std::make_shared<ManifestReading>();
    reading->directory = dir;
    reading->reader = geteuid();
    if (!readManifest(dir, reading.get())) return nullptr;
    std::sort(reading->instances.begin(), reading->instances.end());
    timespec settled = began;
    settled.tv_sec -= kSettledSeconds;
    bool keep = reading->directoryIdentity.modifiedBefore(settled);
    for (const auto& fragment : reading->fragments) {
        keep = keep && fragment.second.modifiedBefore(settled);
    }
    if (keep) {
        std::lock_guard<std::mutex> lock(gReadingMutex);
        keptReading() = reading;
    }
    return reading;
}

}  // namespace

static std::string manifestDirectoryBesideLibrary();

// Beside the library, where an install puts it: the build records the way from the library's
// directory to the fragments' (by default ../etc/vintf/manifest), and lays the build tree out
// the same way, so a service and a client run from the build tree or from any install prefix
// agree with no setting at all. The variable is for everything else (tests, a private
// declaration, a prefix moved after the build).
std::string manifestDirectory() {
    const char* env = getenv("HOSTBINDER_VINTF_DIR");
    if (env != nullptr && env[0] != '\0') return env;
    // Where the library lies does not change while it is loaded: found once, not per lookup.
    static const std::string besideLibrary = manifestDirectoryBesideLibrary();
    return besideLibrary;
}

static std::string manifestDirectoryBesideLibrary() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&manifestDirectory), &info) == 0 ||
        info.dli_fname == nullptr) {
        return HOSTBINDER_VINTF_FROM_LIB;
    }
    char real[PATH_MAX];
    std::string library = realpath(info.dli_fname, real) != nullptr ? real : info.dli_fname;
    const size_t slash = library.rfind('/');
    const std::string libDir = slash == std::string::npos ? "." : library.substr(0, slash);
    const std::string fromLib = HOSTBINDER_VINTF_FROM_LIB;
    if (fromLib[0] == '/') return fromLib;
    // Resolved when it exists, so that what a user is shown names the directory plainly.
    const std::string dir = libDir + "/" + fromLib;
    return realpath(dir.c_str(), real) != nullptr ? real : dir;
}

bool manifestDeclares(const std::string& instance) {
    const std::shared_ptr<const ManifestReading> manifest = currentManifest();
    return manifest != nullptr &&
           std::binary_search(manifest->instances.begin(), manifest->instances.end(), instance);
}

bool isValidServiceName(const std::string& name) {
    if (name.empty() || name.size() > 127) return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.' || c == '/';
        if (!ok) return false;
    }
    return true;
}

binder_status_t writeManifestFragment(const std::string& instance) {
    const size_t slash = instance.find('/');
    const size_t dot = slash == std::string::npos ? std::string::npos : instance.rfind('.', slash);
    if (!isValidServiceName(instance) || dot == std::string::npos || dot == 0 ||
        slash == instance.size() - 1) {
        return STATUS_BAD_VALUE;
    }
    const std::string dir = manifestDirectory();
    if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return STATUS_PERMISSION_DENIED;
    std::string fileName = instance;
    std::replace(fileName.begin(), fileName.end(), '/', '@');
    const std::string text =
            "<manifest version=\"1.0\" type=\"device\">\n"
            "    <hal format=\"aidl\">\n"
            "        <name>" +
            instance.substr(0, dot) +
            "</name>\n"
            "        <fqname>" +
            instance.substr(dot + 1) +
            "</fqname>\n"
            "    </hal>\n"
            "</manifest>\n";
    // Written aside and renamed into place, so a reader sees the fragment whole or not at all.
    static std::atomic<uint32_t> counter{0};
    const std::string staging = dir + "/." + fileName + "." + std::to_string(getpid()) + "." +
                                std::to_string(counter.fetch_add(1));
    ndk::ScopedFileDescriptor file(
            open(staging.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (file.get() < 0) return STATUS_PERMISSION_DENIED;
    const bool written =
            write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    // The one close whose result matters: a write the file system defers can fail only here,
    // and a fragment that did not reach the disk whole must not be renamed into place.
    const bool closed = close(file.release()) == 0;
    if (!written || !closed ||
        rename(staging.c_str(), (dir + "/" + fileName + ".xml").c_str()) != 0) {
        unlink(staging.c_str());
        return STATUS_UNKNOWN_ERROR;
    }
    return STATUS_OK;
}
