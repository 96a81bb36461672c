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
#include <mutex>
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

// One line per distinct problem: the manifest is read on every lookup, and a broken fragment
// must not become a flood.
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

// Reads one fragment into `instances`; otherwise says why not.
std::string readFragment(int dirFd, const std::string& name, std::vector<std::string>* instances) {
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
        } else if (std::string why; !aidlInstancesOfManifest(text, instances, &why)) {
            problem = "is not a manifest: " + why;
        }
    }
    return problem;
}

// Every instance the directory's fragments declare; false when the manifest is refused.
bool declaredInstances(std::vector<std::string>* instances) {
    const std::string dir = manifestDirectory();
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
        problem = readFragment(dirFd, name, instances);
        if (!problem.empty()) {
            refuse(dir + "/" + name + " " + problem);
            return false;
        }
    }
    return true;
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
    std::vector<std::string> instances;
    if (!declaredInstances(&instances)) return false;
    return std::find(instances.begin(), instances.end(), instance) != instances.end();
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
    const int fd =
            open(staging.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0) return STATUS_PERMISSION_DENIED;
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    const bool closed = close(fd) == 0;
    if (!written || !closed ||
        rename(staging.c_str(), (dir + "/" + fileName + ".xml").c_str()) != 0) {
        unlink(staging.c_str());
        return STATUS_UNKNOWN_ERROR;
    }
    return STATUS_OK;
}
