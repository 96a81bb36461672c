// Threads that serve incoming transactions ("binder threads").
#pragma once

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

// Incoming calls always run on runtime threads, started on demand; this caps how many.
HOSTBINDER_API bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);
HOSTBINDER_API void ABinderProcess_startThreadPool(void);
// The calling thread serves incoming calls; does not return.
HOSTBINDER_API void ABinderProcess_joinThreadPool(void);

#ifdef __cplusplus
}  // extern "C"
#endif
