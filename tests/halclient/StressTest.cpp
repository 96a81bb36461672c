// Many callers while the service goes away and comes back: every call must return, with no
// crash, deadlock or data race (this test is meant to run under ThreadSanitizer too).
#include <atomic>
#include <future>
#include <map>
#include <thread>

#include "HalclientFixture.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using namespace std::chrono_literals;
using paxtest::Answer;
using paxtest::makeItem;

void mixedRequests(int thread, int round) {
    auto receiver = std::make_shared<Receiver>();
    auto byPath = std::make_shared<PathReceiver>();
    ResourceList list{{static_cast<uint32_t>(0x100 + thread), "1"}};
    ResourceList reply;
    std::vector<std::string> out;
    switch ((thread + round) % 8) {
        case 0:
            velaResCtlRelease(velaResCtlRequest(1, list, 0));
            break;
        case 1:
            velaResCtlRequest(1, 2, list, 3, 4, 5, receiver);
            break;
        case 2:
            velaResStateRequest(list, 0, reply);
            break;
        case 3: {
            ResourceList key{{static_cast<uint32_t>(thread * 1000 + round), "1"}};
            velaResListeningUnRegister(velaResListeningRegister(key, 0, receiver));
            break;
        }
        case 4:
            vela_resctl_request_with_callback_by_path(1, 2, {"a"}, {"1"}, 3, 4, 5, byPath);
            break;
        case 5:
            vela_res_state_request_by_path({"a"}, {}, 0, out);
            break;
        case 6:
            velaThermalListeningRegister({thread}, receiver);
            break;
        default:
            delete[] velaPropertyGet("k");
            velaDumpResInfo();
            break;
    }
}

TEST_F(HalclientTest, CallersSurviveTheServiceRestartingUnderThem) {
    // Answers arrive while requests are in flight, as a real service's would.
    fake->setDefault("resCtlRequest", Answer::ok().withNestedCallback({makeItem(0, 0, "1", "a")}));
    fake->setDefault("resStateRequest", Answer::items({makeItem(0x100, 0, "1", "a")}));

    constexpr int kThreads = 8;
    std::atomic<bool> stop{false};
    std::atomic<int> calls{0};
    std::vector<std::future<void>> callers;
    // Callers stop however the test ends; their futures wait for them on the way out.
    struct StopOnExit {
        std::atomic<bool>& stop;
        ~StopOnExit() { stop = true; }
    };
    const StopOnExit stopOnExit{stop};
    for (int t = 0; t < kThreads; ++t) {
        callers.push_back(std::async(std::launch::async, [&, t] {
            for (int round = 0; !stop; ++round) {
                mixedRequests(t, round);
                ++calls;
            }
        }));
    }
    for (int restart = 0; restart < 5; ++restart) {
        std::this_thread::sleep_for(150ms);
        service.stop();
        std::this_thread::sleep_for(50ms);
        ASSERT_TRUE(service.restart());
    }
    std::this_thread::sleep_for(150ms);
    stop = true;
    for (auto& caller : callers) {
        ASSERT_EQ(caller.wait_for(30s), std::future_status::ready) << "a caller is stuck";
    }
    EXPECT_GT(calls.load(), kThreads);
    // The connection still works afterwards.
    EXPECT_GE(velaResCtlRelease(1), 0);
}

}  // namespace
}  // namespace halclienttest
