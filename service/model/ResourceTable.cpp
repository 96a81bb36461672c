#include "ResourceTable.h"

#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

namespace aidl::vendor::norvo::hardware::vela::impl {

std::string ResourceKey::toString() const {
    if (isPath()) return path;
    char text[16];
    snprintf(text, sizeof(text), "0x%08" PRIx32, opcode);
    return text;
}

std::string Holder::toString() const {
    return (kind == Kind::kRequest ? "request " : "rule ") + std::to_string(id);
}

void ResourceTable::setDefault(const ResourceKey& key, std::string value) {
    mSlots[key].defaultValue = std::move(value);
}

std::optional<int64_t> parseDecimal(const std::string& text) {
    // strtoll would take leading blanks, and base 0 would read "010" as octal.
    size_t digits = text.empty() || (text[0] != '-' && text[0] != '+') ? 0 : 1;
    if (digits == text.size()) return std::nullopt;
    for (size_t i = digits; i < text.size(); ++i) {
        if (!isdigit(static_cast<unsigned char>(text[i]))) return std::nullopt;
    }
    errno = 0;
    const long long value = strtoll(text.c_str(), nullptr, 10);
    if (errno != 0) return std::nullopt;
    return static_cast<int64_t>(value);
}

void ResourceTable::setArbitration(const ResourceKey& key, Arbitration rule) {
    mArbitration[key] = rule;
}

Arbitration ResourceTable::arbitrationOf(const ResourceKey& key) const {
    auto it = mArbitration.find(key);
    return it == mArbitration.end() ? Arbitration::kLatest : it->second;
}

const ResourceTable::Claim* ResourceTable::winnerIn(const ResourceKey& key,
                                                    const Slot& slot) const {
    if (slot.claims.empty()) return nullptr;
    const Arbitration rule = arbitrationOf(key);
    const Claim* winner = &slot.claims.back();
    if (!isOrdered(rule)) return winner;
    // A claim that is not a number cannot be ordered: any number beats it (the service refuses
    // such claims on the integer resources it declares, so this is for undeclared ones). Among
    // equal values the most recent claim is the winner, so that the holder shown is the one whose
    // release would not change the value.
    std::optional<int64_t> best = parseDecimal(winner->value);
    for (auto it = slot.claims.rbegin() + 1; it != slot.claims.rend(); ++it) {
        const std::optional<int64_t> value = parseDecimal(it->value);
        if (!value) continue;
        const bool better = !best || outranks(rule, *value, *best);
        if (better) {
            best = value;
            winner = &*it;
        }
    }
    return winner;
}

std::optional<std::string> ResourceTable::claimedIn(const ResourceKey& key,
                                                    const Slot& slot) const {
    if (const Claim* winner = winnerIn(key, slot)) return winner->value;
    return slot.defaultValue;
}

std::optional<std::string> ResourceTable::valueIn(const ResourceKey& key, const Slot& slot) const {
    std::optional<std::string> claimed = claimedIn(key, slot);
    auto bound = mCeilingOf.find(key);
    if (!claimed || bound == mCeilingOf.end()) return claimed;
    auto ceilingSlot = mSlots.find(bound->second);
    if (ceilingSlot == mSlots.end()) return claimed;
    std::optional<std::string> ceiling = claimedIn(bound->second, ceilingSlot->second);
    if (!ceiling) return claimed;
    const auto floorValue = parseDecimal(*claimed), ceilingValue = parseDecimal(*ceiling);
    return floorValue && ceilingValue && *floorValue > *ceilingValue ? ceiling : claimed;
}

void ResourceTable::noteBefore(const ResourceKey& key,
                               std::map<ResourceKey, std::optional<std::string>>* before) const {
    before->emplace(key, valueOf(key));
    auto floors = mFloorsOf.equal_range(key);
    for (auto it = floors.first; it != floors.second; ++it) {
        before->emplace(it->second, valueOf(it->second));
    }
}

void ResourceTable::setBound(const ResourceKey& floor, const ResourceKey& ceiling) {
    mCeilingOf[floor] = ceiling;
    mFloorsOf.emplace(ceiling, floor);
}

std::optional<ResourceTable::Conflict> ResourceTable::conflictOn(const ResourceKey& floor) const {
    auto bound = mCeilingOf.find(floor);
    if (bound == mCeilingOf.end()) return std::nullopt;
    auto floorSlot = mSlots.find(floor), ceilingSlot = mSlots.find(bound->second);
    if (floorSlot == mSlots.end() || ceilingSlot == mSlots.end()) return std::nullopt;
    const auto claimed = claimedIn(floor, floorSlot->second);
    const auto ceiling = claimedIn(bound->second, ceilingSlot->second);
    if (!claimed || !ceiling) return std::nullopt;
    const auto floorValue = parseDecimal(*claimed), ceilingValue = parseDecimal(*ceiling);
    if (!floorValue || !ceilingValue || *floorValue <= *ceilingValue) return std::nullopt;
    Conflict conflict{bound->second, *claimed, std::nullopt, *ceiling, std::nullopt};
    if (const Claim* winner = winnerIn(floor, floorSlot->second)) {
        conflict.floorHolder = winner->holder;
    }
    if (const Claim* winner = winnerIn(bound->second, ceilingSlot->second)) {
        conflict.ceilingHolder = winner->holder;
    }
    return conflict;
}

void ResourceTable::withdraw(const Holder& holder,
                             std::map<ResourceKey, std::optional<std::string>>* before) {
    auto held = mHeld.find(holder);
    if (held == mHeld.end()) return;
    for (const ResourceKey& key : held->second) {
        auto slot = mSlots.find(key);
        if (slot == mSlots.end()) continue;
        noteBefore(key, before);
        auto& claims = slot->second.claims;
        for (auto it = claims.begin(); it != claims.end();) {
            it = it->holder == holder ? claims.erase(it) : it + 1;
        }
    }
    mHeld.erase(held);
}

std::vector<Change> ResourceTable::diff(
        const std::map<ResourceKey, std::optional<std::string>>& before) {
    std::vector<Change> changes;
    for (const auto& [key, old] : before) {
        auto slot = mSlots.find(key);
        std::optional<std::string> now;
        if (slot != mSlots.end()) {
            now = valueIn(key, slot->second);
            if (slot->second.claims.empty() && !slot->second.defaultValue) mSlots.erase(slot);
        }
        if (old != now) changes.push_back(Change{key, old, now});
    }
    return changes;
}

std::vector<Change> ResourceTable::hold(const Holder& holder, const Values& values) {
    std::map<ResourceKey, std::optional<std::string>> before;
    withdraw(holder, &before);

    // Last duplicate wins: keep one claim per key, with the value given last.
    std::map<ResourceKey, const std::string*> latest;
    std::vector<ResourceKey> order;
    for (const auto& [key, value] : values) {
        auto [it, inserted] = latest.emplace(key, &value);
        if (inserted) {
            order.push_back(key);
        } else {
            it->second = &value;
        }
    }
    if (order.empty()) return diff(before);

    for (const ResourceKey& key : order) {
        noteBefore(key, &before);
        mSlots[key].claims.push_back(Claim{holder, *latest[key]});
    }
    mHeld[holder] = std::move(order);
    return diff(before);
}

std::vector<Change> ResourceTable::drop(const Holder& holder) {
    std::map<ResourceKey, std::optional<std::string>> before;
    withdraw(holder, &before);
    return diff(before);
}

std::optional<std::string> ResourceTable::valueOf(const ResourceKey& key) const {
    auto it = mSlots.find(key);
    return it == mSlots.end() ? std::nullopt : valueIn(key, it->second);
}

std::optional<Holder> ResourceTable::holderOf(const ResourceKey& key) const {
    auto it = mSlots.find(key);
    if (it == mSlots.end()) return std::nullopt;
    const Claim* winner = winnerIn(key, it->second);
    if (winner == nullptr) return std::nullopt;
    return winner->holder;
}

std::vector<ResourceTable::Claim> ResourceTable::claimsOf(const ResourceKey& key) const {
    auto it = mSlots.find(key);
    return it == mSlots.end() ? std::vector<Claim>{} : it->second.claims;
}

size_t ResourceTable::depthOf(const ResourceKey& key) const {
    auto it = mSlots.find(key);
    return it == mSlots.end() ? 0 : it->second.claims.size();
}

std::vector<std::pair<ResourceKey, std::string>> ResourceTable::inForce() const {
    std::vector<std::pair<ResourceKey, std::string>> out;
    for (const auto& [key, slot] : mSlots) {
        if (auto value = valueIn(key, slot)) out.emplace_back(key, std::move(*value));
    }
    return out;
}

std::vector<ResourceKey> ResourceTable::keys() const {
    std::vector<ResourceKey> out;
    out.reserve(mSlots.size());
    for (const auto& entry : mSlots) out.push_back(entry.first);
    return out;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
