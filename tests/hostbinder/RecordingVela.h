// A minimal IVela for the runtime's own tests: records what reached it and answers from a few
// fields. (The library's tests use the fuller fake of the test-support library.)
#pragma once

#include <aidl/vendor/norvo/hardware/vela/BnVela.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace hbtest {

using aidl::vendor::norvo::hardware::vela::IVelaCallback;
using aidl::vendor::norvo::hardware::vela::VelaRequestData;
using aidl::vendor::norvo::hardware::vela::VelaRequestParcel;

constexpr const char* kInstance = "vendor.norvo.hardware.vela.IVela/default";

class RecordingVela : public aidl::vendor::norvo::hardware::vela::BnVela {
public:
    ndk::ScopedAStatus init() override;
    ndk::ScopedAStatus resCtlRequest(const VelaRequestParcel& in, int32_t* out) override;
    ndk::ScopedAStatus resCtlRelease(int32_t handle, int32_t* out) override;
    ndk::ScopedAStatus resStateRequest(const VelaRequestParcel& in,
                                       std::vector<VelaRequestData>* out) override;
    ndk::ScopedAStatus resListeningRegister(const VelaRequestParcel& in,
                                            const std::shared_ptr<IVelaCallback>& cb,
                                            int32_t* out) override;
    ndk::ScopedAStatus resListeningUnregister(int32_t handle, int32_t* out) override;
    ndk::ScopedAStatus propertyGet(const std::string& key, std::string* out) override;
    ndk::ScopedAStatus propertySet(const std::string& key, const std::string& value,
                                   int32_t* out) override;
    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>& ids,
                                                const std::shared_ptr<IVelaCallback>& cb,
                                                int32_t* out) override;
    ndk::ScopedAStatus thermalListeningUnregister(int32_t handle, int32_t* out) override;
    ndk::ScopedAStatus reserved(int32_t* out) override;
    ndk::ScopedAStatus setRelatedSysInfo(int32_t info, int64_t value, int32_t* out) override;
    ndk::ScopedAStatus ruleCtl(int32_t ruleId, int32_t status,
                               const std::vector<VelaRequestData>& items, int32_t* out) override;

    // Each call as "name(args)", in order of arrival.
    std::vector<std::string> calls();
    VelaRequestParcel lastParcel();
    std::shared_ptr<IVelaCallback> lastCallback();

    // Called inside resCtlRequest before it answers, when set.
    std::function<void(const VelaRequestParcel&)> onRequest;
    // When set, resCtlRequest blocks until release() is called.
    void holdRequests() { mHold = true; }
    void release();
    void waitUntilHeld();

private:
    void record(std::string call);
    std::mutex mMutex;
    std::condition_variable mCv;
    std::vector<std::string> mCalls;
    VelaRequestParcel mLastParcel{};
    std::shared_ptr<IVelaCallback> mLastCallback;
    bool mHold = false;
    bool mHeld = false;
    bool mReleased = false;
};

}  // namespace hbtest
