// Runs a service in a child process, so tests can kill it for real (SIGKILL: no goodbye on
// the wire, the kernel closes the sockets) and start it again.
//
//   paxtest::ChildService child;
//   ASSERT_TRUE(child.startFake());   // this test program, re-run in its child role
//   ...
//   child.kill();                     // SIGKILL and reap
//   ASSERT_TRUE(child.restart());
//
// The fake role re-executes /proc/self/exe with PAX_TEST_CHILD_SERVICE=<instance> in its
// environment; the shared test main sees that variable and, instead of running tests, calls
// runChildServiceRole(): it serves a FakeVela with its default answers (everything ok,
// handles counting up from 1) and joins the thread pool until it is killed.
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

inline constexpr const char kChildServiceEnv[] = "PAX_TEST_CHILD_SERVICE";

// The child role of the shared test main: serves a FakeVela under `instance` and never
// returns normally (the exit code is non-zero when serving failed).
int runChildServiceRole(const char* instance);

class ChildService {
public:
    static constexpr std::chrono::milliseconds kStartTimeout{10000};

    explicit ChildService(std::string instance = kVelaInstance);
    // Kills the child if it still runs.
    ~ChildService();
    ChildService(const ChildService&) = delete;
    ChildService& operator=(const ChildService&) = delete;

    // Starts this test program in its fake-service role and waits until the service answers
    // AServiceManager_checkService. False (test failure recorded, child killed) if it exited
    // or did not answer in time.
    bool startFake(std::chrono::milliseconds timeout = kStartTimeout);
    // Starts `path` with `args` (argv[1..]) and `extraEnv` ("NAME=value") added to this
    // process's environment, with the same wait as startFake().
    bool startExecutable(const std::string& path, const std::vector<std::string>& args = {},
                         const std::vector<std::string>& extraEnv = {},
                         std::chrono::milliseconds timeout = kStartTimeout);
    // SIGKILL and reap; returns once this process sees the service gone
    // (waitUntilUnreachable). Harmless when not running.
    void kill();
    // SIGTERM, wait up to `timeout` for the child to exit (SIGKILL after that), reap, and
    // wait as kill() does. Returns the raw wait status, or -1 when nothing was running.
    int terminate(std::chrono::milliseconds timeout = kStartTimeout);
    // kill(), then start again the same way as the last start.
    bool restart(std::chrono::milliseconds timeout = kStartTimeout);

    // True while the child has not exited (reaps it when it has).
    bool running();
    pid_t pid() const { return mPid; }
    const std::string& instance() const { return mInstance; }

private:
    bool launch(std::chrono::milliseconds timeout);
    bool waitUntilServing(std::chrono::milliseconds timeout);
    void forgetService();

    std::string mInstance;
    std::string mPath;
    std::vector<std::string> mArgs;
    std::vector<std::string> mEnv;
    pid_t mPid = -1;
};

}  // namespace paxtest
