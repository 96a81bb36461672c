// Device: served through the service manager; the manifest fragment declares the instance.
#include <android/binder_manager.h>

#include "ServiceRegistration.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

bool registerService(AIBinder* binder, const char* instance, std::string* where) {
    const binder_exception_t added = AServiceManager_addService(binder, instance);
    if (added != EX_NONE) {
        *where = "the service manager refused it (exception " + std::to_string(added) + ")";
        return false;
    }
    *where = "with the service manager";
    return true;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
