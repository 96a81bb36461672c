// A receiver that blocks in its callback and one that never answers (its process starts no
// binder threads) hold up only themselves: a receiver that answers at once hears every value.
#include <android/binder_process.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "E2eSupport.h"
#include "RunProgram.h"

namespace e2e {
namespace {

using namespace velaHalclient;
using PaxClient::Resource;

constexpr const char* kRoleEnv = "VELA_E2E_RECEIVER";

struct Blocking : IClientCallback {
    void onCallback(std::list<Resource>& /*resources*/) override { pause(); }
};

int listenAndWait(bool answer) {
    if (answer) ABinderProcess_startThreadPool();
    ResourceList keys{Resource{kLittleFloor, {}}};
    if (velaResListeningRegister(keys, 0, std::make_shared<Blocking>()) < 1) return 1;
    dprintf(STDOUT_FILENO, "ready\n");
    while (true) pause();
}

// Before main, in the child the role names.
[[maybe_unused]] const bool receiverRole = [] {
    if (const char* role = getenv(kRoleEnv)) _exit(listenAndWait(std::string(role) == "blocking"));
    return false;
}();

class ReceiversTest : public ServiceProcessTest {
protected:
    void TearDown() override {
        for (const auto& child : children) {
            kill(child->pid, SIGKILL);
            paxtest::exitCodeOf(child->pid);
        }
        ServiceProcessTest::TearDown();
    }
    void startReceiver(const std::string& role) {
        children.push_back(
                paxtest::launch("/proc/self/exe", {}, "", {std::string(kRoleEnv) + "=" + role}));
        const paxtest::Launch& child = *children.back();
        ASSERT_TRUE(paxtest::waitUntil([&] { return child.read(1) == "ready\n"; })) << role;
    }
    std::vector<std::unique_ptr<paxtest::Launch>> children;
};

TEST_F(ReceiversTest, APromptReceiverDoesNotWaitOnASlowOrSilentOne) {
    // Registered first, so that they are called first.
    startReceiver("silent");
    startReceiver("blocking");
    auto prompt = std::make_shared<Recorder>();
    ResourceList keys{Resource{kLittleFloor, {}}};
    ASSERT_GE(velaResListeningRegister(keys, 0, prompt), 1);

    std::vector<int> handles;
    for (const char* value : {"1000000", "1100000", "1200000"}) {
        ResourceList floor{Resource{kLittleFloor, value}};
        handles.push_back(velaResCtlRequest(0, floor, 0));
        ASSERT_GE(handles.back(), 1);
    }
    ASSERT_TRUE(prompt->heard.waitFor(3)) << log.dump();
    EXPECT_EQ(prompt->last().values, std::vector<std::string>{"1200000"});
    for (int handle : handles) EXPECT_EQ(velaResCtlRelease(handle), 0);
}

}  // namespace
}  // namespace e2e
