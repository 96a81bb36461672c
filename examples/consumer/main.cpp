// A vendor component's use of the library at its smallest: raise a CPU frequency floor for a
// while, see it in force, read a property of the service and release the request. Exits 0 only
// when every answer is the one a service running the shipped configuration gives, so that a
// build can run it as a check; without a service it says so and exits 1.
//
// Run it with a service: on a host, start vela-service first, both with the same
// HOSTBINDER_DIR (see the README).
#include <android/binder_process.h>
#include <velaHalclient.h>

#include <cstdint>
#include <cstdio>
#include <list>
#include <memory>
#include <optional>
#include <string>

namespace {

// cpu.big.freq_min in service/default-config.json: an integer in [0, 5000000] kHz, where the
// highest claim wins; 1500000 is above its default, so it is what comes into force.
constexpr uint32_t kBigCoreFloor = 0x01010020;
constexpr const char kFloorKhz[] = "1500000";
// Read by the reference service as the request's duration in milliseconds: it ends the request
// by itself after that long. Long enough that the release below is what ends it.
constexpr int kDurationMs = 10000;
// The service's version, read-only; the reference service answers "1".
constexpr const char kVersionProperty[] = "ro.vendor.vela.version";

// The value in force for `opcode`, or nothing when the service answered nothing.
std::optional<std::string> valueInForce(uint32_t opcode) {
    std::list<PaxClient::Resource> query{{opcode, std::nullopt}};
    std::list<PaxClient::Resource> reply;
    if (velaHalclient::velaResStateRequest(query, /*param6=*/0, reply) < 1) return std::nullopt;
    return reply.front().value;
}

int fail(const char* what) {
    std::fprintf(stderr, "pax_consumer: %s\n", what);
    return 1;
}

}  // namespace

int main() {
    // Before any call: callbacks and death notices arrive on binder threads, and without a pool
    // a process never hears them.
    ABinderProcess_startThreadPool();

    const std::optional<std::string> before = valueInForce(kBigCoreFloor);
    if (!before) {
        return fail(
                "no answer from the service (is vela-service running, with the same "
                "HOSTBINDER_DIR?)");
    }
    std::printf("cpu.big.freq_min before: %s\n", before->c_str());

    std::list<PaxClient::Resource> floor{{kBigCoreFloor, kFloorKhz}};
    // A handle (>= 1) when granted; the service's refusal (-3 for a value outside the
    // resource's range) or -1 when the call failed.
    const int handle = velaHalclient::velaResCtlRequest(kDurationMs, floor, /*param6=*/0);
    std::printf("velaResCtlRequest: %d\n", handle);
    if (handle < 1) return fail("the request was not granted");

    const std::optional<std::string> during = valueInForce(kBigCoreFloor);
    std::printf("cpu.big.freq_min during: %s\n", during ? during->c_str() : "(no answer)");
    if (during != kFloorKhz) return fail("the floor asked for is not in force");

    std::unique_ptr<char[]> version(velaHalclient::velaPropertyGet(kVersionProperty));
    std::printf("%s: \"%s\"\n", kVersionProperty, version ? version.get() : "");
    if (!version || version[0] == '\0') return fail("the service's version property is empty");

    const int released = velaHalclient::velaResCtlRelease(handle);
    std::printf("velaResCtlRelease: %d\n", released);
    if (released != 0) return fail("the release was refused");

    const std::optional<std::string> after = valueInForce(kBigCoreFloor);
    std::printf("cpu.big.freq_min after: %s\n", after ? after->c_str() : "(no answer)");
    if (after != before) return fail("the value in force did not go back");
    return 0;
}
