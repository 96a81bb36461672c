#include "ResourceTable.h"

#include <cinttypes>
#include <cstdio>

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

std::optional<std::string> ResourceTable::valueIn(const Slot& slot) {
    if (!slot.claims.empty()) return slot.claims.back().value;
    return slot.defaultValue;
}

void ResourceTable::withdraw(const Holder& holder,
                             std::map<ResourceKey, std::optional<std::string>>* before) {
    auto held = mHeld.find(holder);
    if (held == mHeld.end()) return;
    for (const ResourceKey& key : held->second) {
        auto slot = mSlots.find(key);
        if (slot == mSlots.end()) continue;
        before->emplace(key, valueIn(slot->second));
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
            now = valueIn(slot->second);
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
        Slot& slot = mSlots[key];
        before.emplace(key, valueIn(slot));
        slot.claims.push_back(Claim{holder, *latest[key]});
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
    return it == mSlots.end() ? std::nullopt : valueIn(it->second);
}

std::optional<Holder> ResourceTable::holderOf(const ResourceKey& key) const {
    auto it = mSlots.find(key);
    if (it == mSlots.end() || it->second.claims.empty()) return std::nullopt;
    return it->second.claims.back().holder;
}

size_t ResourceTable::depthOf(const ResourceKey& key) const {
    auto it = mSlots.find(key);
    return it == mSlots.end() ? 0 : it->second.claims.size();
}

std::vector<std::pair<ResourceKey, std::string>> ResourceTable::inForce() const {
    std::vector<std::pair<ResourceKey, std::string>> out;
    for (const auto& [key, slot] : mSlots) {
        if (auto value = valueIn(slot)) out.emplace_back(key, std::move(*value));
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
