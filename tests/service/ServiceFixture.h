// The reference service driven in-process through its IVela methods, with the words its tests
// share: items, parcels, a recording callback and a fixture that calls each method.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/BnVelaCallback.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "VelaService.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace protocol = ::aidl::vendor::norvo::hardware::vela::protocol;

inline constexpr uint32_t kLittleFloor = 0x01010010;  // cpu.little.freq_min, default 300000
inline constexpr uint32_t kLittleLoad = 0x010108a0;   // sched.little.target_load, default 80
inline constexpr uint32_t kBigFloor = 0x01010020;     // cpu.big.freq_min, default 710400
inline constexpr char kUclamp[] = "/dev/cpuctl/top-app/cpu.uclamp.min";  // default 0
inline constexpr int32_t kLaunch = 0;                                    // ACTION_LAUNCH
inline const ResourceKey kUclampKey = ResourceKey::ofPath(kUclamp);

inline VelaRequestData item(int32_t id, std::optional<std::string> value = {},
                            std::optional<std::string> path = {}) {
    VelaRequestData data{};
    data.id = id;
    data.value = std::move(value);
    data.value2 = std::move(path);
    return data;
}

inline VelaRequestParcel parcel(int32_t kind, std::vector<VelaRequestData> items,
                                int64_t durationMs = 0) {
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
                    int32_t kind = protocol::kKindControl) {
        return submit(parcel(kind, std::move(items), durationMs));
    }
    int32_t event(int32_t id, int64_t durationMs = 0, std::vector<VelaRequestData> extra = {}) {
        extra.insert(extra.begin(), item(id));
        return control(std::move(extra), durationMs, protocol::kKindEvent);
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
    int32_t diagnostic(int32_t code) { return control({item(code)}, 0, protocol::kKindDiagnostic); }
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
    struct Answer {
        binder_status_t status;
        std::string text;
    };
    // What an asker of dumpsys reads from its end of the descriptor it handed over.
    Answer dumpsys(std::vector<const char*> args) {
        int fds[2];
        EXPECT_EQ(0, pipe(fds));
        std::string text;
        std::thread reader([&] {
            char buffer[4096];
            ssize_t n;
            while ((n = read(fds[0], buffer, sizeof(buffer))) > 0) text.append(buffer, n);
        });
        const binder_status_t status =
                service->dump(fds[1], args.data(), static_cast<uint32_t>(args.size()));
        close(fds[1]);
        reader.join();
        close(fds[0]);
        return {status, text};
    }

    std::shared_ptr<VelaService> service = ::ndk::SharedRefBase::make<VelaService>();
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
