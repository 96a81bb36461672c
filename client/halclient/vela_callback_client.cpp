#include "vela_callback_client.h"

#include <android/log.h>

#include <list>
#include <string>

#include "PaxClientResource.h"
#include "client_log.h"
#include "print_log.h"

namespace velaHalclient {

using ::aidl::vendor::norvo::hardware::vela::VelaRequestData;

std::mutex request_callback_mutex;
std::vector<std::shared_ptr<VelaCallbackClient>> request_callbacks;

VelaCallbackClient::VelaCallbackClient(const std::shared_ptr<IClientCallback>& callback,
                                       bool isRegister, bool /*spare*/)
    : callback(callback), is_register(isRegister), by_path(false) {
    installPrintLog();
}

VelaCallbackClient::VelaCallbackClient(const std::shared_ptr<IClientCallbackByPath>& callback,
                                       bool isRegister, bool /*spare*/)
    : callbackByPath(callback), is_register(isRegister), by_path(true) {
    installPrintLog();
}

VelaCallbackClient::~VelaCallbackClient() {
    CALLBACK_LOG(INFO, "ndk backend ~VelaCallbackClient");
}

ndk::ScopedAStatus VelaCallbackClient::onCallback(const std::vector<VelaRequestData>& items) {
    // Neither our allocations nor an exception from the caller's receiver may unwind into the
    // binder thread; a one-shot client must leave the registry either way.
    try {
        if (!items.empty()) {
            if (by_path) {
                deliverByPath(items);
            } else {
                deliverById(items);
            }
        }
    } catch (...) {
    }
    if (!is_register) leaveRequestCallbacks();
    return ndk::ScopedAStatus::ok();
}

void VelaCallbackClient::deliverById(const std::vector<VelaRequestData>& items) {
    std::list<PaxClient::Resource> resources;
    for (const VelaRequestData& item : items) {
        const uint32_t id = static_cast<uint32_t>(item.id);
        resources.push_back(PaxClient::Resource{id, item.value});
        if (item.value.has_value()) {
            CALLBACK_LOG(INFO,
                         "VelaCallbackClient::onCallback res_Id %#x res_Value %s is_register %d",
                         id, item.value->c_str(), is_register ? 1 : 0);
        } else {
            CALLBACK_LOG(INFO, "VelaCallbackClient::onCallback res_Id %#x is_register %d", id,
                         is_register ? 1 : 0);
        }
    }
    if (callback != nullptr) {
        CALLBACK_LOG(INFO,
                     "VelaCallback::onCallback call IClientCallback onCallback is_register %d",
                     is_register ? 1 : 0);
        callback->onCallback(resources);
    }
}

void VelaCallbackClient::deliverByPath(const std::vector<VelaRequestData>& items) {
    std::vector<std::string> values;
    std::vector<std::string> paths;
    values.reserve(items.size());
    paths.reserve(items.size());
    for (const VelaRequestData& item : items) {
        paths.push_back(item.value2.value_or(std::string()));
        values.push_back(item.value.value_or(std::string()));
        if (item.value2.has_value() && item.value.has_value()) {
            CALLBACK_LOG(INFO,
                         "VelaCallbackClient::onCallback res_Id %s res_Value %s is_register %d",
                         item.value2->c_str(), item.value->c_str(), is_register ? 1 : 0);
        }
    }
    if (callbackByPath != nullptr) {
        CALLBACK_LOG(INFO,
                     "VelaCallback::onCallback call IClientCallback onCallback is_register %d",
                     is_register ? 1 : 0);
        callbackByPath->onCallback(values, paths);
    }
}

void VelaCallbackClient::leaveRequestCallbacks() {
    // Only entries for this object are erased, and the binder call that runs us holds it, so
    // no client is destroyed while the mutex is held.
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    const size_t before = request_callbacks.size();
    for (auto it = request_callbacks.begin(); it != request_callbacks.end();) {
        if (it->get() == this) {
            CALLBACK_LOG(INFO, "callback is found in request_callbacks");
            it = request_callbacks.erase(it);
        } else {
            ++it;
        }
    }
    if (request_callbacks.size() == before) {
        CALLBACK_LOG(ERROR, "callback not found in request_callbacks");
    }
    CALLBACK_LOG(
            INFO,
            "VelaCallback::onCallback request callback called , remove from request_callbacks , "
            "request_callbacks size before %d after %d",
            static_cast<int>(before), static_cast<int>(request_callbacks.size()));
}

namespace {

template <typename Receiver>
std::shared_ptr<VelaCallbackClient> enterRequestCallback(const std::shared_ptr<Receiver>& receiver,
                                                         const char* addLine) {
    VELA_LOG(INFO, "new std::shared_ptr VelaCallbackClient callback");
    auto client = ndk::SharedRefBase::make<VelaCallbackClient>(receiver, false, false);
    std::lock_guard<std::mutex> lock(request_callback_mutex);
    VELA_LOG(INFO, "%s", addLine);
    request_callbacks.push_back(client);
    return client;
}

}  // namespace

std::shared_ptr<VelaCallbackClient> newRequestCallback(
        const std::shared_ptr<IClientCallback>& receiver, const char* addLine) {
    return enterRequestCallback(receiver, addLine);
}

std::shared_ptr<VelaCallbackClient> newRequestCallback(
        const std::shared_ptr<IClientCallbackByPath>& receiver, const char* addLine) {
    return enterRequestCallback(receiver, addLine);
}

}  // namespace velaHalclient
