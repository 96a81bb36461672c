// A scriptable stand-in for the resource-control service, for tests of everything that talks
// to it. It records every call with a copy of its arguments, answers from a script, can hold a
// call until the test lets it go, and can call back the callbacks it was handed.
//
//   auto fake = ndk::SharedRefBase::make<paxtest::FakeVela>();
//   fake->enqueue("resCtlRequest", paxtest::Answer::ok(42));
//   fake->setDefault("resCtlRelease", paxtest::Answer::serviceSpecific(3));
//
// Method names are the IVela method names ("resCtlRequest", "propertyGet", ...); an unknown
// name throws std::invalid_argument, so a typo in a test fails loudly instead of scripting
// nothing. getInterfaceVersion is answered by the generated stub and is neither scripted nor
// recorded.
//
// Every public member is thread-safe. Incoming calls run on binder threads; no lock of the
// fake is held while it calls out (callbacks, hooks) or while a call is held at a gate.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/BnVela.h>
#include <aidl/vendor/norvo/hardware/vela/IVelaCallback.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestData.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestParcel.h>
#include <android/binder_status.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace paxtest {

using ::aidl::vendor::norvo::hardware::vela::IVelaCallback;
using ::aidl::vendor::norvo::hardware::vela::VelaRequestData;
using ::aidl::vendor::norvo::hardware::vela::VelaRequestParcel;

// A copyable summary of an AStatus, so statuses can be stored in a call record.
struct StatusInfo {
    bool ok = true;
    std::string description;
};

// One incoming call, with copies of everything it carried. Only the fields that belong to
// `method` are set; the others keep their zero values.
struct VelaCall {
    VelaCall() = default;
    explicit VelaCall(std::string m) : method(std::move(m)) {}

    std::string method;
    // resCtlRequest, resStateRequest, resListeningRegister. The copy keeps the parcel's
    // callback proxy alive for as long as the record exists.
    std::optional<VelaRequestParcel> parcel;
    // resCtlRelease, resListeningUnregister, thermalListeningUnregister.
    int32_t handle = 0;
    // propertyGet, propertySet.
    std::string key;
    std::string value;
    // thermalListeningRegister.
    std::vector<int32_t> ids;
    // The callback argument of resListeningRegister and thermalListeningRegister.
    std::shared_ptr<IVelaCallback> callback;
    // setRelatedSysInfo(info, sysInfoValue).
    int32_t info = 0;
    int64_t sysInfoValue = 0;
    // ruleCtl(ruleId, ruleStatus, items).
    int32_t ruleId = 0;
    int32_t ruleStatus = 0;
    std::vector<VelaRequestData> items;
    // Position among all calls this fake received, from 0.
    size_t sequence = 0;
    // Set when the answer asked for a nested callback: the status that onCallback returned.
    std::optional<StatusInfo> nestedCallbackStatus;
};

// What one call answers. Build with the factories; the with* members add to an answer.
struct Answer {
    enum class Kind {
        kOk,                // ok status and the out-value below
        kException,         // AStatus_fromExceptionCode(code)
        kServiceSpecific,   // AStatus_fromServiceSpecificError(code)
        kTransactionError,  // AStatus_fromStatus(code): the transaction itself fails
    };
    Kind kind = Kind::kOk;
    int32_t code = 0;
    // The int out-value. Unset means: a fresh handle (1, 2, 3, ... shared by all methods of
    // one fake) for resCtlRequest, resListeningRegister and thermalListeningRegister, and 0 for
    // every other method.
    std::optional<int32_t> result;
    // resStateRequest's reply items.
    std::vector<VelaRequestData> replyItems;
    // propertyGet's reply.
    std::string text;
    // When set, the call first invokes onCallback(items) on its callback (the parcel's for
    // resCtlRequest/resStateRequest, the argument for the listening registrations) from inside
    // the call, waits for it to return, and only then answers. No callback: nothing happens,
    // and nestedCallbackStatus stays unset.
    std::optional<std::vector<VelaRequestData>> nestedCallback;
    // Runs inside the call after it was recorded (and after any gate), before the answer.
    std::function<void(const VelaCall&)> hook;

    static Answer ok() { return {}; }  // ok, default out-value
    static Answer ok(int32_t result) { return with(&Answer::result, result); }
    static Answer items(std::vector<VelaRequestData> replyItems) {
        return with(&Answer::replyItems, std::move(replyItems));
    }
    static Answer property(std::string text) { return with(&Answer::text, std::move(text)); }
    static Answer exception(binder_exception_t code) { return failure(Kind::kException, code); }
    static Answer serviceSpecific(int32_t code) { return failure(Kind::kServiceSpecific, code); }
    static Answer transactionError(binder_status_t code) {
        return failure(Kind::kTransactionError, code);
    }

    Answer withNestedCallback(std::vector<VelaRequestData> items) && {
        nestedCallback = std::move(items);
        return std::move(*this);
    }
    Answer withHook(std::function<void(const VelaCall&)> fn) && {
        hook = std::move(fn);
        return std::move(*this);
    }

private:
    template <typename Field, typename Value>
    static Answer with(Field Answer::*field, Value&& value) {
        Answer a;
        a.*field = std::forward<Value>(value);
        return a;
    }
    static Answer failure(Kind kind, int32_t code) {
        Answer a;
        a.kind = kind;
        a.code = code;
        return a;
    }
};

// A convenience for building reply and callback items.
VelaRequestData makeItem(int32_t id, int32_t param = 0, std::optional<std::string> value = {},
                         std::optional<std::string> value2 = {},
                         std::optional<std::string> value3 = {});

class FakeVela : public ::aidl::vendor::norvo::hardware::vela::BnVela {
public:
    static constexpr std::chrono::milliseconds kDefaultTimeout{5000};

    FakeVela();

    // --- Script -------------------------------------------------------------------------
    // The answer used when no one-shot answer is queued. Initially Answer::ok().
    void setDefault(const std::string& method, Answer answer);
    // Queues a one-shot answer; queued answers are used first, in order.
    void enqueue(const std::string& method, Answer answer);

    // --- Record -------------------------------------------------------------------------
    std::vector<VelaCall> calls() const;
    size_t callCount() const;
    size_t callCount(const std::string& method) const;
    // The last call (to `method`). Records a test failure and returns an empty record when
    // there is none.
    VelaCall lastCall() const;
    VelaCall lastCall(const std::string& method) const;
    // The parcel of the last call that carried one. Records a test failure and returns a
    // zeroed parcel when there is none.
    VelaRequestParcel lastParcel() const;
    // Drops the records (and the references they hold). Callbacks stay known.
    void clearCalls();

    // --- Gate ---------------------------------------------------------------------------
    // The next `count` calls to `method` stop after they were recorded and wait for release().
    void blockNext(const std::string& method, int count = 1);
    // Waits until at least `n` calls are being held.
    bool waitUntilBlocked(size_t n = 1, std::chrono::milliseconds timeout = kDefaultTimeout) const;
    // Lets every held call go on and disarms gates that no call has reached yet.
    void release();

    // --- Callbacks ----------------------------------------------------------------------
    // Every non-null callback received, in arrival order: a parcel's callback field and the
    // callback argument of the listening registrations. Null when `index` is out of range.
    std::shared_ptr<IVelaCallback> callbackAt(size_t index) const;
    // Calls onCallback(items) on callback `index` from the calling thread and returns its
    // status. An index out of range records a test failure and returns EX_ILLEGAL_ARGUMENT.
    ::ndk::ScopedAStatus fireCallback(size_t index, const std::vector<VelaRequestData>& items);
    // Drops the fake's references to the callbacks (calls keep theirs until clearCalls()).
    void forgetCallbacks();

    // --- IVela --------------------------------------------------------------------------
    ::ndk::ScopedAStatus init() override;
    ::ndk::ScopedAStatus resCtlRequest(const VelaRequestParcel& in_request,
                                       int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus resCtlRelease(int32_t in_handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus resStateRequest(const VelaRequestParcel& in_request,
                                         std::vector<VelaRequestData>* _aidl_return) override;
    ::ndk::ScopedAStatus resListeningRegister(const VelaRequestParcel& in_request,
                                              const std::shared_ptr<IVelaCallback>& in_callback,
                                              int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus resListeningUnregister(int32_t in_handle, int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus propertyGet(const std::string& in_key, std::string* _aidl_return) override;
    ::ndk::ScopedAStatus propertySet(const std::string& in_key, const std::string& in_value,
                                     int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>& in_ids,
                                                  const std::shared_ptr<IVelaCallback>& in_callback,
                                                  int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus thermalListeningUnregister(int32_t in_handle,
                                                    int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus reserved(int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t in_info, int64_t in_value,
                                           int32_t* _aidl_return) override;
    ::ndk::ScopedAStatus ruleCtl(int32_t in_ruleId, int32_t in_status,
                                 const std::vector<VelaRequestData>& in_items,
                                 int32_t* _aidl_return) override;

private:
    struct Script {
        Answer fallback;
        std::deque<Answer> queue;
        int gates = 0;
    };

    // Records the call, passes the gate, runs the scripted extras and returns the answer.
    Answer handle(VelaCall call, const std::shared_ptr<IVelaCallback>& callback);
    // handle() for the methods whose out-value is an int: sets it and returns the status.
    ::ndk::ScopedAStatus reply(VelaCall call, int32_t* out,
                               const std::shared_ptr<IVelaCallback>& callback = nullptr);
    Script& scriptFor(const std::string& method);
    // The last call that `match`es; a test failure ("no call" + `what`) when there is none.
    VelaCall lastMatching(const std::function<bool(const VelaCall&)>& match,
                          const std::string& what) const;

    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::map<std::string, Script> mScripts;
    std::vector<VelaCall> mCalls;
    size_t mSequence = 0;
    std::vector<std::shared_ptr<IVelaCallback>> mCallbacks;
    int32_t mNextHandle = 1;
    size_t mBlocked = 0;
    uint64_t mReleaseGeneration = 0;
};

}  // namespace paxtest
