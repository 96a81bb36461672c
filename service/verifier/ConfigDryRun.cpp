#include "ConfigDryRun.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "VelaService.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

namespace {

using Snapshot = std::map<ResourceKey, std::optional<std::string>>;

Snapshot snapshot(const VelaService& service, const std::set<ResourceKey>& keys) {
    Snapshot values;
    for (const ResourceKey& key : keys) values[key] = service.valueOf(key);
    return values;
}

std::string shown(const std::optional<std::string>& value) {
    return value ? *value : "(none)";
}

std::string resultText(int32_t result) {
    const char* name = resultName(result);
    return name != nullptr ? name : "result " + std::to_string(result);
}

}  // namespace

bool dryRunScenarios(const ScenarioConfig& config, FILE* out) {
    // Through the binder methods, as a client's request arrives, so that what is printed is
    // what the service resolves and not what this file would guess.
    VelaService::Options options;
    options.config = config;
    auto service = ::ndk::SharedRefBase::make<VelaService>(std::move(options));
    std::set<ResourceKey> watched;
    for (const ResourceInfo& info : config.resources()) watched.insert(info.key);
    for (const auto& [event, scenario] : config.scenarios()) {
        for (const auto& entry : scenario.resources) watched.insert(entry.first);
    }

    bool clean = true;
    for (const auto& [event, scenario] : config.scenarios()) {
        fprintf(out, "%s (event %d):\n", scenario.action.c_str(), event);
        const Snapshot before = snapshot(*service, watched);
        VelaRequestParcel request{};
        request.requestType = kKindEvent;
        request.identity = "check-config";
        VelaRequestData item{};
        item.id = event;
        request.requestDatas.push_back(item);
        int32_t handle = -1;
        if (!service->resCtlRequest(request, &handle).isOk() || handle <= 0) {
            fprintf(out, "  refused: %s\n", resultText(handle).c_str());
            clean = false;
            continue;
        }
        const Snapshot during = snapshot(*service, watched);
        // In the order the scenario lists its resources, then anything else that moved.
        std::vector<ResourceKey> order;
        for (const auto& entry : scenario.resources) order.push_back(entry.first);
        for (const ResourceKey& key : watched) order.push_back(key);
        std::set<ResourceKey> printed;
        size_t changed = 0;
        for (const ResourceKey& key : order) {
            if (during.at(key) == before.at(key) || !printed.insert(key).second) continue;
            fprintf(out, "  %s: %s -> %s\n", config.shortNameOf(key).c_str(),
                    shown(before.at(key)).c_str(), shown(during.at(key)).c_str());
            ++changed;
        }
        if (changed == 0) fprintf(out, "  (no change)\n");

        int32_t released = -1;
        if (!service->resCtlRelease(handle, &released).isOk() || released != kResultOk) {
            fprintf(out, "  release refused: %s\n", resultText(released).c_str());
            clean = false;
            continue;
        }
        for (const auto& [key, value] : snapshot(*service, watched)) {
            if (value == before.at(key)) continue;
            fprintf(out, "  after release %s is %s, not %s\n", config.shortNameOf(key).c_str(),
                    shown(value).c_str(), shown(before.at(key)).c_str());
            clean = false;
        }
    }
    return clean;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
