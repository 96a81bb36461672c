// The value in force for every resource the service has been asked about.
//
// Each resource keeps its claims, one per holder (an active request or a rule that is on), and
// a rule for which of them is in force: the highest (floors, boosts), the lowest (ceilings,
// limits) or the most recent. When the winner goes away the next one shows through; when none
// is left the resource falls back to its default (or to no value at all). A default is what
// shows when nobody asks, not a claim: a request may lower a floor below it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Arbitration.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// A resource is named either by opcode or, for opcode 0, by path.
struct ResourceKey {
    uint32_t opcode = 0;
    std::string path;

    static ResourceKey ofOpcode(uint32_t opcode) { return ResourceKey{opcode, {}}; }
    static ResourceKey ofPath(std::string path) { return ResourceKey{0, std::move(path)}; }

    bool isPath() const { return opcode == 0; }
    // "0x010108a0" or the path itself.
    std::string toString() const;

    bool operator<(const ResourceKey& o) const {
        return opcode != o.opcode ? opcode < o.opcode : path < o.path;
    }
    bool operator==(const ResourceKey& o) const { return opcode == o.opcode && path == o.path; }
    bool operator!=(const ResourceKey& o) const { return !(*this == o); }
};

// Who holds a claim. Requests and rules have separate number spaces.
struct Holder {
    enum class Kind { kRequest, kRule };
    Kind kind = Kind::kRequest;
    int32_t id = 0;

    static Holder request(int32_t handle) { return Holder{Kind::kRequest, handle}; }
    static Holder rule(int32_t ruleId) { return Holder{Kind::kRule, ruleId}; }

    std::string toString() const;
    bool operator==(const Holder& o) const { return kind == o.kind && id == o.id; }
    bool operator<(const Holder& o) const { return kind != o.kind ? kind < o.kind : id < o.id; }
};

// One resource whose value in force moved.
struct Change {
    ResourceKey key;
    std::optional<std::string> before;
    std::optional<std::string> after;
};

class ResourceTable {
public:
    using Values = std::vector<std::pair<ResourceKey, std::string>>;

    // The value a resource shows when nobody holds it.
    void setDefault(const ResourceKey& key, std::string value);
    // How the claims on a resource combine; resources never set take the latest claim.
    void setArbitration(const ResourceKey& key, Arbitration rule);
    Arbitration arbitrationOf(const ResourceKey& key) const;

    // Replaces whatever `holder` claimed before by `values` (a later duplicate of a key wins
    // over an earlier one) as the most recent claims, and reports the resources whose value
    // in force moved, in key order.
    std::vector<Change> hold(const Holder& holder, const Values& values);
    // Withdraws every claim of `holder`.
    std::vector<Change> drop(const Holder& holder);

    std::optional<std::string> valueOf(const ResourceKey& key) const;
    // The holder whose claim is in force, or nothing when the default (or no value) shows.
    std::optional<Holder> holderOf(const ResourceKey& key) const;
    // The number of claims on a resource, the one in force included.
    size_t depthOf(const ResourceKey& key) const;

    struct Claim {
        Holder holder;
        std::string value;
    };
    // Every claim on a resource, oldest first.
    std::vector<Claim> claimsOf(const ResourceKey& key) const;

    // `floor` and `ceiling` bound one knob: the floor in force never exceeds the ceiling in
    // force. When the claims would have it so, the ceiling wins and the floor takes its value:
    // the ceiling is what keeps the part within its thermal and power limits, and the kernel
    // refuses a frequency floor above its ceiling anyway.
    void setBound(const ResourceKey& floor, const ResourceKey& ceiling);
    struct Conflict {
        ResourceKey ceiling;
        std::string floorClaimed;
        std::optional<Holder> floorHolder;  // none: the floor's default
        std::string ceilingValue;
        std::optional<Holder> ceilingHolder;  // none: the ceiling's default
    };
    // What the floor would be without its ceiling, when that exceeds the ceiling.
    std::optional<Conflict> conflictOn(const ResourceKey& floor) const;

    // Every resource that has a value now, in key order.
    std::vector<std::pair<ResourceKey, std::string>> inForce() const;
    // Every resource that is claimed now or has a default, in key order. A resource that
    // loses its last claim and has no default is forgotten.
    std::vector<ResourceKey> keys() const;

private:
    struct Slot {
        std::optional<std::string> defaultValue;
        std::vector<Claim> claims;  // oldest first
    };

    // The claim in force, or none when nobody holds the resource.
    const Claim* winnerIn(const ResourceKey& key, const Slot& slot) const;
    // The winning claim's value, or the default, before any bound.
    std::optional<std::string> claimedIn(const ResourceKey& key, const Slot& slot) const;
    std::optional<std::string> valueIn(const ResourceKey& key, const Slot& slot) const;
    // Notes the value in force of `key`, and of the floors it bounds, before a change.
    void noteBefore(const ResourceKey& key,
                    std::map<ResourceKey, std::optional<std::string>>* before) const;
    // Removes the claims of `holder`, noting the value in force of each touched slot before.
    void withdraw(const Holder& holder, std::map<ResourceKey, std::optional<std::string>>* before);
    std::vector<Change> diff(const std::map<ResourceKey, std::optional<std::string>>& before);

    std::map<ResourceKey, Slot> mSlots;
    std::map<Holder, std::vector<ResourceKey>> mHeld;
    // Apart from the slots: a slot goes when its last claim does, its rule stays.
    std::map<ResourceKey, Arbitration> mArbitration;
    std::map<ResourceKey, ResourceKey> mCeilingOf;      // by floor
    std::multimap<ResourceKey, ResourceKey> mFloorsOf;  // by ceiling
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
