// Eight client threads keep calling every layer while the service is killed (SIGKILL) and
// restarted again and again: afterwards every call has returned, nothing crashed, the client
// works again, and it has not piled up descriptors.
#include <PaxEvent.h>
#include <velaHalclient.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "E2eSupport.h"

namespace e2e {
namespace {

using namespace std::chrono_literals;
using namespace velaHalclient;
using Clock = std::chrono::steady_clock;
using PaxClient::Resource;

int openDescriptors() {
    namespace fs = std::filesystem;
    const auto all =
            std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{});
    return static_cast<int>(all) - 1;  // not the directory's own descriptor
}

bool paxEventWorks(int32_t duration) {
    std::vector<Resource> none;
    const int32_t handle = PaxEventAcquire(0, "com.example.fault", "", duration, none);
    if (handle >= 1) PaxRelease(handle);
    return handle >= 1;
}

// One call of a mix that covers both service links and the listener registry; true when the
// library reported success.
bool oneCall(int thread, uint64_t i) {
    std::vector<Resource> query{Resource{kLittleFloor, {}}, Resource{kLittleLoad, {}}};
    ResourceList list{Resource{kLittleFloor, std::to_string(i)}}, big{Resource{kBigFloor, {}}};
    ResourceList reply;
    // Ids of this thread's own, so that threads never refuse each other as duplicates.
    ResourceList ids{Resource{0x0101f000u + thread, {}}};
    int handle = 0;
    std::unique_ptr<char[]> value;
    switch ((thread + i) % 8) {
        case 0:
            return paxEventWorks(100);
        case 1:
            handle = velaResCtlRequest(50, list, 0);
            return handle >= 1 && velaResCtlRelease(handle) == 0;
        case 2:
            return PaxMutiResStateRequest(query) == 2;
        case 3:
            return velaResStateRequest(big, 0, reply) == 1;
        case 4:
            return PaxGetPMStatus(0) >= 0;
        case 5:
            value.reset(velaPropertyGet("ro.vendor.vela.version"));
            return value[0] == '1';
        case 6:
            handle = velaResListeningRegister(ids, 0, std::make_shared<Recorder>());
            return handle >= 1 && velaResListeningUnRegister(handle) == 0;
        default:
            return i % 2 == 0 ? PaxNotify(1, 0, {static_cast<int32_t>(i)}) == 0
                              : velaDumpRunMap() == 0;
    }
}

bool clientWorks() {
    ResourceList query{Resource{kLittleFloor, {}}}, reply;
    return paxEventWorks(0) && velaResStateRequest(query, 0, reply) == 1;
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
            for (uint64_t i = 0; !stop; ++i, ++calls) failures += !oneCall(t, i);
            ++returned;
        });
    }

    // A service that does not come back or a client that does not reconnect ends the kills
    // early, which the figures below catch. Never return while the callers run.
    int kills = 0;
    std::vector<double> reconnectMs;
    while (kills < kKills) {
        std::this_thread::sleep_for(250ms);
        service.kill();
        ++kills;
        std::this_thread::sleep_for(50ms);
        const bool back = service.restart();
        const auto restarted = Clock::now();
        if (!back || !paxtest::waitUntil(clientWorks, 10s)) break;
        reconnectMs.push_back(
                std::chrono::duration<double, std::milli>(Clock::now() - restarted).count());
    }
    std::this_thread::sleep_for(250ms);
    stop = true;

    // Every call must return: a thread stuck in the library is the failure this test is for.
    const bool allReturned = paxtest::waitUntil([&] { return returned == kThreads; }, 20s);
    for (auto& thread : threads) allReturned ? thread.join() : thread.detach();
    ASSERT_TRUE(allReturned) << kThreads - returned << " client threads are stuck in a call";

    EXPECT_TRUE(clientWorks());
    const int fdsAfter = openDescriptors();
    const double elapsed = std::chrono::duration<double>(Clock::now() - started).count();
    const double worst =
            reconnectMs.empty() ? 0 : *std::max_element(reconnectMs.begin(), reconnectMs.end());
    const double mean = std::accumulate(reconnectMs.begin(), reconnectMs.end(), 0.0) /
                        std::max<size_t>(reconnectMs.size(), 1);
    printf("fault test: %d kills, %llu calls, %llu failed, reconnect mean %.1f ms max %.1f ms, "
           "fds %d -> %d, %.1f s\n",
           kills, static_cast<unsigned long long>(calls.load()),
           static_cast<unsigned long long>(failures.load()), mean, worst, fdsBefore, fdsAfter,
           elapsed);

    EXPECT_EQ(reconnectMs.size(), static_cast<size_t>(kKills))
            << "the service or the client did not come back after kill " << kills;
    EXPECT_GT(calls.load(), failures.load());
    // Connections are replaced, not added: a handful of descriptors of slack for the ones
    // the runtime is still closing.
    EXPECT_LE(fdsAfter, fdsBefore + 16);
    EXPECT_LT(elapsed, 60.0);
    killAndSettle(service, log);
}

}  // namespace
}  // namespace e2e
