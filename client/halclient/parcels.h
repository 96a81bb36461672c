// Turning the callers' resource lists and path lists into request parcels.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/VelaRequestData.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestParcel.h>

#include <cstdint>
#include <string>
#include <vector>

#include "velaHalclient.h"

namespace velaHalclient {

using ::aidl::vendor::norvo::hardware::vela::VelaRequestData;
using ::aidl::vendor::norvo::hardware::vela::VelaRequestParcel;

// An entry with id 0 is an empty slot and must carry no value; any other entry needs one.
bool checkResourceList(const ResourceList& resources);

// One item per resource, in list order; the id travels bit for bit.
std::vector<VelaRequestData> buildRequestDatas(const ResourceList& resources);

std::vector<int32_t> idsOf(const ResourceList& resources);

// One item per path (id 0, path in value2); values[i] becomes item i's value when `values`
// is given and i is within it.
std::vector<VelaRequestData> buildPathItems(const std::vector<std::string>& paths,
                                            const std::vector<std::string>* values);

// The integers of a control request, placed as every request kind places them.
VelaRequestParcel controlParcel(int32_t requestType, int32_t param1, int64_t param2, int32_t param4,
                                int32_t param5, int32_t param6);

// Marks a parcel as a path request: its free texts become exactly {"zdbdebug"}.
void vela_add_zdbdebug_for_request_parcel(VelaRequestParcel& parcel);

}  // namespace velaHalclient
