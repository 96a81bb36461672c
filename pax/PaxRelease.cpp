#include "PaxTrace.h"
#include "pax.h"

using namespace pax;

extern "C" PAX_EXPORT void PaxRelease(int32_t handle) {
    paxTraceInstant("PaxRelease: %d", handle);
    PAX_LOGI("PaxRelease, handle:%d", handle);
    if (!paxConnect()) return;
    // The caller is told nothing, so the service's answer is not kept.
    int32_t ignored = 0;
    PaxCallResult result = paxCall("velaResCtlRelease",
                                   [&](IVela& hal) { return hal.resCtlRelease(handle, &ignored); });
    if (result == PaxCallResult::kNoHandle) PAX_LOGE("PaxRelease g_pax_hal is null");
}
