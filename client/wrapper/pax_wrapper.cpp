#include "PaxEvent.h"
#include "PaxWrapper.h"
#include "client_log.h"
#include "wrapper_internal.h"

namespace {

const char* orNone(const std::string& text) {
    return text.empty() ? "none" : text.c_str();
}

}  // namespace

void clrGameUpgradeMode(int32_t ruleId, int32_t status) {
    std::vector<PaxClient::Resource> resources = pax_wrapper::gameUpgradeClearList();
    paxRuleCtl(ruleId, status, resources);
}

extern "C" {

int32_t PaxEventAcquireWrapper(std::string eventId, const std::string& scene,
                               const std::string& identity, int32_t timeout) {
    WRAPPER_LOG(INFO, "[%s] eventId:%s, scene:%s, identity:%s, timeout:%d", __func__,
                orNone(eventId), orNone(scene), orNone(identity), timeout);
    const int32_t actionId = pax_wrapper::findActionId(eventId);
    if (actionId < 0) return -1;
    std::vector<PaxClient::Resource> none;
    return PaxEventAcquire(actionId, scene, identity, timeout, none);
}

void PaxReleaseWapper(int32_t handle) {
    WRAPPER_LOG(INFO, "[%s] %d", __func__, handle);
    PaxRelease(handle);
}

int32_t PaxNotifyWapper(const std::string& data, int32_t src, int32_t type, int32_t value,
                        int32_t /*reserved1*/, int32_t /*reserved2*/, const std::string& text) {
    WRAPPER_LOG(INFO, "[%s] %s, src:%d, type:%d", __func__, orNone(data), src, type);
    std::optional<pax_wrapper::RuleRequest> request =
            pax_wrapper::planNotification({data, src, type, value, text});
    // The rule switch is fire-and-forget for the notifying component.
    if (request) paxRuleCtl(request->ruleId, request->status, request->resources);
    return 0;
}

}  // extern "C"
