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
#include "ServiceProperties.h"
#include "VelaService.h"
#include "Waiter.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;
namespace {

constexpr uint32_t kLittleFloor = 0x01010010;  // cpu.little.freq_min, default 300000
constexpr uint32_t kLittleLoad = 0x010108a0;   // sched.little.target_load, default 80
constexpr uint32_t kBigFloor = 0x01010020;     // cpu.big.freq_min, default 710400
constexpr char kUclamp[] = "/dev/cpuctl/top-app/cpu.uclamp.min";  // default 0
constexpr int32_t kLaunch = 0;                                    // ACTION_LAUNCH
const ResourceKey kUclampKey = ResourceKey::ofPath(kUclamp);

VelaRequestData item(int32_t id, std::optional<std::string> value = {},
                     std::optional<std::string> path = {}) {
    VelaRequestData data{};
    data.id = id;
    data.value = std::move(value);
    data.value2 = std::move(path);
    return data;
}

VelaRequestParcel parcel(int32_t kind, std::vector<VelaRequestData> items, int64_t durationMs = 0) {
    VelaRequestParcel request{};
    request.requestType = kind;
    request.requestDatas = std::move(items);
    request.param2 = durationMs;
    return request;
}

// Each delivery as its items "id:value" (path items "path:value"), sorted. The service must
// call back from a thread of its own: a delivery on the test's thread is marked as such.
class RecordingCallback : public BnVelaCallback {
public:
    ::ndk::ScopedAStatus onCallback(const std::vector<VelaRequestData>& items) override {
        std::set<std::string> parts;
        for (const auto& i : items) {
            parts.insert((i.id != 0 ? std::to_string(i.id) : i.value2.value_or("?")) + ":" +
                         i.value.value_or("<null>"));
        }
        std::string text;
        for (const auto& part : parts) text += (text.empty() ? "" : " ") + part;
        if (std::this_thread::get_id() == mTestThread) text += " (on the test's thread)";
        std::lock_guard<std::mutex> lock(mMutex);
        mCalls.push_back(text);
        return ::ndk::ScopedAStatus::ok();
    }
    std::vector<std::string> calls() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }

private:
    mutable std::mutex mMutex;
    std::vector<std::string> mCalls;
    const std::thread::id mTestThread = std::this_thread::get_id();
};

using Texts = std::vector<std::string>;

class VelaServiceTest : public ::testing::Test {
protected:
    int32_t submit(const VelaRequestParcel& request) {
        int32_t out = -1;
        EXPECT_TRUE(service->resCtlRequest(request, &out).isOk());
        return out;
    }
    int32_t control(std::vector<VelaRequestData> items, int64_t durationMs = 0,
                    int32_t kind = kKindControl) {
        return submit(parcel(kind, std::move(items), durationMs));
    }
    int32_t event(int32_t id, int64_t durationMs = 0, std::vector<VelaRequestData> extra = {}) {
        extra.insert(extra.begin(), item(id));
        return control(std::move(extra), durationMs, kKindEvent);
    }
    int32_t release(int32_t handle) {
        int32_t out = -1;
        EXPECT_TRUE(service->resCtlRelease(handle, &out).isOk());
        return out;
    }
    int32_t rule(int32_t id, int32_t status, const std::vector<VelaRequestData>& items = {}) {
        int32_t out = -1;
        EXPECT_TRUE(service->ruleCtl(id, status, items, &out).isOk());
        return out;
    }
    int32_t diagnostic(int32_t code) { return control({item(code)}, 0, kKindDiagnostic); }
    std::optional<std::string> value(uint32_t opcode) {
        return service->valueOf(ResourceKey::ofOpcode(opcode));
    }
    std::vector<VelaRequestData> state(int32_t kind, std::vector<VelaRequestData> items = {}) {
        std::vector<VelaRequestData> out;
        EXPECT_TRUE(service->resStateRequest(parcel(kind, std::move(items)), &out).isOk());
        return out;
    }
    int32_t setProperty(const std::string& key, const std::string& text) {
        int32_t out = -1;
        EXPECT_TRUE(service->propertySet(key, text, &out).isOk());
        return out;
    }
    std::string property(const std::string& key) {
        std::string text = "<unset>";
        EXPECT_TRUE(service->propertyGet(key, &text).isOk());
        return text;
    }

    std::shared_ptr<VelaService> service = ::ndk::SharedRefBase::make<VelaService>();
};

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

TEST_F(VelaServiceTest, DumpsGoToTheLog) {
    paxtest::LogCapture log;
    const int32_t handle = event(kLaunch, 60'000);
    for (int32_t code = kDumpToDoQueue; code <= kDumpRecords; ++code) {
        EXPECT_EQ(diagnostic(code), kResultDone) << code;
    }
    const std::string h = std::to_string(handle);
    for (const std::string& fragment :
         {"expire handle " + h + " in ",
          "0x01010010 cpu.little.freq_min = 1804800 (request " + h + ", depth 1)",
          std::string("event 0 ACTION_LAUNCH: 6 resources")}) {
        auto lines = log.linesContaining(fragment);
        EXPECT_TRUE(!lines.empty() && lines[0].tag == kVelaLogTag) << fragment << "\n"
                                                                   << log.dump();
    }
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
