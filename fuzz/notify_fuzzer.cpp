// What PaxNotifyWapper and PaxEventAcquireWrapper make of arbitrary arguments, short of the
// service call: the notification plan and the action-name lookup.
#include <fuzzer/FuzzedDataProvider.h>

#include <string>

#include "PaxWrapper.h"
#include "wrapper_internal.h"

#define FUZZ_CHECK(cond) \
    if (!(cond)) __builtin_trap()

namespace {

int32_t pickSource(FuzzedDataProvider& in) {
    // Mostly the sources that mean something, sometimes anything at all.
    switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0:
            return in.ConsumeIntegral<int32_t>();
        case 1:
            return in.PickValueInArray({1000, 9000, 0, 132, 8999, 9001});
        default:
            return in.ConsumeIntegralInRange<int32_t>(1, 131);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int32_t src = pickSource(in);
    const int32_t type = in.ConsumeIntegralInRange(-1, 3);
    const int32_t value = in.ConsumeIntegral<int32_t>();
    const std::string text = in.ConsumeRandomLengthString(256);
    const std::string payload = in.ConsumeRemainingBytesAsString();

    const auto plan = pax_wrapper::planNotification({payload, src, type, value, text});
    const bool known = (src >= 1 && src <= 131) || src == 1000 || src == 9000;
    if (!known) FUZZ_CHECK(!plan);
    if (plan) {
        for (const PaxClient::Resource& r : plan->resources) FUZZ_CHECK(r.id != 0 && r.value);
    }

    for (const std::string* name : {&text, &payload}) {
        const int32_t id = pax_wrapper::findActionId(*name);
        FUZZ_CHECK(id >= -1 && id < static_cast<int32_t>(gActionList.size()));
        if (id >= 0)
            FUZZ_CHECK(name->compare(0, 7, "MIRDAL_") == 0 && name->substr(7) == gActionList[id]);
    }
    return 0;
}
