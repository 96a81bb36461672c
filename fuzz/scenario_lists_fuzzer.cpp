// Arbitrary scenario texts through every list builder: no crash, no read past an opcode table,
// and only the opcodes each builder may produce.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <string>

#include "PaxWrapper.h"
#include "stringUtils.h"

#define FUZZ_CHECK(cond) \
    if (!(cond)) __builtin_trap()

namespace {

template <typename Table>
bool inTable(uint32_t id, const Table& table) {
    return std::find(table.begin(), table.end(), id) != table.end();
}

void checkTargetLoad(const std::string& text) {
    const std::vector<PaxClient::Resource> list = getTargetLoadList(text);
    FUZZ_CHECK(list.size() <= opCodeTargetLoad.size());
    for (size_t i = 0; i < list.size(); ++i) {
        FUZZ_CHECK(inTable(list[i].id, opCodeTargetLoad) && list[i].value);
        // One resource per position, in position order.
        if (i > 0) FUZZ_CHECK(list[i - 1].id < list[i].id);
    }
}

void checkColocation(const std::string& text) {
    const std::vector<PaxClient::Resource> list = getColocationList(text);
    for (size_t i = 0; i < list.size(); ++i) {
        FUZZ_CHECK(list[i].value);
        if (list[i].id == 0x01010fb0) {
            // A migrate band always comes whole and with up above down.
            FUZZ_CHECK(i + 1 < list.size() && list[i + 1].id == 0x01010fc0);
            FUZZ_CHECK(stringUtils::parseInt(*list[i].value) >
                       stringUtils::parseInt(*list[i + 1].value));
            ++i;
        } else {
            FUZZ_CHECK(list[i].id == 0x01011040);
        }
    }
}

void checkGameAdaptation(const std::string& text) {
    const std::vector<PaxClient::Resource> list = getGameAdpList(text);
    FUZZ_CHECK(list.size() <= 16);
    for (const PaxClient::Resource& r : list) {
        FUZZ_CHECK(inTable(r.id, opCodeAdpXpuCoreBoost) || inTable(r.id, opCodeAdpXpuCoreLimit) ||
                   inTable(r.id, opCodeAdpXpuFreqBoost) || inTable(r.id, opCodeAdpXpuFreqLimit));
        FUZZ_CHECK(r.value && stringUtils::trim(*r.value, stringUtils::WHITESPACE) == *r.value);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int32_t level = in.ConsumeIntegral<int32_t>();
    const std::string text = in.ConsumeRemainingBytesAsString();

    checkTargetLoad(text);
    checkColocation(text);
    checkGameAdaptation(text);
    const std::vector<PaxClient::Resource> upgrade = getGameUpgradeList(0, 0, level, 0, 0, text);
    FUZZ_CHECK(upgrade.size() == (level >= 1 ? 1u : 0u) + (text.empty() ? 0u : 1u));
    return 0;
}
