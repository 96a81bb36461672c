#include "RecordingVela.h"

#include <chrono>

namespace hbtest {

void RecordingVela::record(std::string call) {
    std::lock_guard<std::mutex> lock(mMutex);
    mCalls.push_back(std::move(call));
}

std::vector<std::string> RecordingVela::calls() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCalls;
}

VelaRequestParcel RecordingVela::lastParcel() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLastParcel;
}

std::shared_ptr<IVelaCallback> RecordingVela::lastCallback() {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLastCallback;
}

void RecordingVela::release() {
    std::lock_guard<std::mutex> lock(mMutex);
    mReleased = true;
    mCv.notify_all();
}

void RecordingVela::waitUntilHeld() {
    std::unique_lock<std::mutex> lock(mMutex);
    mCv.wait_for(lock, std::chrono::seconds(10), [this] { return mHeld; });
}

ndk::ScopedAStatus RecordingVela::init() {
    record("init()");
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::resCtlRequest(const VelaRequestParcel& in, int32_t* out) {
    record("resCtlRequest(" + std::to_string(in.requestType) + ")");
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mLastParcel = in;
        mLastCallback = in.callback;
    }
    if (onRequest) onRequest(in);
    if (mHold) {
        std::unique_lock<std::mutex> lock(mMutex);
        mHeld = true;
        mCv.notify_all();
        mCv.wait(lock, [this] { return mReleased; });
    }
    *out = 100 + in.requestType;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::resCtlRelease(int32_t handle, int32_t* out) {
    record("resCtlRelease(" + std::to_string(handle) + ")");
    *out = handle + 1;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::resStateRequest(const VelaRequestParcel& in,
                                                  std::vector<VelaRequestData>* out) {
    record("resStateRequest(" + std::to_string(in.requestDatas.size()) + ")");
    for (const VelaRequestData& d : in.requestDatas) {
        VelaRequestData answer = d;
        answer.value = "state-of-" + std::to_string(d.id);
        out->push_back(answer);
    }
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::resListeningRegister(const VelaRequestParcel& in,
                                                       const std::shared_ptr<IVelaCallback>& cb,
                                                       int32_t* out) {
    record(std::string("resListeningRegister(") + (cb ? "cb" : "null") + ")");
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mLastParcel = in;
        mLastCallback = cb;
    }
    *out = 7;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::resListeningUnregister(int32_t handle, int32_t* out) {
    record("resListeningUnregister(" + std::to_string(handle) + ")");
    *out = 0;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::propertyGet(const std::string& key, std::string* out) {
    record("propertyGet(" + key + ")");
    *out = "value-of-" + key;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::propertySet(const std::string& key, const std::string& value,
                                              int32_t* out) {
    record("propertySet(" + key + "," + value + ")");
    *out = 1;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::thermalListeningRegister(
        const std::vector<int32_t>& ids, const std::shared_ptr<IVelaCallback>& cb, int32_t* out) {
    std::string list;
    for (int32_t id : ids) list += std::to_string(id) + ";";
    record("thermalListeningRegister(" + list + ")");
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mLastCallback = cb;
    }
    *out = 9;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::thermalListeningUnregister(int32_t handle, int32_t* out) {
    record("thermalListeningUnregister(" + std::to_string(handle) + ")");
    *out = 0;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::reserved(int32_t* /*out*/) {
    record("reserved()");
    return ndk::ScopedAStatus::fromExceptionCode(EX_UNSUPPORTED_OPERATION);
}

ndk::ScopedAStatus RecordingVela::setRelatedSysInfo(int32_t info, int64_t value, int32_t* out) {
    record("setRelatedSysInfo(" + std::to_string(info) + "," + std::to_string(value) + ")");
    *out = 3;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus RecordingVela::ruleCtl(int32_t ruleId, int32_t status,
                                          const std::vector<VelaRequestData>& items,
                                          int32_t* out) {
    record("ruleCtl(" + std::to_string(ruleId) + "," + std::to_string(status) + "," +
           std::to_string(items.size()) + ")");
    if (ruleId < 0) return ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(-ruleId, "no");
    *out = 4;
    return ndk::ScopedAStatus::ok();
}

}  // namespace hbtest
