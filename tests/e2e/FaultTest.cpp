// Eight client threads keep calling every layer while the service is killed (SIGKILL) and
// restarted again and again: afterwards every call has returned, nothing crashed, the client
// works again, and it has not piled up descriptors.
#include <PaxEvent.h>
#include <dirent.h>
#include <velaHalclient.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include "E2eSupport.h"

namespace e2e {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using PaxClient::Resource;

int openDescriptors() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (readdir(dir) != nullptr) ++count;
        closedir(dir);
    }
    return count - 3;  // ".", ".." and the directory's own descriptor
}

// One call of a mix that covers both service links and the listener registry; true when the
// library reported success.
bool oneCall(int thread, uint64_t i) {
    switch ((thread + i) % 8) {
        case 0: {
            std::vector<Resource> none;
            const int32_t handle = PaxEventAcquire(0, "com.example.fault", "", 100, none);
            if (handle >= 1) PaxRelease(handle);
            return handle >= 1;
        }
        case 1: {
            velaHalclient::ResourceList list{Resource{kLittleFloor, std::to_string(i)}};
            const int handle = velaHalclient::velaResCtlRequest(50, list, 0);
            return handle >= 1 && velaHalclient::velaResCtlRelease(handle) == 0;
        }
        case 2: {
            std::vector<Resource> query{Resource{kLittleFloor, {}}, Resource{kLittleLoad, {}}};
            return PaxMutiResStateRequest(query) == 2;
        }
        case 3: {
            velaHalclient::ResourceList query{Resource{kBigFloor, {}}}, reply;
            return velaHalclient::velaResStateRequest(query, 0, reply) == 1;
        }
        case 4:
            return PaxGetPMStatus(0) >= 0;
        case 5: {
            std::unique_ptr<char[]> value(velaHalclient::velaPropertyGet("ro.vendor.vela.version"));
            return value[0] == '1';
        }
        case 6: {
            // Ids of this thread's own, so that threads never refuse each other as duplicates.
            velaHalclient::ResourceList ids{Resource{0x0101f000u + thread, {}}};
            const int handle =
                    velaHalclient::velaResListeningRegister(ids, 0, std::make_shared<Recorder>());
            return handle >= 1 && velaHalclient::velaResListeningUnRegister(handle) == 0;
        }
        default:
            return i % 2 == 0 ? PaxNotify(1, 0, {static_cast<int32_t>(i)}) == 0
                              : velaHalclient::velaDumpRunMap() == 0;
    }
}

bool clientWorks() {
    std::vector<Resource> none;
    const int32_t handle = PaxEventAcquire(0, "com.example.fault", "", 0, none);
    if (handle < 1) return false;
    PaxRelease(handle);
    velaHalclient::ResourceList query{Resource{kLittleFloor, {}}}, reply;
    return velaHalclient::velaResStateRequest(query, 0, reply) == 1;
}

TEST(FaultTest, ClientSurvivesTheServiceBeingKilledUnderLoad) {
    constexpr int kThreads = 8;
    constexpr int kKills = 6;
    const auto started = Clock::now();

    paxtest::LogCapture log;
    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH));
    ASSERT_TRUE(clientWorks());
    const int fdsBefore = openDescriptors();

    std::atomic<bool> stop{false};
    std::atomic<uint64_t> calls{0}, failures{0};
    std::atomic<int> returned{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (uint64_t i = 0; !stop; ++i) {
                if (!oneCall(t, i)) ++failures;
                ++calls;
            }
            ++returned;
        });
    }

    int kills = 0;
    std::vector<double> reconnectMs;
    for (int k = 0; k < kKills; ++k) {
        std::this_thread::sleep_for(250ms);
        service.kill();
        ++kills;
        std::this_thread::sleep_for(50ms);
        if (!service.restart()) {
            ADD_FAILURE() << "the service did not come back after kill " << kills;
            break;
        }
        const auto restarted = Clock::now();
        if (!paxtest::waitUntil(clientWorks, 10s)) {
            ADD_FAILURE() << "the client did not reconnect after kill " << kills;
            break;
        }
        reconnectMs.push_back(
                std::chrono::duration<double, std::milli>(Clock::now() - restarted).count());
    }
    std::this_thread::sleep_for(250ms);
    stop = true;

    // Every call must return: a thread stuck in the library is the failure this test is for.
    const bool allReturned = paxtest::waitUntil([&] { return returned == kThreads; }, 20s);
    for (auto& thread : threads) {
        if (allReturned) {
            thread.join();
        } else {
            thread.detach();
        }
    }
    ASSERT_TRUE(allReturned) << kThreads - returned << " client threads are stuck in a call";

    EXPECT_TRUE(clientWorks());
    const int fdsAfter = openDescriptors();
    const double elapsed = std::chrono::duration<double>(Clock::now() - started).count();
    const double worst =
            reconnectMs.empty() ? 0 : *std::max_element(reconnectMs.begin(), reconnectMs.end());
    double mean = 0;
    for (double ms : reconnectMs) mean += ms / reconnectMs.size();
    printf("fault test: %d kills, %llu calls, %llu failed, reconnect mean %.1f ms max %.1f ms, "
           "fds %d -> %d, %.1f s\n",
           kills, static_cast<unsigned long long>(calls.load()),
           static_cast<unsigned long long>(failures.load()), mean, worst, fdsBefore, fdsAfter,
           elapsed);

    EXPECT_GE(kills, 5);
    EXPECT_EQ(reconnectMs.size(), static_cast<size_t>(kills));
    EXPECT_GT(calls.load(), failures.load());
    // Connections are replaced, not added: a handful of descriptors of slack for the ones
    // the runtime is still closing.
    EXPECT_LE(fdsAfter, fdsBefore + 16);
    EXPECT_LT(elapsed, 60.0);
    killAndSettle(service, log);
}

}  // namespace
}  // namespace e2e
