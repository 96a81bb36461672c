// A mock of the resource-control service, for tests of everything that talks to it over the
// host runtime (serve it with ServiceHarness). By default every method answers ok: fresh
// handles (1, 2, ...) from the request and both registrations, 0 from the other int-answering
// methods, nothing from the queries. Tests script answers and check arguments with gmock:
//
//   auto fake = service.startFake();
//   EXPECT_CALL(*fake, resCtlRelease(7, _)).WillOnce(paxtest::reply(3));
//   ON_CALL(*fake, propertyGet).WillByDefault(paxtest::serviceSpecific(1));
//
// The default answers keep every callback they were handed, so a test can call it back later
// as the service would (fireCallback). FakeVela is a NiceMock: calls nobody expects are fine.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/BnVela.h>
#include <aidl/vendor/norvo/hardware/vela/IVelaCallback.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestData.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestParcel.h>
#include <android/binder_status.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace paxtest {

using ::aidl::vendor::norvo::hardware::vela::IVelaCallback;
using ::aidl::vendor::norvo::hardware::vela::VelaRequestData;
using ::aidl::vendor::norvo::hardware::vela::VelaRequestParcel;
using Status = ::ndk::ScopedAStatus;
using Items = std::vector<VelaRequestData>;
using Callback = std::shared_ptr<IVelaCallback>;

VelaRequestData makeItem(int32_t id, int32_t param = 0, std::optional<std::string> value = {},
                         std::optional<std::string> value2 = {},
                         std::optional<std::string> value3 = {});

// One line per parcel, so that a test compares whole parcels and anything unexpected shows up
// as an extra word: "kind param1 param2 param4 param6", the optional parts that are present
// (flag, callback, pkg:, id:, paths:, extras:), then the items.
std::string describe(const VelaRequestParcel& parcel);
// " | id" per item, the id in hex, then " param:", " =value", " @value2", " value3:" as present.
std::string describe(const std::vector<VelaRequestData>& items);

// Actions. reply(v) answers ok with v in the out-argument (every method's last one).
template <typename T>
auto reply(T value) {
    return [value](auto&&... args) {
        *std::get<sizeof...(args) - 1>(std::tie(args...)) = value;
        return Status::ok();
    };
}
inline auto exception(binder_exception_t code) {
    return [code](auto&&...) { return Status::fromExceptionCode(code); };
}
inline auto serviceSpecific(int32_t code) {
    return [code](auto&&...) { return Status::fromServiceSpecificError(code); };
}
// The transaction itself fails: no exception from the service, a failed call.
inline auto transactionError(binder_status_t code) {
    return [code](auto&&...) { return Status::fromStatus(code); };
}

class MockVela : public ::aidl::vendor::norvo::hardware::vela::BnVela {
public:
    MockVela();

    MOCK_METHOD(Status, init, (), (override));
    MOCK_METHOD(Status, resCtlRequest, (const VelaRequestParcel&, int32_t*), (override));
    MOCK_METHOD(Status, resCtlRelease, (int32_t, int32_t*), (override));
    MOCK_METHOD(Status, resStateRequest, (const VelaRequestParcel&, Items*), (override));
    MOCK_METHOD(Status, resListeningRegister, (const VelaRequestParcel&, const Callback&, int32_t*),
                (override));
    MOCK_METHOD(Status, resListeningUnregister, (int32_t, int32_t*), (override));
    MOCK_METHOD(Status, propertyGet, (const std::string&, std::string*), (override));
    MOCK_METHOD(Status, propertySet, (const std::string&, const std::string&, int32_t*),
                (override));
    MOCK_METHOD(Status, thermalListeningRegister,
                (const std::vector<int32_t>&, const Callback&, int32_t*), (override));
    MOCK_METHOD(Status, thermalListeningUnregister, (int32_t, int32_t*), (override));
    MOCK_METHOD(Status, reserved, (int32_t*), (override));
    MOCK_METHOD(Status, setRelatedSysInfo, (int32_t, int64_t, int32_t*), (override));
    MOCK_METHOD(Status, ruleCtl, (int32_t, int32_t, const Items&, int32_t*), (override));

    // The callbacks the default answers were handed, in arrival order; null out of range.
    Callback callbackAt(size_t index) const;
    // Calls callback `index` from this thread, as the service would.
    Status fireCallback(size_t index, const Items& items) const;
    // Lets go of the kept callbacks (their proxies keep connections alive).
    void forgetCallbacks();

private:
    // The default answer of the calls that hand out a handle.
    int32_t keep(const Callback& callback);

    mutable std::mutex mMutex;
    std::vector<Callback> mCallbacks;
    int32_t mNextHandle = 1;
};

using FakeVela = ::testing::NiceMock<MockVela>;

}  // namespace paxtest
