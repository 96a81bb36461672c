// Host-only controls of the binder runtime, for tests, tools and the reference service.
// Nothing here exists on a device.
#pragma once

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

// The directory that holds the service sockets ($HOSTBINDER_DIR).
HOSTBINDER_API const char* HostBinder_getDirectory(void);
// The directory of VINTF manifest fragments that declare what may be served:
// $HOSTBINDER_VINTF_DIR, or the one the build installs beside the library. Valid until the
// thread calls this again.
HOSTBINDER_API const char* HostBinder_getManifestDirectory(void);
// Null when the directory can be used; otherwise why every call refuses it (for example
// "$HOSTBINDER_DIR /tmp/x is writable by group or others (mode 0777)"). The text stays valid
// until the thread calls this again.
HOSTBINDER_API const char* HostBinder_directoryProblem(void);
// Declares `instance` (`<package>.<Interface>/<instance>`) with a manifest fragment of its own
// in the manifest directory, made owner-only when missing: for a process that declares what it
// serves itself (tests, `velactl --embedded`), never for a service started on its own.
HOSTBINDER_API binder_status_t HostBinder_declareService(const char* instance);
// Stops serving an instance that this process added: its socket is removed and every
// connection accepted for it is closed, so that its clients see the service die.
// STATUS_NAME_NOT_FOUND when this process does not serve it.
HOSTBINDER_API binder_status_t HostBinder_stopService(const char* instance);
// True on a thread that the runtime started (or one that joined its thread pool).
HOSTBINDER_API bool HostBinder_isBinderThread(void);
// Number of connections (both directions) this process has open now.
HOSTBINDER_API int32_t HostBinder_connectionCount(void);

#ifdef __cplusplus
}  // extern "C"

#include <string>

namespace hostbinder {
// Empty when the runtime directory can be used; otherwise why not.
inline std::string directoryProblem() {
    const char* problem = HostBinder_directoryProblem();
    return problem == nullptr ? std::string() : std::string(problem);
}
}  // namespace hostbinder
#endif
