#include "FakeVela.h"

#include <gtest/gtest.h>
#include <hostbinder/hostbinder.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace paxtest {

StatusInfo StatusInfo::of(const ::ndk::ScopedAStatus& status) {
    StatusInfo info;
    info.ok = status.isOk();
    info.description = status.getDescription();
    if (status.get() != nullptr) {
        info.exception = status.getExceptionCode();
        info.serviceSpecific = status.getServiceSpecificError();
        info.status = status.getStatus();
    }
    return info;
}

Answer Answer::ok() {
    return Answer{};
}

Answer Answer::ok(int32_t result) {
    Answer a;
    a.result = result;
    return a;
}

Answer Answer::items(std::vector<VelaRequestData> replyItems) {
    Answer a;
    a.replyItems = std::move(replyItems);
    return a;
}

Answer Answer::property(std::string text) {
    Answer a;
    a.text = std::move(text);
    return a;
}

Answer Answer::exception(binder_exception_t code) {
    Answer a;
    a.kind = Kind::kException;
    a.code = code;
    return a;
}

Answer Answer::serviceSpecific(int32_t code) {
    Answer a;
    a.kind = Kind::kServiceSpecific;
    a.code = code;
    return a;
}

Answer Answer::transactionError(binder_status_t code) {
    Answer a;
    a.kind = Kind::kTransactionError;
    a.code = code;
    return a;
}

Answer Answer::withNestedCallback(std::vector<VelaRequestData> items) && {
    nestedCallback = std::move(items);
    return std::move(*this);
}

Answer Answer::withHook(std::function<void(const VelaCall&)> fn) && {
    hook = std::move(fn);
    return std::move(*this);
}

Answer Answer::withDelay(std::chrono::milliseconds d) && {
    delay = d;
    return std::move(*this);
}

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

}  // namespace

const std::vector<std::string>& FakeVela::methodNames() {
    static const std::vector<std::string> names = {
            "init",
            "resCtlRequest",
            "resCtlRelease",
            "resStateRequest",
            "resListeningRegister",
            "resListeningUnregister",
            "propertyGet",
            "propertySet",
            "thermalListeningRegister",
            "thermalListeningUnregister",
            "reserved",
            "setRelatedSysInfo",
            "ruleCtl",
    };
    return names;
}

FakeVela::FakeVela() {
    for (const auto& name : methodNames()) mScripts[name];
}

FakeVela::~FakeVela() = default;

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

void FakeVela::resetScript() {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto& [name, script] : mScripts) {
        script.fallback = Answer{};
        script.queue.clear();
    }
    mNextHandle = 1;
}

std::vector<VelaCall> FakeVela::calls() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCalls;
}

std::vector<VelaCall> FakeVela::callsTo(const std::string& method) const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<VelaCall> out;
    for (const auto& call : mCalls) {
        if (call.method == method) out.push_back(call);
    }
    return out;
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

VelaCall FakeVela::lastCall() const {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mCalls.empty()) {
        ADD_FAILURE() << "FakeVela received no call";
        return VelaCall{};
    }
    return mCalls.back();
}

VelaCall FakeVela::lastCall(const std::string& method) const {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto it = mCalls.rbegin(); it != mCalls.rend(); ++it) {
        if (it->method == method) return *it;
    }
    ADD_FAILURE() << "FakeVela received no call to " << method;
    return VelaCall{};
}

VelaRequestParcel FakeVela::lastParcel() const {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto it = mCalls.rbegin(); it != mCalls.rend(); ++it) {
        if (it->parcel) return *it->parcel;
    }
    ADD_FAILURE() << "FakeVela received no call with a parcel";
    return VelaRequestParcel{};
}

bool FakeVela::waitForCalls(size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] { return mCalls.size() >= n; });
}

bool FakeVela::waitForCallsTo(const std::string& method, size_t n,
                              std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] {
        return static_cast<size_t>(std::count_if(mCalls.begin(), mCalls.end(), [&](const auto& c) {
                   return c.method == method;
               })) >= n;
    });
}

void FakeVela::clearCalls() {
    std::vector<VelaCall> dropped;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        dropped.swap(mCalls);
    }
    // The records may hold the last references to callback proxies; let them go unlocked.
}

void FakeVela::blockNext(const std::string& method, int count) {
    std::lock_guard<std::mutex> lock(mMutex);
    scriptFor(method).gates += count;
}

bool FakeVela::waitUntilBlocked(size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] { return mBlocked >= n; });
}

size_t FakeVela::blockedCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mBlocked;
}

void FakeVela::release() {
    std::lock_guard<std::mutex> lock(mMutex);
    for (auto& [name, script] : mScripts) script.gates = 0;
    ++mReleaseGeneration;
    mChanged.notify_all();
}

size_t FakeVela::callbackCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mCallbacks.size();
}

std::shared_ptr<IVelaCallback> FakeVela::callbackAt(size_t index) const {
    std::lock_guard<std::mutex> lock(mMutex);
    if (index >= mCallbacks.size()) return nullptr;
    return mCallbacks[index];
}

bool FakeVela::waitForCallbacks(size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] { return mCallbacks.size() >= n; });
}

::ndk::ScopedAStatus FakeVela::fireCallback(size_t index,
                                            const std::vector<VelaRequestData>& items) {
    std::shared_ptr<IVelaCallback> callback = callbackAt(index);
    if (callback == nullptr) {
        ADD_FAILURE() << "FakeVela has no callback #" << index << " (it has " << callbackCount()
                      << ")";
        return ::ndk::ScopedAStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
    }
    return callback->onCallback(items);
}

void FakeVela::forgetCallbacks() {
    std::vector<std::shared_ptr<IVelaCallback>> dropped;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        dropped.swap(mCallbacks);
    }
}

Answer FakeVela::handle(VelaCall call, const std::shared_ptr<IVelaCallback>& callback) {
    call.thread = std::this_thread::get_id();
    call.onBinderThread = HostBinder_isBinderThread();

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
        mChanged.notify_all();

        if (script.gates > 0) {
            --script.gates;
            ++mBlocked;
            mChanged.notify_all();
            const uint64_t generation = mReleaseGeneration;
            mChanged.wait(lock, [&] { return mReleaseGeneration != generation; });
            --mBlocked;
        }
    }

    if (answer.delay.count() > 0) std::this_thread::sleep_for(answer.delay);
    if (answer.hook) answer.hook(call);
    if (answer.nestedCallback && callback != nullptr) {
        StatusInfo status = StatusInfo::of(callback->onCallback(*answer.nestedCallback));
        std::lock_guard<std::mutex> lock(mMutex);
        // clearCalls() may have run meanwhile; find the record by its sequence number.
        for (auto& recorded : mCalls) {
            if (recorded.sequence == call.sequence) recorded.nestedCallbackStatus = status;
        }
    }
    return answer;
}

::ndk::ScopedAStatus FakeVela::statusOf(const Answer& answer) const {
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

int32_t FakeVela::resultOf(const std::string& method, const Answer& answer) {
    if (answer.result) return *answer.result;
    if (!givesHandle(method)) return 0;
    std::lock_guard<std::mutex> lock(mMutex);
    return mNextHandle++;
}

::ndk::ScopedAStatus FakeVela::init() {
    VelaCall call;
    call.method = "init";
    return statusOf(handle(std::move(call), nullptr));
}

::ndk::ScopedAStatus FakeVela::resCtlRequest(const VelaRequestParcel& in_request,
                                             int32_t* _aidl_return) {
    VelaCall call;
    call.method = "resCtlRequest";
    call.parcel = in_request;
    Answer answer = handle(std::move(call), in_request.callback);
    *_aidl_return = resultOf("resCtlRequest", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::resCtlRelease(int32_t in_handle, int32_t* _aidl_return) {
    VelaCall call;
    call.method = "resCtlRelease";
    call.handle = in_handle;
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = resultOf("resCtlRelease", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::resStateRequest(const VelaRequestParcel& in_request,
                                               std::vector<VelaRequestData>* _aidl_return) {
    VelaCall call;
    call.method = "resStateRequest";
    call.parcel = in_request;
    Answer answer = handle(std::move(call), in_request.callback);
    *_aidl_return = answer.replyItems;
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::resListeningRegister(
        const VelaRequestParcel& in_request, const std::shared_ptr<IVelaCallback>& in_callback,
        int32_t* _aidl_return) {
    VelaCall call;
    call.method = "resListeningRegister";
    call.parcel = in_request;
    call.callback = in_callback;
    // A parcel callback, if the caller set one too, is kept as well (before the argument).
    if (in_request.callback != nullptr && in_request.callback != in_callback) {
        std::lock_guard<std::mutex> lock(mMutex);
        mCallbacks.push_back(in_request.callback);
    }
    Answer answer = handle(std::move(call), in_callback);
    *_aidl_return = resultOf("resListeningRegister", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::resListeningUnregister(int32_t in_handle, int32_t* _aidl_return) {
    VelaCall call;
    call.method = "resListeningUnregister";
    call.handle = in_handle;
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = resultOf("resListeningUnregister", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::propertyGet(const std::string& in_key, std::string* _aidl_return) {
    VelaCall call;
    call.method = "propertyGet";
    call.key = in_key;
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = answer.text;
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::propertySet(const std::string& in_key, const std::string& in_value,
                                           int32_t* _aidl_return) {
    VelaCall call;
    call.method = "propertySet";
    call.key = in_key;
    call.value = in_value;
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = resultOf("propertySet", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::thermalListeningRegister(
        const std::vector<int32_t>& in_ids, const std::shared_ptr<IVelaCallback>& in_callback,
        int32_t* _aidl_return) {
    VelaCall call;
    call.method = "thermalListeningRegister";
    call.ids = in_ids;
    call.callback = in_callback;
    Answer answer = handle(std::move(call), in_callback);
    *_aidl_return = resultOf("thermalListeningRegister", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::thermalListeningUnregister(int32_t in_handle,
                                                          int32_t* _aidl_return) {
    VelaCall call;
    call.method = "thermalListeningUnregister";
    call.handle = in_handle;
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = resultOf("thermalListeningUnregister", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::reserved(int32_t* _aidl_return) {
    VelaCall call;
    call.method = "reserved";
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = resultOf("reserved", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::setRelatedSysInfo(int32_t in_info, int64_t in_value,
                                                 int32_t* _aidl_return) {
    VelaCall call;
    call.method = "setRelatedSysInfo";
    call.info = in_info;
    call.sysInfoValue = in_value;
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = resultOf("setRelatedSysInfo", answer);
    return statusOf(answer);
}

::ndk::ScopedAStatus FakeVela::ruleCtl(int32_t in_ruleId, int32_t in_status,
                                       const std::vector<VelaRequestData>& in_items,
                                       int32_t* _aidl_return) {
    VelaCall call;
    call.method = "ruleCtl";
    call.ruleId = in_ruleId;
    call.ruleStatus = in_status;
    call.items = in_items;
    Answer answer = handle(std::move(call), nullptr);
    *_aidl_return = resultOf("ruleCtl", answer);
    return statusOf(answer);
}

}  // namespace paxtest
