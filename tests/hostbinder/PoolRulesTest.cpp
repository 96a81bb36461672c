// How many calls a process serves at once (ProcessState.cpp: startThreadPool starts one thread,
// and only then may the driver have up to setThreadPoolMaxThreadCount(n) more started, n being
// 15 when never set; each joinThreadPool adds the joining thread). A call beyond them waits
// for one to be free. Each case runs in a child, as the test program itself starts a pool.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include "Probe.h"

using namespace hbtest;

namespace {

constexpr transaction_code_t kHold = FIRST_CALL_TRANSACTION;

// Calls that stay in the service until released, counting how many run at once.
class Holds {
public:
    binder_status_t hold() {
        std::unique_lock<std::mutex> lock(mMutex);
        ++mStarted;
        mMost = std::max(mMost, ++mRunning);
        mChanged.notify_all();
        mChanged.wait(lock, [&] { return mReleased > 0; });
        --mReleased;
        --mRunning;
        return STATUS_OK;
    }
    // Waits until `n` calls have started; false after a generous minute.
    bool waitStarted(int n) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, std::chrono::minutes(1), [&] { return mStarted >= n; });
    }
    void release(int n) {
        std::lock_guard<std::mutex> lock(mMutex);
        mReleased += n;
        mChanged.notify_all();
    }
    int running() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mRunning;
    }
    int most() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mMost;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    int mStarted = 0;
    int mRunning = 0;
    int mMost = 0;
    int mReleased = 0;
};

// Serves a holding probe in this process, sends `expected` + 1 calls to it from plain threads
// (which read their own replies and serve nothing), and checks that `expected` run at once and
// the last one only once a thread is free. `startPool` runs once the probe is served.
int servesAtOnce(const char* instance, int expected, void (*startPool)()) {
    static Holds holds;
    ndk::SpAIBinder probe =
            newProbe([](transaction_code_t, const AParcel*, AParcel*) { return holds.hold(); });
    if (!serveProbe(probe, instance)) return 3;
    std::atomic<int> failed{0};
    std::thread checker([&] {
        std::vector<std::thread> callers;
        for (int i = 0; i < expected + 1; ++i) {
            callers.emplace_back([&] {
                ndk::SpAIBinder remote(AServiceManager_checkService(instance));
                if (!asProbe(remote) || callProbe(remote, kHold, nullptr) != STATUS_OK) ++failed;
            });
        }
        int result = 0;
        if (!holds.waitStarted(expected)) {
            result = 4;
        } else {
            // Gives a call beyond the limit the chance to show up, were it let in; nothing is
            // judged by the time.
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (holds.running() != expected) result = 5;
            holds.release(1);  // a thread is free: the waiting call now runs
            if (result == 0 && !holds.waitStarted(expected + 1)) result = 6;
        }
        holds.release(expected + 1);
        for (auto& caller : callers) caller.join();
        if (result == 0 && (failed > 0 || holds.most() != expected)) result = 7;
        _exit(result);
    });
    startPool();
    checker.join();  // never reached when the pool was joined: the checker exits the process
    return 8;
}

[[maybe_unused]] const int neverSetRole = childRole("pool-never-set", [] {
    return servesAtOnce("hostbinder.test.IProbe/pool1", 16,
                        [] { ABinderProcess_startThreadPool(); });
});
[[maybe_unused]] const int setRole = childRole("pool-set-2", [] {
    return servesAtOnce("hostbinder.test.IProbe/pool2", 3, [] {
        ABinderProcess_setThreadPoolMaxThreadCount(2);
        ABinderProcess_startThreadPool();
    });
});
[[maybe_unused]] const int joinRole = childRole("pool-join-only", [] {
    return servesAtOnce("hostbinder.test.IProbe/pool3", 1, [] {
        ABinderProcess_setThreadPoolMaxThreadCount(8);
        ABinderProcess_joinThreadPool();
    });
});
[[maybe_unused]] const int startAndJoinRole = childRole("pool-start-and-join", [] {
    return servesAtOnce("hostbinder.test.IProbe/pool4", 2, [] {
        ABinderProcess_setThreadPoolMaxThreadCount(0);
        ABinderProcess_startThreadPool();
        ABinderProcess_joinThreadPool();
    });
});

constexpr const char* kQuietInstance = "hostbinder.test.IProbe/quiet";

// How often this process's threads other than the calling one went to sleep, i.e. were woken.
long othersSleeps() {
    const std::string self = std::to_string(syscall(SYS_gettid));
    long total = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == self) continue;
        std::ifstream status(task.path() / "status");
        std::string word;
        while (status >> word) {
            long n = 0;
            if (word == "voluntary_ctxt_switches:" && status >> n) total += n;
        }
    }
    return total;
}

// Makes calls that carry no binder, with idle binder threads standing by.
int callWithIdleThreads() {
    ABinderProcess_startThreadPool();
    ndk::SpAIBinder service(AServiceManager_waitForService(kQuietInstance));
    if (!asProbe(service) || callProbe(service, kHold, nullptr) != STATUS_OK) return 3;
    constexpr int kCalls = 500;
    const long before = othersSleeps();
    for (int i = 0; i < kCalls; ++i) {
        if (callProbe(service, kHold, nullptr) != STATUS_OK) return 4;
    }
    const long woken = othersSleeps() - before;
    // A sleeping thread still wakes twice a second to look after its connections.
    if (woken >= kCalls / 10) {
        fprintf(stderr, "idle binder threads woke %ld times during %d calls\n", woken, kCalls);
        return 5;
    }
    return 0;
}
[[maybe_unused]] const int quietRole = childRole("pool-quiet", callWithIdleThreads);

}  // namespace

// Device: the driver hands a reply to the thread that waits for it; the process's idle
// threads sleep through it.
TEST(PoolRules, RepliesDoNotWakeTheIdleThreads) {
    ndk::SpAIBinder probe =
            newProbe([](transaction_code_t, const AParcel*, AParcel*) { return STATUS_OK; });
    ASSERT_TRUE(serveProbe(probe, kQuietInstance));
    EXPECT_EQ(0, runChild("pool-quiet"));
    HostBinder_stopService(kQuietInstance);
}

// Device, case by case: never set, the started thread plus 15 the driver asks for; max 2 then
// started, three; join only, the joined thread alone whatever the maximum (no thread is ever
// added without startThreadPool); started and joined with a maximum of 0, those two.
TEST(PoolRules, CallsServedAtOnceFollowTheDevicesPool) {
    for (const char* role :
         {"pool-never-set", "pool-set-2", "pool-join-only", "pool-start-and-join"}) {
        EXPECT_EQ(0, runChild(role)) << role;
    }
}
