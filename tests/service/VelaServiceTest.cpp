// The reference service driven directly through its IVela methods (no second process):
// scenarios, fall-back, expiry, listeners, rules, history, queries and refusals.
#include <aidl/vendor/norvo/hardware/vela/BnVelaCallback.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "LogCapture.h"
#include "VelaService.h"
#include "Waiter.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t kLittleFloor = 0x01010010;  // cpu.little.freq_min, default 300000
constexpr uint32_t kLittleLoad = 0x010108a0;   // sched.little.target_load, default 80
constexpr uint32_t kBigFloor = 0x01010020;     // cpu.big.freq_min, default 710400
constexpr char kUclamp[] = "/dev/cpuctl/top-app/cpu.uclamp.min";  // default 0
constexpr int32_t kLaunch = 0;                                    // ACTION_LAUNCH

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

class RecordingCallback : public BnVelaCallback {
public:
    struct Call {
        std::vector<VelaRequestData> items;
        std::thread::id thread;
    };
    ::ndk::ScopedAStatus onCallback(const std::vector<VelaRequestData>& items) override {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mCalls.push_back({items, std::this_thread::get_id()});
        }
        fired.increment();
        return ::ndk::ScopedAStatus::ok();
    }
    std::vector<Call> calls() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mCalls;
    }
    Call last() const { return calls().back(); }

    paxtest::Counter fired;

private:
    mutable std::mutex mMutex;
    std::vector<Call> mCalls;
};

class VelaServiceTest : public ::testing::Test {
protected:
    void SetUp() override { service = ::ndk::SharedRefBase::make<VelaService>(); }

    int32_t control(std::vector<VelaRequestData> items, int64_t durationMs = 0,
                    int32_t kind = kKindControl) {
        int32_t out = -1;
        EXPECT_TRUE(
                service->resCtlRequest(parcel(kind, std::move(items), durationMs), &out).isOk());
        return out;
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
    int32_t diagnostic(int32_t code) { return control({item(code)}, 0, kKindDiagnostic); }
    std::optional<std::string> value(uint32_t opcode) {
        return service->valueOf(ResourceKey::ofOpcode(opcode));
    }
    std::vector<VelaRequestData> state(int32_t kind, std::vector<VelaRequestData> items = {}) {
        std::vector<VelaRequestData> out;
        EXPECT_TRUE(service->resStateRequest(parcel(kind, std::move(items)), &out).isOk());
        return out;
    }
    std::shared_ptr<RecordingCallback> listen(std::vector<VelaRequestData> items,
                                              int32_t* handle = nullptr) {
        auto callback = ::ndk::SharedRefBase::make<RecordingCallback>();
        int32_t out = -1;
        EXPECT_TRUE(
                service->resListeningRegister(parcel(0, std::move(items)), callback, &out).isOk());
        EXPECT_GE(out, 1);
        if (handle != nullptr) *handle = out;
        return callback;
    }

    std::shared_ptr<VelaService> service;
};

TEST_F(VelaServiceTest, EventAppliesItsScenarioAndReleaseRestoresTheDefaults) {
    const int32_t handle = event(kLaunch, 0, {item(kBigFloor, "999")});
    ASSERT_GE(handle, 1);
    EXPECT_EQ(value(kLittleFloor), "1804800");
    EXPECT_EQ(value(kLittleLoad), "60");
    EXPECT_EQ(service->valueOf(ResourceKey::ofPath(kUclamp)), "30");
    // Resources sent along with the event win over the scenario's own.
    EXPECT_EQ(value(kBigFloor), "999");

    EXPECT_EQ(release(handle), kVelaOk);
    EXPECT_EQ(value(kLittleFloor), "300000");
    EXPECT_EQ(value(kBigFloor), "710400");
    EXPECT_EQ(service->valueOf(ResourceKey::ofPath(kUclamp)), "0");
    EXPECT_EQ(release(handle), kVelaUnknownHandle);
}

TEST_F(VelaServiceTest, LaterRequestWinsAndReleasingItFallsBackToTheEarlierOne) {
    const int32_t first = control({item(kLittleFloor, "1000")});
    const int32_t second = control({item(kLittleFloor, "2000")});
    const int32_t sa = control({item(kLaunch)}, 0, kKindSaControl);
    ASSERT_GE(first, 1);
    EXPECT_NE(first, second);
    EXPECT_EQ(value(kLittleFloor), "1804800");  // the SA request resolved the launch scenario

    release(sa);
    EXPECT_EQ(value(kLittleFloor), "2000");
    release(first);  // not in force: nothing moves
    EXPECT_EQ(value(kLittleFloor), "2000");
    release(second);
    EXPECT_EQ(value(kLittleFloor), "300000");
}

TEST_F(VelaServiceTest, TimedRequestExpiresFallsBackAndIsRecorded) {
    diagnostic(kHistoryOn);
    const int32_t longer = control({item(kLittleFloor, "1000")}, 10'000);
    const int32_t handle = control({item(kLittleFloor, "2000")}, 100);
    EXPECT_EQ(value(kLittleFloor), "2000");

    ASSERT_TRUE(paxtest::waitUntil([&] { return value(kLittleFloor) == "1000"; }));
    EXPECT_EQ(service->stats().expired, 1u);
    EXPECT_EQ(release(handle), kVelaUnknownHandle);
    EXPECT_EQ(release(longer), kVelaOk);

    bool recorded = false;
    for (const auto& record : state(kKindHistory)) {
        if (record.value3->find("expire handle " + std::to_string(handle)) != std::string::npos) {
            recorded = true;
        }
    }
    EXPECT_TRUE(recorded);
}

TEST_F(VelaServiceTest, ListenerHearsEveryChangeOfItsResourcesFromAnotherThread) {
    auto callback = listen({item(kLittleFloor), item(0, {}, std::string(kUclamp))});
    control({item(kLittleLoad, "50")});  // not listened to
    const int32_t handle = event(kLaunch);
    service->waitForDeliveries();

    ASSERT_EQ(callback->calls().size(), 1u);
    auto call = callback->last();
    EXPECT_NE(call.thread, std::this_thread::get_id());
    ASSERT_EQ(call.items.size(), 2u);
    for (const auto& changed : call.items) {
        if (changed.id != 0) {
            EXPECT_EQ(changed.id, static_cast<int32_t>(kLittleFloor));
            EXPECT_EQ(changed.value, "1804800");
        } else {
            EXPECT_EQ(changed.value2, kUclamp);
            EXPECT_EQ(changed.value, "30");
        }
    }

    release(handle);
    service->waitForDeliveries();
    ASSERT_EQ(callback->calls().size(), 2u);
    for (const auto& changed : callback->last().items) {
        EXPECT_EQ(changed.value, changed.id != 0 ? "300000" : "0");
    }
}

TEST_F(VelaServiceTest, ListenerIsQuietWhenTheValueInForceDoesNotMoveOrAfterUnregistering) {
    int32_t listener = 0;
    auto callback = listen({item(kLittleFloor)}, &listener);
    const int32_t below = control({item(kLittleFloor, "1000")});
    const int32_t top = control({item(kLittleFloor, "2000")});
    const int32_t same = control({item(kLittleFloor, "2000")});
    service->waitForDeliveries();
    EXPECT_EQ(callback->calls().size(), 2u);  // 1000, 2000; the second 2000 moved nothing

    release(below);
    release(same);
    service->waitForDeliveries();
    EXPECT_EQ(callback->calls().size(), 2u);

    int32_t out = -1;
    ASSERT_TRUE(service->resListeningUnregister(listener, &out).isOk());
    EXPECT_EQ(out, kVelaOk);
    release(top);
    service->waitForDeliveries();
    EXPECT_EQ(callback->calls().size(), 2u);
    ASSERT_TRUE(service->resListeningUnregister(listener, &out).isOk());
    EXPECT_EQ(out, kVelaUnknownHandle);
}

TEST_F(VelaServiceTest, ThermalListenerHearsOnlyItsSubsystems) {
    auto callback = ::ndk::SharedRefBase::make<RecordingCallback>();
    int32_t handle = -1;
    ASSERT_TRUE(service->thermalListeningRegister({1, 3}, callback, &handle).isOk());
    ASSERT_GE(handle, 1);

    EXPECT_GE(control({item(1, "2"), item(2, "5"), item(3, "1")}, 0, kKindThermal), 1);
    EXPECT_GE(control({item(2, "4")}, 0, kKindThermal), 1);
    service->waitForDeliveries();
    ASSERT_EQ(callback->calls().size(), 1u);
    auto items = callback->last().items;
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].id, 1);
    EXPECT_EQ(items[0].value, "2");
    EXPECT_EQ(items[1].id, 3);

    int32_t out = -1;
    ASSERT_TRUE(service->thermalListeningUnregister(handle, &out).isOk());
    EXPECT_EQ(out, kVelaOk);
    EXPECT_GE(control({item(1, "0")}, 0, kKindThermal), 1);
    service->waitForDeliveries();
    EXPECT_EQ(callback->calls().size(), 1u);
}

TEST_F(VelaServiceTest, RequestWithCallbackIsAnsweredOnceWithTheValuesInForce) {
    auto callback = ::ndk::SharedRefBase::make<RecordingCallback>();
    control({item(kLittleFloor, "5000")});
    auto request = parcel(kKindControl, {item(kLittleFloor, "1000"), item(kBigFloor, "7")});
    request.callback = callback;
    int32_t handle = -1;
    ASSERT_TRUE(service->resCtlRequest(request, &handle).isOk());
    ASSERT_GE(handle, 1);
    service->waitForDeliveries();

    ASSERT_EQ(callback->calls().size(), 1u);
    auto items = callback->last().items;
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].value, "1000");
    EXPECT_EQ(items[1].value, "7");
    release(handle);
    service->waitForDeliveries();
    EXPECT_EQ(callback->calls().size(), 1u);
}

TEST_F(VelaServiceTest, RuleHoldsItsResourcesUntilSwitchedOff) {
    int32_t out = -1;
    // A valueless item in a rule means "leave this one alone".
    ASSERT_TRUE(
            service->ruleCtl(130, 1, {item(kLittleLoad, "30"), item(kBigFloor, "")}, &out).isOk());
    EXPECT_EQ(out, kVelaOk);
    EXPECT_EQ(value(kLittleLoad), "30");
    EXPECT_EQ(value(kBigFloor), "710400");

    // Switching it on again replaces its resources and makes it the latest claim.
    const int32_t handle = control({item(kLittleLoad, "45")});
    service->ruleCtl(130, 1, {item(kLittleLoad, "35")}, &out);
    EXPECT_EQ(value(kLittleLoad), "35");

    service->ruleCtl(130, 0, {}, &out);
    EXPECT_EQ(out, kVelaOk);
    EXPECT_EQ(value(kLittleLoad), "45");
    service->ruleCtl(130, 0, {}, &out);  // already off
    EXPECT_EQ(out, kVelaOk);
    release(handle);
    EXPECT_EQ(value(kLittleLoad), "80");
}

TEST_F(VelaServiceTest, HistoryIsKeptOnlyWhileRecordingIsOn) {
    release(event(kLaunch));
    EXPECT_TRUE(state(kKindHistory).empty());

    EXPECT_EQ(diagnostic(kHistoryOn), kVelaDone);
    const int32_t handle = event(kLaunch);
    release(handle);
    int32_t out = -1;
    service->ruleCtl(7, 1, {}, &out);
    EXPECT_EQ(diagnostic(kHistoryOff), kVelaDone);
    release(event(kLaunch));

    auto records = state(kKindHistory);
    ASSERT_EQ(records.size(), 3u);
    EXPECT_NE(records[0].value3->find("acquire handle " + std::to_string(handle) +
                                      " event 0 (ACTION_LAUNCH)"),
              std::string::npos)
            << *records[0].value3;
    EXPECT_NE(records[1].value3->find("release handle"), std::string::npos);
    EXPECT_NE(records[2].value3->find("rule 7 on"), std::string::npos);
    for (const auto& record : records) {
        // Clients join records with ';'.
        EXPECT_EQ(record.value3->find(';'), std::string::npos);
    }
}

TEST_F(VelaServiceTest, StateAnswersEveryItemInOrder) {
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
}

TEST_F(VelaServiceTest, PowerFiguresAndDatasetAlwaysCarryValues) {
    auto before = state(kKindPowerUse, {item(kPowerUseOpcode, "0 1 35")});
    ASSERT_EQ(before.size(), 1u);
    const int idle = std::stoi(before[0].value.value());
    const int32_t handle = event(kLaunch);
    EXPECT_EQ(std::stoi(state(kKindPowerUse)[0].value.value()), idle + 35);
    release(handle);

    EXPECT_EQ(state(kKindPowerMode, {item(0)})[0].value, "1");
    EXPECT_EQ(state(kKindPowerMode, {item(2)})[0].value, "0");
    int32_t out = -1;
    service->propertySet(kPowerModeProperty, "2", &out);
    EXPECT_EQ(state(kKindPowerMode, {item(2)})[0].value, "1");

    auto dataset = state(kKindDataset);
    size_t withDefault = 0;
    for (const auto& info : service->config().resources()) {
        withDefault += info.defaultValue && !info.key.isPath() ? 1 : 0;
    }
    EXPECT_EQ(dataset.size(), withDefault);
    for (const auto& entry : dataset) {
        EXPECT_NE(entry.id, 0);
        EXPECT_TRUE(entry.value.has_value()) << entry.id;
    }
}

TEST_F(VelaServiceTest, BadRequestsAreRefusedWithDistinctResultsAndLogged) {
    paxtest::LogCapture log;
    const struct {
        const char* what;
        VelaRequestParcel request;
        int32_t expected;
    } cases[] = {
            {"opcode without value", parcel(kKindControl, {item(kLittleFloor)}), kVelaBadRequest},
            {"opcode with empty value", parcel(kKindControl, {item(kLittleFloor, "")}),
             kVelaBadRequest},
            {"path escaping the tree", parcel(kKindControl, {item(0, "1", "/sys/../etc/x")}),
             kVelaBadRequest},
            {"event without its item", parcel(kKindEvent, {}), kVelaBadRequest},
            {"negative event", parcel(kKindEvent, {item(-5)}), kVelaBadRequest},
            {"SA with two items", parcel(kKindSaControl, {item(1), item(2)}), kVelaBadRequest},
            {"diagnostic code 9", parcel(kKindDiagnostic, {item(9)}), kVelaBadRequest},
            {"diagnostic without item", parcel(kKindDiagnostic, {}), kVelaBadRequest},
            {"thermal without level", parcel(kKindThermal, {item(3)}), kVelaBadRequest},
            {"unknown kind", parcel(42, {}), kVelaUnsupportedKind},
            {"too many items",
             parcel(kKindControl,
                    std::vector<VelaRequestData>(VelaService::kMaxItems + 1, item(1, "1"))),
             kVelaBadRequest},
            {"oversized value",
             parcel(kKindControl, {item(1, std::string(VelaService::kMaxText + 1, 'x'))}),
             kVelaBadRequest},
    };
    for (const auto& c : cases) {
        int32_t out = -1;
        ASSERT_TRUE(service->resCtlRequest(c.request, &out).isOk()) << c.what;
        EXPECT_EQ(out, c.expected) << c.what;
    }
    EXPECT_EQ(service->stats().rejected, std::size(cases));
    EXPECT_EQ(service->stats().requests, 0u);
    EXPECT_EQ(log.linesContaining("refused (bad request, -3)").size(), std::size(cases) - 1)
            << log.dump();

    std::vector<VelaRequestData> out;
    auto status = service->resStateRequest(parcel(42, {}), &out);
    EXPECT_EQ(status.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(status.getServiceSpecificError(), kVelaUnsupportedKind);
    status = service->resStateRequest(parcel(kKindPowerMode, {}), &out);
    EXPECT_EQ(status.getServiceSpecificError(), kVelaBadRequest);

    int32_t result = 0;
    EXPECT_EQ(service->reserved(&result).getExceptionCode(), EX_UNSUPPORTED_OPERATION);
    ASSERT_TRUE(service->resListeningRegister(parcel(0, {item(1)}), nullptr, &result).isOk());
    EXPECT_EQ(result, kVelaBadRequest);
}

TEST_F(VelaServiceTest, PropertiesFitTheClientsBufferAndReadOnlyOnesStay) {
    int32_t out = -1;
    ASSERT_TRUE(service->propertySet("vendor.demo", std::string(255, 'v'), &out).isOk());
    EXPECT_EQ(out, kVelaOk);
    service->propertySet("vendor.demo", std::string(256, 'v'), &out);
    EXPECT_EQ(out, kVelaBadRequest);
    service->propertySet("ro.vendor.vela.version", "2", &out);
    EXPECT_EQ(out, kVelaBadRequest);

    std::string text;
    service->propertyGet("vendor.demo", &text);
    EXPECT_EQ(text.size(), 255u);
    service->propertyGet("ro.vendor.vela.version", &text);
    EXPECT_EQ(text, "1");
    service->propertyGet("vendor.never.set", &text);
    EXPECT_EQ(text, "");
    diagnostic(kHistoryOn);
    service->propertyGet("vendor.vela.history", &text);
    EXPECT_EQ(text, "1");
}

TEST_F(VelaServiceTest, DumpsGoToTheLog) {
    paxtest::LogCapture log;
    const int32_t handle = event(kLaunch, 60'000);
    for (int32_t code = kDumpToDoQueue; code <= kDumpRecords; ++code) {
        EXPECT_EQ(diagnostic(code), kVelaDone) << code;
    }
    auto lines = log.linesWithTag(kVelaLogTag);
    auto has = [&](const std::string& fragment) {
        for (const auto& line : lines) {
            if (line.text.find(fragment) != std::string::npos) return true;
        }
        return false;
    };
    EXPECT_TRUE(has("expire handle " + std::to_string(handle) + " in ")) << log.dump();
    EXPECT_TRUE(has("0x01010010 cpu.little.freq_min = 1804800 (request " + std::to_string(handle) +
                    ", depth 1)"))
            << log.dump();
    EXPECT_TRUE(has("event 0 ACTION_LAUNCH: 6 resources")) << log.dump();
}

class VelaServiceMirrorTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string dir = std::filesystem::temp_directory_path() / "vela-sysfs-XXXXXX";
        ASSERT_NE(mkdtemp(dir.data()), nullptr);
        root = dir;
        VelaService::Options options;
        options.sysfsRoot = root;
        service = ::ndk::SharedRefBase::make<VelaService>(std::move(options));
    }
    void TearDown() override { std::filesystem::remove_all(root); }

    std::optional<std::string> file(const std::string& path) {
        std::ifstream in(root + path);
        if (!in) return std::nullopt;
        std::string text;
        std::getline(in, text);
        return text;
    }

    std::string root;
    std::shared_ptr<VelaService> service;
};

TEST_F(VelaServiceMirrorTest, PathResourcesAreMirroredAsFiles) {
    EXPECT_EQ(file(kUclamp), "0");  // defaults are there from the start

    int32_t first = -1, second = -1;
    service->resCtlRequest(parcel(kKindControl, {item(0, "12", "/proc/demo/knob")}), &first);
    VelaRequestParcel launch = parcel(kKindEvent, {item(kLaunch)});
    service->resCtlRequest(launch, &second);
    EXPECT_EQ(file("/proc/demo/knob"), "12");
    EXPECT_EQ(file(kUclamp), "30");

    int32_t out = -1;
    service->resCtlRelease(second, &out);
    EXPECT_EQ(file(kUclamp), "0");
    service->resCtlRelease(first, &out);
    EXPECT_FALSE(file("/proc/demo/knob").has_value());  // no default: the file goes

    service->resCtlRequest(parcel(kKindControl, {item(0, "1", "../../escape")}), &out);
    EXPECT_EQ(out, kVelaBadRequest);
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::path(root).parent_path() / "escape"));
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
