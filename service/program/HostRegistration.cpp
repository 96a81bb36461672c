// Host: served in the runtime directory ($HOSTBINDER_DIR), once the manifest fragments declare
// the instance, as on a device; the service never declares itself.
#include <android/binder_manager.h>
#include <hostbinder/hostbinder.h>

#include "ServiceRegistration.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

bool registerService(AIBinder* binder, const char* instance, std::string* where) {
    const std::string dir = HostBinder_getDirectory();
    if (const char* problem = HostBinder_directoryProblem()) {
        *where = std::string("cannot use ") + dir + ": " + problem;
        return false;
    }
    if (!AServiceManager_isDeclared(instance)) {
        *where = std::string("no manifest fragment in ") + HostBinder_getManifestDirectory() +
                 " declares it (the build installs vela-service.xml there; "
                 "$HOSTBINDER_VINTF_DIR names another directory)";
        return false;
    }
    const binder_exception_t added = AServiceManager_addService(binder, instance);
    if (added != EX_NONE) {
        *where = "cannot serve it in " + dir + " (exception " + std::to_string(added) + ")";
        return false;
    }
    *where = "in " + dir;
    return true;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
