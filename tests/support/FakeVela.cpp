#include "FakeVela.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace paxtest {

VelaRequestData makeItem(int32_t id, int32_t param, std::optional<std::string> value,
                         std::optional<std::string> value2, std::optional<std::string> value3) {
    VelaRequestData item{};
    item.id = id;
    item.param = param;
    item.value = std::move(value);
    item.value2 = std::move(value2);
    item.value3 = std::move(value3);
    return item;
}

namespace {

bool givesHandle(const std::string& method) {
    return method == "resCtlRequest" || method == "resListeningRegister" ||
           method == "thermalListeningRegister";
}

::ndk::ScopedAStatus statusOf(const Answer& answer) {
    switch (answer.kind) {
        case Answer::Kind::kOk:
            return ::ndk::ScopedAStatus::ok();
        case Answer::Kind::kException:
            return ::ndk::ScopedAStatus::fromExceptionCode(answer.code);
        case Answer::Kind::kServiceSpecific:
            return ::ndk::ScopedAStatus::fromServiceSpecificError(answer.code);
        case Answer::Kind::kTransactionError:
            return ::ndk::ScopedAStatus::fromStatus(answer.code);
    }
    return ::ndk::ScopedAStatus::ok();
}

}  // namespace

FakeVela::FakeVela() {
    // The IVela methods this fake records and scripts (getInterfaceVersion is the stub's own).
    for (const char* name :
         {"init", "resCtlRequest", "resCtlRelease", "resStateRequest", "resListeningRegister",
          "resListeningUnregister", "propertyGet", "propertySet", "thermalListeningRegister",
          "thermalListeningUnregister", "reserved", "setRelatedSysInfo", "ruleCtl"}) {
        mScripts[name];
    }
}

FakeVela::Script& FakeVela::scriptFor(const std::string& method) {
    auto it = mScripts.find(method);
    if (it == mScripts.end()) throw std::invalid_argument("FakeVela: no method " + method);
    return it->second;
}

void FakeVela::setDefault(const std::string& method, Answer answer) {
    std::lock_guard<std::mutex> lock(mMutex);
    scriptFor(method).fallback = std::move(answer);
}

void FakeVela::enqueue(const std::string& method, Answer answer) {
    std::lock_guard<std::mutex> lock(mMutex);
    scriptFor(method).queue.push_back(std::move(answer));
}

std::vector<VelaCall> FakeVela::calls() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCalls;
}

size_t FakeVela::callCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCalls.size();
}

size_t FakeVela::callCount(const std::string& method) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return std::count_if(mCalls.begin(), mCalls.end(),
                         [&](const VelaCall& c) { return c.method == method; });
}

VelaCall FakeVela::lastMatching(const std::function<bool(const VelaCall&)>& match,
                                const std::string& what) const {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto it = mCalls.rbegin(); it != mCalls.rend(); ++it) {
        if (match(*it)) return *it;
    }
    ADD_FAILURE() << "FakeVela received no call" << what;
    return VelaCall{};
}

VelaCall FakeVela::lastCall() const {
    return lastMatching([](const VelaCall&) { return true; }, "");
}

VelaCall FakeVela::lastCall(const std::string& method) const {
    return lastMatching([&](const VelaCall& c) { return c.method == method; }, " to " + method);
}

VelaRequestParcel FakeVela::lastParcel() const {
    auto hasParcel = [](const VelaCall& c) { return c.parcel.has_value(); };
    return lastMatching(hasParcel, " with a parcel").parcel.value_or(VelaRequestParcel{});
}

void FakeVela::clearCalls() {
    std::vector<VelaCall> dropped;
    std::lock_guard<std::mutex> lock(mMutex);
    dropped.swap(mCalls);
    // The records may hold the last references to callback proxies: `dropped` lets them go
    // after the lock (destroyed in reverse order of declaration).
}

void FakeVela::blockNext(const std::string& method, int count) {
    std::lock_guard<std::mutex> lock(mMutex);
    scriptFor(method).gates += count;
}

bool FakeVela::waitUntilBlocked(size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] { return mBlocked >= n; });
}

void FakeVela::release() {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto& [name, script] : mScripts) script.gates = 0;
    ++mReleaseGeneration;
    mChanged.notify_all();
}

std::shared_ptr<IVelaCallback> FakeVela::callbackAt(size_t index) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return index < mCallbacks.size() ? mCallbacks[index] : nullptr;
}

::ndk::ScopedAStatus FakeVela::fireCallback(size_t index,
                                            const std::vector<VelaRequestData>& items) {
    std::shared_ptr<IVelaCallback> callback = callbackAt(index);
    if (callback != nullptr) return callback->onCallback(items);
    ADD_FAILURE() << "FakeVela has no callback #" << index;
    return ::ndk::ScopedAStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
}

void FakeVela::forgetCallbacks() {
    std::vector<std::shared_ptr<IVelaCallback>> dropped;
    std::lock_guard<std::mutex> lock(mMutex);
    dropped.swap(mCallbacks);  // released after the lock, as in clearCalls()
}

Answer FakeVela::handle(VelaCall call, const std::shared_ptr<IVelaCallback>& callback) {
    Answer answer;
    {
        std::unique_lock<std::mutex> lock(mMutex);
        Script& script = scriptFor(call.method);
        if (!script.queue.empty()) {
            answer = std::move(script.queue.front());
            script.queue.pop_front();
        } else {
            answer = script.fallback;
        }
        call.sequence = mSequence++;
        if (callback != nullptr) mCallbacks.push_back(callback);
        mCalls.push_back(call);
        if (script.gates > 0) {
            --script.gates;
            ++mBlocked;
            mChanged.notify_all();
            const uint64_t generation = mReleaseGeneration;
            mChanged.wait(lock, [&] { return mReleaseGeneration != generation; });
            --mBlocked;
        }
    }

    if (answer.hook) answer.hook(call);
    if (answer.nestedCallback && callback != nullptr) {
        ::ndk::ScopedAStatus status = callback->onCallback(*answer.nestedCallback);
        std::lock_guard<std::mutex> lock(mMutex);
        // clearCalls() may have run meanwhile; find the record by its sequence number.
        for (auto& recorded : mCalls) {
            if (recorded.sequence == call.sequence) {
                recorded.nestedCallbackStatus = StatusInfo{status.isOk(), status.getDescription()};
            }
        }
    }
    return answer;
}

::ndk::ScopedAStatus FakeVela::reply(VelaCall call, int32_t* out,
                                     const std::shared_ptr<IVelaCallback>& callback) {
    const std::string method = call.method;
    Answer answer = handle(std::move(call), callback);
    if (answer.result) {
        *out = *answer.result;
    } else if (givesHandle(method)) {
        std::lock_guard<std::mutex> lock(mMutex);
        *out = mNextHandle++;
    } else {
        *out = 0;
    }
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::init() {
    return statusOf(handle(VelaCall("init"), nullptr));
}

::ndk::ScopedAStatus FakeVela::resCtlRequest(const VelaRequestParcel& in_request,
                                             int32_t* _aidl_return) {
    VelaCall call("resCtlRequest");
    call.parcel = in_request;
    return reply(std::move(call), _aidl_return, in_request.callback);
}

::ndk::ScopedAStatus FakeVela::resCtlRelease(int32_t in_handle, int32_t* _aidl_return) {
    VelaCall call("resCtlRelease");
    call.handle = in_handle;
    return reply(std::move(call), _aidl_return);
}

::ndk::ScopedAStatus FakeVela::resStateRequest(const VelaRequestParcel& in_request,
                                               std::vector<VelaRequestData>* _aidl_return) {
    VelaCall call("resStateRequest");
    call.parcel = in_request;
    Answer answer = handle(std::move(call), in_request.callback);
    *_aidl_return = answer.replyItems;
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::resListeningRegister(
        const VelaRequestParcel& in_request, const std::shared_ptr<IVelaCallback>& in_callback,
        int32_t* _aidl_return) {
    // A parcel callback, if the caller set one too, is kept as well (before the argument).
    if (in_request.callback != nullptr && in_request.callback != in_callback) {
        std::lock_guard<std::mutex> lock(mMutex);
        mCallbacks.push_back(in_request.callback);
    }
    VelaCall call("resListeningRegister");
    call.parcel = in_request;
    call.callback = in_callback;
    return reply(std::move(call), _aidl_return, in_callback);
}

::ndk::ScopedAStatus FakeVela::resListeningUnregister(int32_t in_handle, int32_t* _aidl_return) {
    VelaCall call("resListeningUnregister");
    call.handle = in_handle;
    return reply(std::move(call), _aidl_return);
}

::ndk::ScopedAStatus FakeVela::propertyGet(const std::string& in_key, std::string* _aidl_return) {
    VelaCall call("propertyGet");
    call.key = in_key;
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = answer.text;
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::propertySet(const std::string& in_key, const std::string& in_value,
                                           int32_t* _aidl_return) {
    VelaCall call("propertySet");
    call.key = in_key;
    call.value = in_value;
    return reply(std::move(call), _aidl_return);
}

::ndk::ScopedAStatus FakeVela::thermalListeningRegister(
        const std::vector<int32_t>& in_ids, const std::shared_ptr<IVelaCallback>& in_callback,
        int32_t* _aidl_return) {
    VelaCall call("thermalListeningRegister");
    call.ids = in_ids;
    call.callback = in_callback;
    return reply(std::move(call), _aidl_return, in_callback);
}

::ndk::ScopedAStatus FakeVela::thermalListeningUnregister(int32_t in_handle,
                                                          int32_t* _aidl_return) {
    VelaCall call("thermalListeningUnregister");
    call.handle = in_handle;
    return reply(std::move(call), _aidl_return);
}

::ndk::ScopedAStatus FakeVela::reserved(int32_t* _aidl_return) {
    return reply(VelaCall("reserved"), _aidl_return);
}

::ndk::ScopedAStatus FakeVela::setRelatedSysInfo(int32_t in_info, int64_t in_value,
                                                 int32_t* _aidl_return) {
    VelaCall call("setRelatedSysInfo");
    call.info = in_info;
    call.sysInfoValue = in_value;
    return reply(std::move(call), _aidl_return);
}

::ndk::ScopedAStatus FakeVela::ruleCtl(int32_t in_ruleId, int32_t in_status,
                                       const std::vector<VelaRequestData>& in_items,
                                       int32_t* _aidl_return) {
    VelaCall call("ruleCtl");
    call.ruleId = in_ruleId;
    call.ruleStatus = in_status;
    call.items = in_items;
    return reply(std::move(call), _aidl_return);
}

}  // namespace paxtest
