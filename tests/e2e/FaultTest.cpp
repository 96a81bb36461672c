// Eight client threads keep calling every layer while the service is killed (SIGKILL) and
// restarted again and again: afterwards every call has returned, nothing crashed, the client
// works again, and it has not piled up descriptors.
#include <PaxEvent.h>
#include <velaHalclient.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <thread>
#include <vector>

#include "E2eSupport.h"

namespace e2e {
namespace {

using namespace std::chrono_literals;
using namespace velaHalclient;
using PaxClient::Resource;

int openDescriptors() {
    namespace fs = std::filesystem;
    return static_cast<int>(
            std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{}));
}

bool paxEventWorks(int32_t duration) {
    std::vector<Resource> none;
    const int32_t handle = PaxEventAcquire(0, "com.example.fault", "", duration, none);
    if (handle >= 1) PaxRelease(handle);
    return handle >= 1;
}

// One call of a mix that covers both service links, answers through callbacks and the
// listener registry.
void oneCall(int thread, uint64_t i) {
    std::vector<Resource> query{Resource{kLittleFloor, {}}, Resource{kLittleLoad, {}}};
    ResourceList list{Resource{kLittleFloor, std::to_string(i)}}, big{Resource{kBigFloor, {}}}, out;
    // Ids of this thread's own, so that threads never refuse each other as duplicates.
    ResourceList ids{Resource{0x0101f000u + thread, {}}};
    switch ((thread + i) % 8) {
        case 0:
            paxEventWorks(100);
            break;
        case 1:
            velaResCtlRelease(velaResCtlRequest(50, list, 0));
            break;
        case 2:
            PaxMutiResStateRequest(query);
            break;
        case 3:
            velaResCtlRequest(-1, 0, list, -1, 0, 0, std::make_shared<Recorder>());
            break;
        case 4:
            PaxGetPMStatus(0);
            break;
        case 5:
            delete[] velaPropertyGet("ro.vendor.vela.version");
            break;
        case 6:
            velaResListeningUnRegister(
                    velaResListeningRegister(ids, 0, std::make_shared<Recorder>()));
            break;
        default:
            i % 2 == 0 ? PaxNotify(1, 0, {static_cast<int32_t>(i)})
                       : velaResStateRequest(big, 0, out);
    }
}

bool clientWorks() {
    ResourceList query{Resource{kLittleFloor, {}}}, reply;
    return paxEventWorks(0) && velaResStateRequest(query, 0, reply) == 1;
}

TEST(FaultTest, ClientSurvivesTheServiceBeingKilledUnderLoad) {
    constexpr int kThreads = 8;
    paxtest::LogCapture log;
    paxtest::ChildService service;
    ASSERT_TRUE(service.startExecutable(VELA_SERVICE_PATH));
    ASSERT_TRUE(clientWorks());
    const int fdsBefore = openDescriptors();

    std::atomic<bool> stop{false};
    std::atomic<uint64_t> calls{0};
    std::atomic<int> returned{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (uint64_t i = 0; !stop; ++i, ++calls) oneCall(t, i);
            ++returned;
        });
    }
    // The pauses only let the callers run between kills; nothing waits on them.
    for (int kill = 0; kill < 6; ++kill) {
        std::this_thread::sleep_for(250ms);
        service.kill();
        if (!service.restart() || !paxtest::waitUntil(clientWorks, 10s)) {
            ADD_FAILURE() << "the service or the client did not come back after kill " << kill;
            break;
        }
    }
    stop = true;

    // Every call must return: a thread stuck in the library is the failure this test is for.
    const bool allReturned = paxtest::waitUntil([&] { return returned == kThreads; }, 20s);
    for (auto& thread : threads) allReturned ? thread.join() : thread.detach();
    ASSERT_TRUE(allReturned) << kThreads - returned << " client threads are stuck in a call";
    EXPECT_GT(calls.load(), 100u);
    EXPECT_TRUE(clientWorks());
    // Connections are replaced, not added: a handful of descriptors of slack for the ones
    // the runtime is still closing.
    EXPECT_LE(openDescriptors(), fdsBefore + 16);
    killAndSettle(service, log);
}

}  // namespace
}  // namespace e2e
