// The service manager. On the host, services are Unix-domain sockets in one directory,
// $HOSTBINDER_DIR (default ${XDG_RUNTIME_DIR:-/tmp}/hostbinder-<uid>), and the declared
// instances are those of the VINTF manifest fragments in $HOSTBINDER_VINTF_DIR (default: where
// the build installs them, <prefix>/etc/vintf/manifest).
#pragma once

#include <android/binder_ibinder.h>

#ifdef __cplusplus
extern "C" {
#endif

// Serves `binder` under `instance` from this process. EX_NONE on success.
HOSTBINDER_API binder_exception_t AServiceManager_addService(AIBinder* binder,
                                                             const char* instance);
// Never blocks: a proxy when the instance is served and reachable now, else null.
HOSTBINDER_API AIBinder* AServiceManager_checkService(const char* instance);
// Waits up to a few seconds for the instance; null when it does not come.
HOSTBINDER_API AIBinder* AServiceManager_getService(const char* instance);
// Blocks until the instance is served and reachable.
HOSTBINDER_API AIBinder* AServiceManager_waitForService(const char* instance);
// True when `instance` is a line of the declaration file, whether or not it runs.
HOSTBINDER_API bool AServiceManager_isDeclared(const char* instance);

#ifdef __cplusplus
}  // extern "C"
#endif
