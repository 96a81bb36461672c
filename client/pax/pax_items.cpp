#include "pax_items.h"

namespace pax {

VelaRequestData plainItem(int32_t id, int32_t param) {
    VelaRequestData item{};
    item.id = id;
    item.param = param;
    return item;
}

void appendResourceItems(const std::vector<PaxClient::Resource>& resources,
                         std::vector<VelaRequestData>& items) {
    items.reserve(items.size() + resources.size());
    for (const PaxClient::Resource& resource : resources) {
        VelaRequestData item = plainItem(static_cast<int32_t>(resource.id));
        item.value = resource.value;
        items.push_back(std::move(item));
    }
}

std::vector<VelaRequestData> ruleItems(const std::vector<PaxClient::Resource>& resources) {
    std::vector<VelaRequestData> items;
    appendResourceItems(resources, items);
    for (VelaRequestData& item : items) {
        if (!item.value) item.value.emplace();
    }
    return items;
}

}  // namespace pax
