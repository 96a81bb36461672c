#include "parcels.h"

#include <optional>

namespace velaHalclient {

namespace {

bool hasText(const std::optional<std::string>& value) {
    return value.has_value() && !value->empty();
}

}  // namespace

bool checkResourceList(const ResourceList& resources) {
    for (const PaxClient::Resource& resource : resources) {
        if ((resource.id == 0) == hasText(resource.value)) return false;
    }
    return true;
}

std::vector<VelaRequestData> buildRequestDatas(const ResourceList& resources) {
    std::vector<VelaRequestData> items;
    items.reserve(resources.size());
    for (const PaxClient::Resource& resource : resources) {
        VelaRequestData item{};
        item.id = static_cast<int32_t>(resource.id);
        item.value = resource.value;
        items.push_back(std::move(item));
    }
    return items;
}

std::vector<int32_t> idsOf(const ResourceList& resources) {
    std::vector<int32_t> ids;
    ids.reserve(resources.size());
    for (const PaxClient::Resource& resource : resources) {
        ids.push_back(static_cast<int32_t>(resource.id));
    }
    return ids;
}

std::vector<VelaRequestData> buildPathItems(const std::vector<std::string>& paths,
                                            const std::vector<std::string>* values) {
    std::vector<VelaRequestData> items;
    items.reserve(paths.size());
    for (size_t i = 0; i < paths.size(); ++i) {
        VelaRequestData item{};
        item.value2 = paths[i];
        if (values != nullptr && i < values->size()) item.value = (*values)[i];
        items.push_back(std::move(item));
    }
    return items;
}

VelaRequestParcel controlParcel(int32_t requestType, int32_t param1, int64_t param2, int32_t param4,
                                int32_t param5, int32_t param6) {
    VelaRequestParcel parcel{};
    parcel.requestType = requestType;
    parcel.optionFlag = param5 >= 1;
    parcel.param1 = param1;
    parcel.param2 = param2;
    parcel.param4 = param4;
    parcel.param6 = param6;
    return parcel;
}

void vela_add_zdbdebug_for_request_parcel(VelaRequestParcel& parcel) {
    parcel.paths = std::vector<std::optional<std::string>>{std::string("zdbdebug")};
}

}  // namespace velaHalclient
