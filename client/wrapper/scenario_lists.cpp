#include <array>
#include <utility>

#include "PaxWrapper.h"
#include "stringUtils.h"
#include "wrapper_internal.h"

namespace {

constexpr uint32_t kOpColocation = 0x01011040;
constexpr uint32_t kOpGroupMigrateUp = 0x01010fb0;
constexpr uint32_t kOpGroupMigrateDown = 0x01010fc0;
// The service takes the game upgrade level on the colocation resource, not on one of its own.
constexpr uint32_t kOpGameUpgradeLevel = kOpColocation;
constexpr uint32_t kOpGameUpgradeText = 0x010115b0;

// Appends "groupmigrate:<up>-<down>" when it describes a real band.
void appendGroupMigrate(const std::string& band, std::vector<PaxClient::Resource>& out) {
    const std::vector<std::string> bounds = stringUtils::split(band, "-");
    if (bounds.size() < 2) return;
    const int32_t up = stringUtils::parseInt(bounds[0]);
    const int32_t down = stringUtils::parseInt(bounds[1]);
    // An inverted or empty band, or one that still carries the "unset" marker, would pin the
    // group instead of letting it migrate.
    if (up <= down || up == -1 || down == -1) return;
    out.push_back(PaxResourceInfo(kOpGroupMigrateUp, stringUtils::valueOf(up)));
    out.push_back(PaxResourceInfo(kOpGroupMigrateDown, stringUtils::valueOf(down)));
}

}  // namespace

const std::array<uint32_t, 3> opCodeTargetLoad = {0x010108a0, 0x010108b0, 0x010108c0};
const std::array<uint32_t, 4> opCodeAdpXpuCoreBoost = {0x01010b10, 0x01010b20, 0x01010b30,
                                                       0x01020070};
const std::array<uint32_t, 4> opCodeAdpXpuCoreLimit = {0x01010b90, 0x01010ba0, 0x01010bb0,
                                                       0x01020080};
const std::array<uint32_t, 4> opCodeAdpXpuFreqBoost = {0x01010010, 0x01010020, 0x01010030,
                                                       0x01020050};
const std::array<uint32_t, 4> opCodeAdpXpuFreqLimit = {0x010100a0, 0x010100b0, 0x010100c0,
                                                       0x01020060};

PaxClient::Resource PaxResourceInfo(uint32_t opcode, std::string value) {
    PaxClient::Resource resource;
    resource.id = opcode;
    resource.value = std::move(value);
    return resource;
}

std::vector<PaxClient::Resource> getTargetLoadList(std::string text) {
    std::vector<PaxClient::Resource> list;
    const std::vector<std::string> elements = stringUtils::split(text, ",");
    // The text is "<label>-<load>" pairs when some element has a dash after its first
    // character; a leading dash is a sign, so "10,-1,30" stays a plain list in which "-1"
    // skips its position. (Taking any dash as the mark of pairs would turn that list into
    // nothing, which no caller writing -1 for "leave this one" expects.)
    bool pairs = false;
    for (const std::string& element : elements) {
        if (element.find('-', 1) != std::string::npos) pairs = true;
    }
    // Each element owns the opcode of its position, used or not; surplus elements have none.
    for (size_t i = 0; i < elements.size() && i < opCodeTargetLoad.size(); ++i) {
        if (pairs) {
            std::vector<std::string> pair = stringUtils::split(elements[i], "-");
            if (pair.size() >= 2) {
                list.push_back(PaxResourceInfo(opCodeTargetLoad[i], std::move(pair[1])));
            }
        } else if (elements[i] != "-1") {
            list.push_back(PaxResourceInfo(opCodeTargetLoad[i], elements[i]));
        }
    }
    return list;
}

std::vector<PaxClient::Resource> getColocationList(const std::string& text) {
    std::vector<PaxClient::Resource> list;
    for (const std::string& entry : stringUtils::split(text, ",")) {
        const std::vector<std::string> keyValue = stringUtils::split(entry, ":");
        if (keyValue.size() < 2) continue;
        const std::string& key = keyValue[0];
        const std::string& value = keyValue[1];
        if (stringUtils::equals(key, "colocation")) {
            list.push_back(PaxResourceInfo(kOpColocation, value));
        } else if (stringUtils::equals(key, "groupmigrate")) {
            appendGroupMigrate(value, list);
        }
    }
    return list;
}

std::vector<PaxClient::Resource> getGameAdpList(const std::string& text) {
    static const std::array<const std::array<uint32_t, 4>*, 4> kGroupTables = {
            &opCodeAdpXpuCoreBoost, &opCodeAdpXpuCoreLimit, &opCodeAdpXpuFreqBoost,
            &opCodeAdpXpuFreqLimit};
    std::vector<PaxClient::Resource> list;
    const std::vector<std::string> groups = stringUtils::split(text, ";");
    for (size_t g = 0; g < groups.size() && g < kGroupTables.size(); ++g) {
        // A single value is not a valid group: the service wants the levels of several cores.
        if (!stringUtils::contains(groups[g], ",")) continue;
        const std::array<uint32_t, 4>& table = *kGroupTables[g];
        const std::vector<std::string> values = stringUtils::split(groups[g], ",");
        for (size_t k = 0; k < values.size() && k < table.size(); ++k) {
            list.push_back(PaxResourceInfo(table[k],
                                           stringUtils::trim(values[k], stringUtils::WHITESPACE)));
        }
    }
    return list;
}

std::vector<PaxClient::Resource> getGameUpgradeList(int32_t /*a*/, int32_t /*b*/, int32_t level,
                                                    int32_t /*d*/, int32_t /*e*/,
                                                    const std::string& text) {
    std::vector<PaxClient::Resource> list;
    if (level >= 1)
        list.push_back(PaxResourceInfo(kOpGameUpgradeLevel, stringUtils::valueOf(level)));
    if (!text.empty()) list.push_back(PaxResourceInfo(kOpGameUpgradeText, text));
    return list;
}

namespace pax_wrapper {

std::vector<PaxClient::Resource> gameUpgradeClearList() {
    // The service takes the level opcode twice here: "-1" leaves the mode and the empty second
    // entry carries no level at all, so nothing is left to restore.
    return {PaxResourceInfo(kOpGameUpgradeLevel, stringUtils::valueOf(-1)),
            PaxResourceInfo(kOpGameUpgradeLevel, "")};
}

}  // namespace pax_wrapper
