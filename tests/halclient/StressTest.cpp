// Many callers while the service goes away and comes back: every call must return, with no
// crash, deadlock or data race (this test is meant for ThreadSanitizer too).
#include <atomic>
#include <future>
#include <thread>

#include "HalclientFixture.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using namespace std::chrono_literals;
using paxtest::Answer;
using paxtest::makeItem;

// A different request each round.
void someRequest(int thread, int round) {
    auto receiver = std::make_shared<Receiver>();
    ResourceList list{{static_cast<uint32_t>(thread * 1000 + round), "1"}};
    std::vector<std::string> out;
    const std::function<void()> requests[] = {
            [&] { velaResCtlRelease(velaResCtlRequest(1, list, 0)); },
            [&] { velaResCtlRequest(1, 2, list, 3, 4, 5, receiver); },
            [&] { velaResStateRequest(list, 0, list); },
            [&] { velaResListeningUnRegister(velaResListeningRegister(list, 0, receiver)); },
            [&] { vela_res_state_request_by_path({"a"}, {}, 0, out); },
            [&] { delete[] velaPropertyGet("k"); },
    };
    requests[(thread + round) % 6]();
}

TEST_F(HalclientTest, CallersSurviveTheServiceRestartingUnderThem) {
    // Answers arrive while requests are in flight, as a real service's would.
    fake->setDefault("resCtlRequest", Answer::ok().withNestedCallback({makeItem(0x10, 0, "1")}));
    fake->setDefault("resStateRequest", Answer::items({makeItem(0x10, 0, "1")}));
    std::atomic<bool> stop{false};
    std::atomic<int> calls{0};
    std::vector<std::future<void>> callers;
    // Callers stop however the test ends; their futures wait for them on the way out.
    struct StopOnExit {
        std::atomic<bool>& stop;
        ~StopOnExit() { stop = true; }
    } const stopOnExit{stop};
    for (int t = 0; t < 8; ++t) {
        callers.push_back(std::async(std::launch::async, [&, t] {
            for (int round = 0; !stop; ++round, ++calls) someRequest(t, round);
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
    EXPECT_GT(calls.load(), 100);
    EXPECT_GE(velaResCtlRelease(1), 0);
}

}  // namespace
}  // namespace halclienttest
