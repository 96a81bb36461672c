// Host-only controls of the binder runtime, for tests, tools and the reference service.
// Nothing here exists on a device.
#pragma once

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

// The directory that holds the service sockets and the declaration file.
HOSTBINDER_API const char* HostBinder_getDirectory(void);
// Null when the directory can be used; otherwise why every call refuses it (for example
// "$HOSTBINDER_DIR /tmp/x is writable by group or others (mode 0777)"). The text stays valid
// until the thread calls this again.
HOSTBINDER_API const char* HostBinder_directoryProblem(void);
// Adds `instance` to the declaration file unless it is there already.
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
