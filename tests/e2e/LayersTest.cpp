// Each layer of the library against vela-service in another process.
#include <PaxEvent.h>
#include <velaHalclient.h>

#include <memory>

#include "E2eSupport.h"

namespace e2e {
namespace {

using PaxClient::Resource;
using namespace velaHalclient;

std::string paxValue(uint32_t opcode) {
    std::string out = "(untouched)";
    PaxResStateRequest(opcode, out);
    return out;
}

// What the service makes of each request is its own tests' business; here every library call
// has to reach it from another process and bring its answer back.
using LayersTest = ServiceProcessTest;

TEST_F(LayersTest, HalclientRequestsAnswersAndListeners) {
    auto listener = std::make_shared<Recorder>();
    ResourceList watched{Resource{kLittleFloor, {}}};
    const int listening = velaResListeningRegister(watched, 0, listener);
    ASSERT_GE(listening, 1);

    auto answer = std::make_shared<Recorder>();
    ResourceList wanted{Resource{kLittleFloor, "1000"}, Resource{kLittleLoad, "55"}};
    const int handle = velaResCtlRequest(-1, 0, wanted, -1, 0, 0, answer);
    ASSERT_GE(handle, 1);
    ASSERT_TRUE(answer->heard.waitFor(1));
    EXPECT_EQ(answer->last().values, (std::vector<std::string>{"1000", "55"}));
    ASSERT_TRUE(listener->heard.waitFor(1));
    EXPECT_EQ(listener->last().values, std::vector<std::string>{"1000"});

    ResourceList query{Resource{kLittleFloor, {}}, Resource{kLittleLoad, {}}}, reply;
    ASSERT_EQ(velaResStateRequest(query, 0, reply), 2);
    EXPECT_EQ(reply.front().value, "1000");
    EXPECT_EQ(reply.back().value, "55");
    EXPECT_EQ(velaResCtlRelease(handle), 0);
    EXPECT_EQ(velaResListeningUnRegister(listening), 0);
    // The service's own "unknown handle" reaches the caller unchanged.
    EXPECT_EQ(velaResCtlRelease(handle), -2);

    // SA control names a scenario by event id: 17 is the camera preview.
    const int sa = velaSACtlRequest(0, 17, 0);
    ASSERT_GE(sa, 1);
    EXPECT_EQ(paxValue(kPrimeCeiling), "1958400");
    EXPECT_EQ(velaSACtlRelease(sa), 0);
}

TEST_F(LayersTest, HalclientPathsReachTheServicesSysfsMirror) {
    const std::string knob = "/proc/e2e/knob";
    auto listener = std::make_shared<Recorder>();
    ASSERT_GE(vela_res_listening_register_by_path({knob}, 0, listener), 1);
    ASSERT_GE(vela_resctl_request_by_path(-1, 0, {knob}, {"7"}, -1, 0, 0), 1);
    EXPECT_EQ(mirrored(knob), "7");
    std::vector<std::string> values;
    ASSERT_EQ(vela_res_state_request_by_path({knob}, {}, 0, values), 1);
    EXPECT_EQ(values[0], "7");
    std::map<std::string, std::string> byPath;
    ASSERT_EQ(vela_res_state_request_map_by_path({{knob, ""}}, 0, byPath), 1);
    EXPECT_EQ(byPath[knob], "7");
    ASSERT_TRUE(listener->heard.waitFor(1));
    EXPECT_EQ(listener->last().paths, std::vector<std::string>{knob});
    EXPECT_EQ(listener->last().values, std::vector<std::string>{"7"});

    auto answer = std::make_shared<Recorder>();
    const std::string clamp = "/dev/cpuctl/top-app/cpu.uclamp.min";
    ASSERT_GE(vela_resctl_request_with_callback_by_path(-1, 0, {clamp}, {"64"}, -1, 0, 0, answer),
              1);
    ASSERT_TRUE(answer->heard.waitFor(1));
    EXPECT_EQ(answer->last().paths, std::vector<std::string>{clamp});
    EXPECT_EQ(mirrored(clamp), "64");
}

// Events carry their extra resources and duration, and the queries bring the service's
// figures back; the history shows what the service made of the calls whose effects cannot be
// read back.
TEST_F(LayersTest, PaxEventsQueriesRulesAndHistory) {
    ASSERT_EQ(paxInit(), 0);
    ASSERT_EQ(velaHistoryRequestRecordOn(), 0);
    std::vector<Resource> extra{Resource{kBigFloor, "1234"}};
    const int32_t launch = PaxEventAcquire(0, "com.example.e2e", "e2e", 0, extra);
    ASSERT_GE(launch, 1);
    std::vector<Resource> query{Resource{kLittleFloor, {}}, Resource{kBigFloor, {}}};
    EXPECT_EQ(PaxMutiResStateRequest(query), 2);
    EXPECT_EQ(query, (std::vector<Resource>{{kLittleFloor, "1804800"}, {kBigFloor, "1234"}}));
    EXPECT_GT(PaxGetPowerConsis(), 0);
    EXPECT_EQ(PaxGetPMStatus(0), 1);
    std::vector<Resource> dataset;
    EXPECT_GT(Pax_fetch_dataset(dataset), 20);
    EXPECT_NE(std::find(dataset.begin(), dataset.end(), Resource{kLittleFloor, "1804800"}),
              dataset.end());
    PaxRelease(launch);

    EXPECT_EQ(PaxNotify(5, 1, {7, 8}), 0);
    std::vector<Resource> rule{Resource{kLittleLoad, "20"}};
    EXPECT_EQ(paxRuleCtl(9, 1, rule), 0);
    EXPECT_EQ(paxValue(kLittleLoad), "20");
    EXPECT_EQ(setRelatedSysInfo(3, int64_t{1} << 40), 0);
    std::vector<Resource> brief{Resource{kLittleFloor, "999"}};
    ASSERT_GE(PaxPlatformResAcquire(brief, nullptr, "e2e", "com.example.e2e", 0), 1);
    EXPECT_EQ(paxValue(kLittleFloor), "999");

    std::string history;
    ASSERT_EQ(PaxGetHistory(history), 0);
    for (const char* expected :
         {"start:", "(ACTION_LAUNCH) pkg com.example.e2e", "notify cmd 5 param 1 values 7 8",
          "rule 9 on", "sysinfo 3=1099511627776", "platform", ";end"}) {
        EXPECT_NE(history.find(expected), std::string::npos) << expected << "\n" << history;
    }
}

}  // namespace
}  // namespace e2e
