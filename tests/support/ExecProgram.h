// Starts another program of this build in a forked child. In a cross build the tests run under
// a user-mode emulator and the kernel cannot start a foreign binary by itself, so the child is
// started through the same emulator (PAX_TEST_EMULATOR, set by the build); in a native build it
// is a plain exec.
//
// Build the command before fork and call exec() in the child: between fork and exec only
// async-signal-safe calls are allowed (another thread may hold the allocator's lock), and
// exec() makes none but execve and _exit.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace paxtest {

class ChildCommand {
public:
    // `argv` holds argv[0] first; empty means argv[0] is the path. `env` entries ("NAME=value")
    // are added to this process's environment for the child.
    ChildCommand(std::string path, std::vector<std::string> argv, std::vector<std::string> env = {})
        : mEnvWords(std::move(env)) {
        if (path == "/proc/self/exe") {
            // The emulator would read that link as its own binary: resolve it here.
            char real[PATH_MAX];
            const ssize_t n = readlink("/proc/self/exe", real, sizeof(real) - 1);
            if (n > 0) path.assign(real, static_cast<size_t>(n));
        }
        if (argv.empty()) argv.push_back(path);
        const std::string emulator = PAX_TEST_EMULATOR;
        if (emulator.empty() || !builtForTheEmulator(path)) {
            mProgram = path;
            mWords = std::move(argv);
        } else {
            // qemu's -0 keeps argv[0], which some children read to learn their role.
            mProgram = emulator;
            mWords = {emulator, "-0", argv.front(), path};
            mWords.insert(mWords.end(), argv.begin() + 1, argv.end());
        }
        for (auto& w : mWords) mRaw.push_back(w.data());
        mRaw.push_back(nullptr);
        for (auto& e : mEnvWords) mEnv.push_back(e.data());
        for (char** e = environ; *e != nullptr; ++e) mEnv.push_back(*e);
        mEnv.push_back(nullptr);
    }

    [[noreturn]] void exec() const {
        execve(mProgram.c_str(), mRaw.data(), mEnv.data());
        _exit(127);
    }

private:
    // A program of this build is started through the emulator; the machine's own (a shell)
    // is started as it is, or the emulator would refuse it as foreign.
    static bool builtForTheEmulator(const std::string& path) {
        unsigned char header[20] = {};
        FILE* file = fopen(path.c_str(), "rb");
        if (file == nullptr) return true;  // let the emulator say what is wrong with it
        const size_t got = fread(header, 1, sizeof(header), file);
        fclose(file);
        constexpr unsigned kAarch64 = 183;  // e_machine, little-endian at offset 18
        return got == sizeof(header) &&
               memcmp(header,
                      "\x7f"
                      "ELF",
                      4) == 0 &&
               (header[18] | header[19] << 8) == kAarch64;
    }

    std::string mProgram;
    std::vector<std::string> mWords;
    std::vector<char*> mRaw;
    std::vector<std::string> mEnvWords;
    std::vector<char*> mEnv;
};

// A path the kernel itself can start, for a program of this build that another program starts
// (a shell, or velactl's `-- COMMAND`): the program itself natively; in a cross build, a script
// beside it (PATH.native) that starts it through the emulator. Each test process writes its own
// copy and renames it into place, so tests running at once never see half a script.
inline std::string kernelRunnable(const std::string& path) {
    const std::string emulator = PAX_TEST_EMULATOR;
    if (emulator.empty()) return path;
    const std::string script = path + ".native";
    const std::string mine = script + "." + std::to_string(getpid());
    FILE* file = fopen(mine.c_str(), "w");
    if (file == nullptr) return path;
    fprintf(file, "#!/bin/sh\nexec %s %s \"$@\"\n", emulator.c_str(), path.c_str());
    const bool written = fclose(file) == 0 && chmod(mine.c_str(), 0755) == 0 &&
                         rename(mine.c_str(), script.c_str()) == 0;
    return written ? script : path;
}

}  // namespace paxtest
