#include "pax.h"

using namespace pax;

extern "C" PAX_EXPORT int32_t paxInit() {
    // Logged at error level on purpose, so that initialisation shows up in filtered logs.
    PAX_LOG(ERROR, "paxInit enter");
    // The failure names the halclient routine on purpose: both report the same init step.
    PaxCallResult result = paxCall("vela_init", [](IVela& hal) { return hal.init(); });
    switch (result) {
        case PaxCallResult::kNotConnected:
            return -1;
        case PaxCallResult::kNoHandle:
            PAX_LOG(ERROR, "g_pax_hal is null");
            return -1;
        case PaxCallResult::kFailed:
            return -2;
        case PaxCallResult::kOk:
            break;
    }
    return 0;
}
