// The reference service driven directly through its IVela methods (no second process):
// scenarios, fall-back, expiry, listeners, rules, history, queries and refusals. The same
// service behind the client layers is covered by the end-to-end tests; these check the
// details those cannot see.
#include <aidl/vendor/norvo/hardware/vela/BnVelaCallback.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <thread>

#include "BoundedWrite.h"
#include "LogCapture.h"
#include "ServiceFixture.h"
#include "ServiceProperties.h"
#include "Waiter.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;
namespace {

TEST_F(VelaServiceTest, EventsAndSaRequestsApplyTheirScenarioAndReleasesFallBack) {
    const int32_t below = control({item(kLittleFloor, "1000")});
    // Resources sent along with an event win over its scenario's own.
    const int32_t launch = event(kLaunch, 0, {item(kBigFloor, "999")});
    EXPECT_EQ(value(kLittleFloor), "1804800");
    EXPECT_EQ(value(kBigFloor), "999");
    EXPECT_EQ(service->valueOf(kUclampKey), "30");
    // An SA request names the same scenario by its event id; it is the latest claim now.
    const int32_t sa = control({item(kLaunch)}, 0, kKindSaControl);

    EXPECT_EQ(release(launch), kResultOk);
    EXPECT_EQ(value(kBigFloor), "2419200");  // the extra resource went with its request
    EXPECT_EQ(release(sa), kResultOk);
    EXPECT_EQ(value(kLittleFloor), "1000");
    EXPECT_EQ(value(kBigFloor), "710400");
    EXPECT_EQ(service->valueOf(kUclampKey), "0");
    EXPECT_EQ(release(below), kResultOk);
    EXPECT_EQ(value(kLittleFloor), "300000");
    EXPECT_EQ(release(below), kResultUnknownHandle);
}

TEST_F(VelaServiceTest, ExpiryFallsBackAndHistoryIsKeptOnlyWhileRecording) {
    release(event(kLaunch));
    EXPECT_TRUE(state(kKindHistory).empty());

    EXPECT_EQ(diagnostic(kHistoryOn), kResultDone);
    EXPECT_EQ(property("vendor.vela.history"), "1");
    const int32_t launch = event(kLaunch, 10'000);
    const int32_t timed = control({item(kLittleFloor, "2000000")}, 100);
    EXPECT_EQ(value(kLittleFloor), "2000000");
    ASSERT_TRUE(paxtest::waitUntil([&] { return value(kLittleFloor) == "1804800"; }));
    EXPECT_EQ(service->stats().expired, 1u);
    EXPECT_EQ(release(timed), kResultUnknownHandle);
    EXPECT_EQ(release(launch), kResultOk);
    rule(7, 1);
    EXPECT_EQ(diagnostic(kHistoryOff), kResultDone);
    release(event(kLaunch));

    const auto records = state(kKindHistory);
    const std::string expected[] = {
            "acquire handle " + std::to_string(launch) + " event 0 (ACTION_LAUNCH)",
            "acquire handle " + std::to_string(timed), "expire handle " + std::to_string(timed),
            "release handle " + std::to_string(launch), "rule 7 on"};
    ASSERT_EQ(records.size(), std::size(expected));
    for (size_t i = 0; i < records.size(); ++i) {
        const std::string text = records[i].value3.value_or("");
        EXPECT_NE(text.find(expected[i]), std::string::npos) << text;
        EXPECT_EQ(text.find(';'), std::string::npos) << "clients join records with ';'";
    }
}

// A listener hears each move of the value in force of what it listens to, and nothing else; a
// request with a callback is answered once.
TEST_F(VelaServiceTest, ListenersHearEveryMoveOfTheValueInForceAndNothingElse) {
    auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
    auto listened = parcel(0, {item(kLittleFloor), item(0, {}, std::string(kUclamp))});
    int32_t listening = -1, out = -1;
    ASSERT_TRUE(service->resListeningRegister(listened, listener, &listening).isOk());
    ASSERT_GE(listening, 1);
    control({item(kLittleLoad, "50")});  // not listened to
    const int32_t below = control({item(kLittleFloor, "1000")});
    const int32_t launch = event(kLaunch);
    const int32_t same = control({item(kLittleFloor, "1804800")});  // moves nothing
    release(below);
    release(same);
    release(launch);
    service->waitForDeliveries();
    const std::string clamp = kUclamp, floor = std::to_string(kLittleFloor);
    EXPECT_EQ(listener->calls(), (Texts{floor + ":1000", clamp + ":30 " + floor + ":1804800",
                                        clamp + ":0 " + floor + ":300000"}));

    ASSERT_TRUE(service->resListeningUnregister(listening, &out).isOk());
    EXPECT_EQ(out, kResultOk);
    auto answer = ::ndk::SharedRefBase::make<RecordingCallback>();
    auto request = parcel(kKindControl, {item(kLittleFloor, "1000"), item(kBigFloor, "7")});
    request.callback = answer;
    release(submit(request));
    service->waitForDeliveries();
    EXPECT_EQ(listener->calls().size(), 3u);
    EXPECT_EQ(answer->calls(), Texts{floor + ":1000 " + std::to_string(kBigFloor) + ":7"});
    ASSERT_TRUE(service->resListeningUnregister(listening, &out).isOk());
    EXPECT_EQ(out, kResultUnknownHandle);
}

TEST_F(VelaServiceTest, ThermalListenerHearsOnlyItsSubsystemsUntilUnregistered) {
    auto listener = ::ndk::SharedRefBase::make<RecordingCallback>();
    int32_t handle = -1, out = -1;
    ASSERT_TRUE(service->thermalListeningRegister({1, 3}, listener, &handle).isOk());
    EXPECT_GE(control({item(1, "2"), item(2, "5"), item(3, "1")}, 0, kKindThermal), 1);
    EXPECT_GE(control({item(2, "4")}, 0, kKindThermal), 1);
    service->waitForDeliveries();
    ASSERT_TRUE(service->thermalListeningUnregister(handle, &out).isOk());
    EXPECT_EQ(out, kResultOk);
    control({item(1, "0")}, 0, kKindThermal);
    service->waitForDeliveries();
    EXPECT_EQ(listener->calls(), Texts{"1:2 3:1"});
}

TEST_F(VelaServiceTest, RuleHoldsItsResourcesUntilSwitchedOff) {
    // A valueless item in a rule means "leave this one alone".
    EXPECT_EQ(rule(130, 1, {item(kLittleLoad, "30"), item(kBigFloor, "")}), kResultOk);
    EXPECT_EQ(value(kLittleLoad), "30");
    EXPECT_EQ(value(kBigFloor), "710400");
    // Switching it on again replaces its resources and makes it the latest claim.
    const int32_t handle = control({item(kLittleLoad, "45")});
    rule(130, 1, {item(kLittleLoad, "35")});
    EXPECT_EQ(value(kLittleLoad), "35");
    for (int i = 0; i < 2; ++i) {  // the second time it is already off
        EXPECT_EQ(rule(130, 0), kResultOk);
        EXPECT_EQ(value(kLittleLoad), "45");
    }
    release(handle);
    EXPECT_EQ(value(kLittleLoad), "80");
}

TEST_F(VelaServiceTest, QueriesAnswerEveryItemInOrderAndPowerFiguresFollowTheRequests) {
    control({item(kLittleFloor, "1000"), item(0, std::string("1"), std::string("/x/y"))});
    auto answer = state(kKindState, {item(0, {}, std::string("/x/y")), item(0x7f000001),
                                     item(kLittleFloor), item(0)});
    ASSERT_EQ(answer.size(), 4u);
    EXPECT_EQ(answer[0].value2, "/x/y");
    EXPECT_EQ(answer[0].value, "1");
    EXPECT_EQ(answer[1].id, 0x7f000001);
    EXPECT_FALSE(answer[1].value.has_value());  // nobody ever set it
    EXPECT_EQ(answer[2].value, "1000");
    EXPECT_EQ(answer[3].id, 0);

    // The power figure grows by the configured 35 mW per active request; the query's items
    // do not matter.
    const int idle = std::stoi(state(kKindPowerUse).at(0).value.value());
    const int32_t handle = event(kLaunch);
    EXPECT_EQ(state(kKindPowerUse, {item(kPowerUseOpcode, "0 1 35")}).at(0).value,
              std::to_string(idle + 35));
    release(handle);
    EXPECT_EQ(state(kKindPowerUse).at(0).value, std::to_string(idle));
    EXPECT_EQ(state(kKindPowerMode, {item(0)}).at(0).value, "1");
    EXPECT_EQ(state(kKindPowerMode, {item(2)}).at(0).value, "0");
    setProperty(kPowerModeProperty, "2");
    EXPECT_EQ(state(kKindPowerMode, {item(2)}).at(0).value, "1");

    // The dataset: every opcode resource that has a default, each with a value.
    const auto& resources = service->config().resources();
    const auto dataset = state(kKindDataset);
    EXPECT_EQ(dataset.size(), std::count_if(resources.begin(), resources.end(), [](auto& info) {
                  return info.defaultValue && !info.key.isPath();
              }));
    EXPECT_TRUE(std::all_of(dataset.begin(), dataset.end(),
                            [](auto& entry) { return entry.id != 0 && entry.value; }));
}

TEST_F(VelaServiceTest, BadRequestsAreRefusedWithDistinctResultsAndLogged) {
    paxtest::LogCapture log;
    const VelaRequestParcel bad[] = {
            parcel(kKindControl, {item(kLittleFloor)}),             // opcode without value
            parcel(kKindControl, {item(kLittleFloor, "")}),         // ... with an empty one
            parcel(kKindControl, {item(0, "1", "/sys/../etc/x")}),  // path escaping the tree
            parcel(kKindControl, {item(kLittleFloor, "fast")}),     // no number for a frequency
            parcel(kKindControl, {item(kLittleLoad, "101")}),       // a load above 100
            parcel(kKindEvent, {}),                                 // event without its item
            parcel(kKindEvent, {item(-5)}),                         // negative event
            parcel(kKindSaControl, {item(1), item(2)}),             // SA with two items
            parcel(kKindDiagnostic, {item(9)}),                     // unknown diagnostic
            parcel(kKindDiagnostic, {}),                            // diagnostic without item
            parcel(kKindThermal, {item(3)}),                        // thermal without level
            parcel(kKindControl, std::vector<VelaRequestData>(VelaService::kMaxItems + 1,
                                                              item(1, "1"))),  // too many items
            parcel(kKindControl, {item(1, std::string(VelaService::kMaxText + 1, 'x'))}),
    };
    for (size_t i = 0; i < std::size(bad); ++i) EXPECT_EQ(submit(bad[i]), kResultBadRequest) << i;
    EXPECT_EQ(submit(parcel(42, {})), kResultUnsupportedKind);
    EXPECT_EQ(service->stats().rejected, std::size(bad) + 1);
    EXPECT_EQ(service->stats().requests, 0u);
    EXPECT_EQ(log.linesContaining("refused (bad request, -3)").size(), std::size(bad))
            << log.dump();

    std::vector<VelaRequestData> out;
    auto status = service->resStateRequest(parcel(42, {}), &out);
    EXPECT_EQ(status.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(status.getServiceSpecificError(), kResultUnsupportedKind);
    status = service->resStateRequest(parcel(kKindPowerMode, {}), &out);
    EXPECT_EQ(status.getServiceSpecificError(), kResultBadRequest);
    int32_t result = 0;
    EXPECT_EQ(service->reserved(&result).getExceptionCode(), EX_UNSUPPORTED_OPERATION);
    ASSERT_TRUE(service->resListeningRegister(parcel(0, {item(1)}), nullptr, &result).isOk());
    EXPECT_EQ(result, kResultBadRequest);

    // Property values must fit the clients' 256-byte buffer; read-only ones stay.
    EXPECT_EQ(setProperty("vendor.demo", std::string(255, 'v')), kResultOk);
    EXPECT_EQ(setProperty("vendor.demo", std::string(256, 'v')), kResultBadRequest);
    EXPECT_EQ(property("vendor.demo").size(), 255u);
    EXPECT_EQ(setProperty("ro.vendor.vela.version", "2"), kResultBadRequest);
    EXPECT_EQ(property("ro.vendor.vela.version"), "1");
    EXPECT_EQ(property("vendor.never.set"), "");
}

// The dump's descriptor is the asker's: one that stops reading must not hold a binder thread
// for good, and one that has gone must not kill the service with SIGPIPE.
TEST(DumpsysWriteTest, GivesUpOnAStalledOrVanishedReaderWithoutSigpipe) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    EXPECT_FALSE(writeBounded(fds[1], std::string(1 << 20, 'x'), std::chrono::milliseconds(0)));
    close(fds[0]);
    close(fds[1]);
    ASSERT_EQ(0, pipe(fds));
    close(fds[0]);
    EXPECT_FALSE(writeBounded(fds[1], "x", std::chrono::seconds(1)));  // EPIPE, and no SIGPIPE
    close(fds[1]);
}

// Path resources are mirrored as files under the root the service is given, and nowhere else.
TEST(VelaServiceMirrorTest, PathResourcesAreMirroredOnlyInsideTheRoot) {
    std::string root = std::filesystem::temp_directory_path() / "vela-sysfs-XXXXXX";
    ASSERT_NE(mkdtemp(root.data()), nullptr);
    auto file = [&](const std::string& path) -> std::optional<std::string> {
        std::ifstream in(root + path);
        std::string text;
        return std::getline(in, text) ? std::optional(text) : std::nullopt;
    };
    VelaService::Options options;
    options.sysfsRoot = root;
    auto service = ::ndk::SharedRefBase::make<VelaService>(std::move(options));
    EXPECT_EQ(file(kUclamp), "0");  // defaults are there from the start

    int32_t knob = -1, launch = -1, out = -1;
    service->resCtlRequest(parcel(kKindControl, {item(0, "12", "/proc/demo/knob")}), &knob);
    service->resCtlRequest(parcel(kKindEvent, {item(kLaunch)}), &launch);
    EXPECT_EQ(file("/proc/demo/knob"), "12");
    EXPECT_EQ(file(kUclamp), "30");
    service->resCtlRelease(launch, &out);
    EXPECT_EQ(file(kUclamp), "0");
    service->resCtlRelease(knob, &out);
    EXPECT_FALSE(file("/proc/demo/knob").has_value());  // no default: the file goes

    service->resCtlRequest(parcel(kKindControl, {item(0, "1", "../../escape")}), &out);
    EXPECT_EQ(out, kResultBadRequest);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(root).parent_path() / "escape"));
    std::filesystem::remove_all(root);
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
