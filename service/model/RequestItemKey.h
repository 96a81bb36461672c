// What a request item names. Every call that takes items (requests, state queries, listeners)
// reads them this one way: the opcode in `id`, or for id 0 the path in `value2`.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/VelaRequestData.h>

#include "ResourceTable.h"
#include "ScenarioConfig.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

struct RequestItemKey {
    enum class Kind {
        kResource,  // `key` is the resource
        kEmpty,     // neither an opcode nor a path: a slot the caller left unused
        kBadPath,   // a path the service refuses (isAcceptablePath)
    };
    Kind kind = Kind::kEmpty;
    ResourceKey key;
};

inline RequestItemKey keyOfItem(const VelaRequestData& item) {
    if (item.id != 0) {
        return {RequestItemKey::Kind::kResource,
                ResourceKey::ofOpcode(static_cast<uint32_t>(item.id))};
    }
    if (!item.value2 || item.value2->empty()) return {};
    if (!isAcceptablePath(*item.value2)) return {RequestItemKey::Kind::kBadPath, {}};
    return {RequestItemKey::Kind::kResource, ResourceKey::ofPath(*item.value2)};
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
