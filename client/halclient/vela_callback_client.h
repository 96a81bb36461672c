// The binder object that the service calls back: it hands the service's items to the caller's
// receiver in the caller's own form. A one-shot client answers one request and then leaves
// request_callbacks; a listening client is kept by the listening registry.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/BnVelaCallback.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestData.h>

#include <memory>
#include <mutex>
#include <vector>

#include "IClientCallback.h"

namespace velaHalclient {

class VelaCallbackClient : public ::aidl::vendor::norvo::hardware::vela::BnVelaCallback {
public:
    // Build with ndk::SharedRefBase::make. `spare` is accepted for the callers' sake and unused.
    VelaCallbackClient(const std::shared_ptr<IClientCallback>& callback, bool isRegister,
                       bool spare);
    VelaCallbackClient(const std::shared_ptr<IClientCallbackByPath>& callback, bool isRegister,
                       bool spare);
    ~VelaCallbackClient() override;

    ndk::ScopedAStatus onCallback(
            const std::vector<::aidl::vendor::norvo::hardware::vela::VelaRequestData>& items)
            override;

private:
    void deliverById(
            const std::vector<::aidl::vendor::norvo::hardware::vela::VelaRequestData>& items);
    void deliverByPath(
            const std::vector<::aidl::vendor::norvo::hardware::vela::VelaRequestData>& items);
    void leaveRequestCallbacks();

    std::shared_ptr<IClientCallback> callback;
    std::shared_ptr<IClientCallbackByPath> callbackByPath;
    const bool is_register;
    const bool by_path;
};

// One-shot clients waiting for their answer, in order of their requests.
extern std::mutex request_callback_mutex;
extern std::vector<std::shared_ptr<VelaCallbackClient>> request_callbacks;

// Makes a one-shot client for `receiver` and enters it in request_callbacks, logging
// `addLine`. Called with halLock held shared.
std::shared_ptr<VelaCallbackClient> newRequestCallback(
        const std::shared_ptr<IClientCallback>& receiver, const char* addLine);
std::shared_ptr<VelaCallbackClient> newRequestCallback(
        const std::shared_ptr<IClientCallbackByPath>& receiver, const char* addLine);

}  // namespace velaHalclient
