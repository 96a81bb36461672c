#include "FakeVela.h"

#include <sstream>
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

std::string describe(const std::vector<VelaRequestData>& items) {
    std::ostringstream s;
    for (const auto& item : items) {
        s << " | " << std::hex << static_cast<uint32_t>(item.id) << std::dec;
        if (item.param != 0) s << " param:" << item.param;
        if (item.value) s << " =" << *item.value;
        if (item.value2) s << " @" << *item.value2;
        if (item.value3) s << " value3:" << *item.value3;
    }
    return s.str();
}

std::string describe(const VelaRequestParcel& p) {
    std::ostringstream s;
    s << p.requestType << ' ' << p.param1 << ' ' << p.param2 << ' ' << p.param4 << ' ' << p.param6;
    if (p.optionFlag) s << " flag";
    if (p.callback) s << " callback";
    if (p.packageName) s << " pkg:" << *p.packageName;
    if (p.identity) s << " id:" << *p.identity;
    const char* separator = " paths:";
    for (const auto& text : p.paths.value_or(std::vector<std::optional<std::string>>{})) {
        s << std::exchange(separator, ",") << text.value_or("null");
    }
    if (p.paths && p.paths->empty()) s << separator;
    separator = " extras:";
    for (int64_t value : p.extraValues.value_or(std::vector<int64_t>{})) {
        s << std::exchange(separator, ",") << value;
    }
    if (p.extraValues && p.extraValues->empty()) s << separator;
    return s.str() + describe(p.requestDatas);
}

MockVela::MockVela() {
    // Runtimes keep served objects (and callback proxies keep connections) past a test's end.
    ::testing::Mock::AllowLeak(this);
    // The generated stub sends back whatever the out-argument holds: always set it.
    ON_CALL(*this, resCtlRequest).WillByDefault([this](const VelaRequestParcel& p, int32_t* out) {
        *out = keep(p.callback);
        return Status::ok();
    });
    ON_CALL(*this, resListeningRegister)
            .WillByDefault([this](const VelaRequestParcel&, const Callback& cb, int32_t* out) {
                *out = keep(cb);
                return Status::ok();
            });
    ON_CALL(*this, thermalListeningRegister)
            .WillByDefault([this](const std::vector<int32_t>&, const Callback& cb, int32_t* out) {
                *out = keep(cb);
                return Status::ok();
            });
    ON_CALL(*this, init).WillByDefault([] { return Status::ok(); });
    ON_CALL(*this, resStateRequest).WillByDefault(reply(Items{}));
    ON_CALL(*this, propertyGet).WillByDefault(reply(std::string()));
    ON_CALL(*this, resCtlRelease).WillByDefault(reply(0));
    ON_CALL(*this, resListeningUnregister).WillByDefault(reply(0));
    ON_CALL(*this, propertySet).WillByDefault(reply(0));
    ON_CALL(*this, thermalListeningUnregister).WillByDefault(reply(0));
    ON_CALL(*this, reserved).WillByDefault(reply(0));
    ON_CALL(*this, setRelatedSysInfo).WillByDefault(reply(0));
    ON_CALL(*this, ruleCtl).WillByDefault(reply(0));
}

int32_t MockVela::keep(const Callback& callback) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (callback != nullptr) mCallbacks.push_back(callback);
    return mNextHandle++;
}

Callback MockVela::callbackAt(size_t index) const {
    std::lock_guard<std::mutex> lock(mMutex);
    return index < mCallbacks.size() ? mCallbacks[index] : nullptr;
}

Status MockVela::fireCallback(size_t index, const Items& items) const {
    Callback callback = callbackAt(index);
    if (callback != nullptr) return callback->onCallback(items);
    ADD_FAILURE() << "the fake service holds no callback #" << index;
    return Status::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
}

void MockVela::forgetCallbacks() {
    std::vector<Callback> dropped;
    std::lock_guard<std::mutex> lock(mMutex);
    dropped.swap(mCallbacks);  // released after the lock: proxies may call into the runtime
}

}  // namespace paxtest
