#include "pax.h"
#include "pax_trace.h"

using namespace pax;

extern "C" PAX_EXPORT void PaxRelease(int32_t handle) {
    paxTraceInstant("PaxRelease: %d", handle);
    PAX_LOG(INFO, "PaxRelease, handle:%d", handle);
    // The caller is told nothing, so the service's answer is not kept.
    int32_t ignored = 0;
    PaxCallResult result = paxCall("velaResCtlRelease",
                                   [&](IVela& hal) { return hal.resCtlRelease(handle, &ignored); });
    if (result == PaxCallResult::kNoHandle) PAX_LOG(ERROR, "PaxRelease g_pax_hal is null");
}
