// A bare binder for the runtime's own tests: no generated code between the test and the NDK
// calls, so what a case asserts is the runtime's behaviour alone. Also runs a copy of the test
// program as a second process that never starts binder threads.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstdint>
#include <functional>
#include <string>

namespace hbtest {

// What a probe does with a call: reads `in`, may write `out`.
using ProbeHandler =
        std::function<binder_status_t(transaction_code_t code, const AParcel* in, AParcel* out)>;

const AIBinder_Class* probeClass();
// A local binder whose calls run `handler`.
ndk::SpAIBinder newProbe(ProbeHandler handler);
// Associates a proxy with the probe class; false when it is not a probe.
bool asProbe(const ndk::SpAIBinder& binder);

// One call with `args` written after the interface token; the reply's first int32 goes to
// *answer when asked for.
binder_status_t callProbe(const ndk::SpAIBinder& binder, transaction_code_t code,
                          const std::function<void(AParcel*)>& args, int32_t* answer = nullptr,
                          binder_flags_t flags = 0);

// Serves `binder` under `instance`, declaring it first as a service's manifest would.
bool serveProbe(const ndk::SpAIBinder& binder, const char* instance);

// Runs this test program again as a child that executes `role` (see childRole) before main,
// so before the test main starts its binder threads. Returns its exit status, or -1 when it
// did not end within a minute.
int runChild(const std::string& role);
// Registers a role: when this process was started as that child, `body` runs now and its
// value is the exit status. Use at namespace scope: `const int x = childRole("name", fn);`.
int childRole(const char* role, int (*body)());

}  // namespace hbtest
