// State queries and listening by path.
#include <map>
#include <utility>

#include "guarded_call.h"
#include "listening_registry.h"
#include "parcels.h"
#include "velaHalclient.h"

namespace velaHalclient {

namespace {

using PathMap = std::map<std::string, std::string>;

VelaRequestParcel pathQueryParcel(int param, std::vector<VelaRequestData> items) {
    VelaRequestParcel parcel{};
    vela_add_zdbdebug_for_request_parcel(parcel);
    parcel.param6 = param;
    parcel.requestDatas = std::move(items);
    return parcel;
}

std::vector<std::string> keysOf(const PathMap& in) {
    std::vector<std::string> keys;
    keys.reserve(in.size());
    for (const auto& entry : in) keys.push_back(entry.first);
    return keys;
}

// One item per entry in key order, the key as path and the mapped text as value.
std::vector<VelaRequestData> mapItems(const PathMap& in) {
    std::vector<VelaRequestData> items;
    items.reserve(in.size());
    for (const auto& [path, value] : in) {
        VelaRequestData item{};
        item.value2 = path;
        item.value = value;
        items.push_back(std::move(item));
    }
    return items;
}

// Runs one state query; `collect` turns a non-empty answer into the caller's form and
// returns the caller's new size.
template <typename BuildItems, typename Collect>
int stateQuery(const char* entryLine, const char* failName, int param, BuildItems&& buildItems,
               Collect&& collect) {
    int result = -1;
    std::vector<VelaRequestData> answer;
    guardedCall(
            entryLine, failName,
            [&](IVela& hal) -> CallStatus {
                VelaRequestParcel parcel = pathQueryParcel(param, buildItems());
                return hal.resStateRequest(parcel, &answer);
            },
            [&](bool ok) {
                if (ok && !answer.empty()) result = collect(answer);
            });
    return result;
}

int registerPathListener(const char* entryLine, const char* failName, int param,
                         const std::function<std::vector<VelaRequestData>()>& buildItems,
                         const std::function<std::vector<std::string>()>& listenedPaths,
                         const std::shared_ptr<IClientCallbackByPath>& callback) {
    return registerListener(
            entryLine, failName,
            [&](VelaRequestParcel& parcel, VelaCallbackGroup& candidate) {
                parcel = pathQueryParcel(param, buildItems());
                candidate.paths = listenedPaths();
            },
            callback);
}

}  // namespace

int vela_res_state_request_by_path(const std::vector<std::string>& pathList,
                                   const std::vector<std::string>& valueList, int param,
                                   std::vector<std::string>& out) {
    return stateQuery(
            "vela client vela_res_state_request", "vela_res_state_request", param,
            [&] {
                // Values go along only when there is exactly one per path; otherwise they are
                // dropped without complaint, unlike in a control request.
                const bool withValues = !valueList.empty() && valueList.size() == pathList.size();
                return buildPathItems(pathList, withValues ? &valueList : nullptr);
            },
            [&out](std::vector<VelaRequestData>& answer) {
                for (VelaRequestData& item : answer) {
                    out.push_back(std::move(item.value).value_or(std::string()));
                }
                const int size = static_cast<int>(out.size());
                VELA_LOG(INFO, "vela client vela_res_state_request size %d", size);
                return size;
            });
}

int vela_res_state_request_map_by_path(const PathMap& in, int param, PathMap& out) {
    return stateQuery(
            "vela client vela_res_state_request_map", "vela_res_state_request_map", param,
            [&] { return mapItems(in); },
            [&out](std::vector<VelaRequestData>& answer) {
                for (VelaRequestData& item : answer) {
                    if (!item.value.has_value() || !item.value2.has_value()) continue;
                    out[*item.value2] = *item.value;
                    // Error priority so that it shows in release logs.
                    VELA_LOG(ERROR, "res_Path: %s, res_Value:%s", item.value2->c_str(),
                             item.value->c_str());
                }
                const int size = static_cast<int>(out.size());
                VELA_LOG(INFO, "vela client vela_res_state_request_map size %d", size);
                return size;
            });
}

int vela_res_listening_register_by_path(const std::vector<std::string>& pathList, int param,
                                        const std::shared_ptr<IClientCallbackByPath>& callback) {
    return registerPathListener(
            "vela client vela_res_listening_register", "vela_res_listening_register", param,
            [&] { return buildPathItems(pathList, nullptr); }, [&] { return pathList; }, callback);
}

int vela_res_listening_register_map_by_path(
        const PathMap& in, int param, const std::shared_ptr<IClientCallbackByPath>& callback) {
    // Only the keys identify the listener; the values just travel with the request.
    return registerPathListener(
            "vela client vela_res_listening_register_map", "vela_res_listening_register_map", param,
            [&] { return mapItems(in); }, [&] { return keysOf(in); }, callback);
}

}  // namespace velaHalclient
