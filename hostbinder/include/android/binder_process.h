// Threads that serve incoming transactions ("binder threads").
#pragma once

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

// Incoming calls and death notifications reach a process only once it has started or joined
// its pool, as on a device; its own two-way calls work without one.
// Incoming calls run on pool threads, started on demand; this caps how many.
HOSTBINDER_API bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);
HOSTBINDER_API void ABinderProcess_startThreadPool(void);
// The calling thread joins the pool; does not return.
HOSTBINDER_API void ABinderProcess_joinThreadPool(void);

#ifdef __cplusplus
}  // extern "C"
#endif
