// Runs a service executable in a child process, so tests can kill it for real (SIGKILL: no
// goodbye on the wire, the kernel closes the sockets) and start it again.
//
//   paxtest::ChildService service;
//   ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH, {"--sysfs-root", root}));
//   ...
//   service.kill();                     // SIGKILL and reap
//   ASSERT_TRUE(service.restart());
//
// The child inherits the environment, so it uses the same socket directory as the test. It
// asks to be killed when the thread that started it exits, so a crashed test leaves no
// service behind; start children from the test's main thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "ServiceHarness.h"

namespace paxtest {

class ChildService {
public:
    static constexpr std::chrono::milliseconds kStartTimeout{10000};

    ChildService() = default;
    // Kills the child if it still runs.
    ~ChildService();
    ChildService(const ChildService&) = delete;
    ChildService& operator=(const ChildService&) = delete;

    // Starts `path` with `args` (argv[1..]) and waits (up to kStartTimeout) until the service
    // answers AServiceManager_checkService. False (test failure recorded, child killed) if it
    // exited or did not answer in time.
    bool startExecutable(const std::string& path, const std::vector<std::string>& args = {});
    // SIGKILL and reap; returns once this process sees the service gone
    // (waitUntilUnreachable). Harmless when not running.
    void kill();
    // kill(), then start again the same way as the last start.
    bool restart();

    // True while the child has not exited (reaps it when it has).
    bool running();
    // The child's pid (for SIGSTOP and SIGCONT), -1 when none runs.
    pid_t pid() const { return mPid; }

private:
    bool launch();
    bool waitUntilServing();

    std::string mPath;
    std::vector<std::string> mArgs;
    pid_t mPid = -1;
};

}  // namespace paxtest
