// `velactl demo`: a guided tour that drives all three layers of the library against the
// service and checks, as it goes, that the service did what the tour says.
#include <velaHalclient.h>

#include <optional>

#include "Commands.h"
#include "ResourceArgs.h"
#include "ScriptCommands.h"
#include "ToolCommands.h"

namespace velactl {

namespace {

constexpr uint32_t kLittleFloor = 0x01010010;
constexpr uint32_t kLittleLoad = 0x010108a0;
constexpr uint32_t kBigFloor = 0x01010020;
constexpr uint32_t kBigCeiling = 0x010100b0;

std::optional<std::string> valueNow(uint32_t opcode) {
    velaHalclient::ResourceList request{PaxClient::Resource{opcode, {}}};
    velaHalclient::ResourceList reply;
    if (velaHalclient::velaResStateRequest(request, 0, reply) != 1) return std::nullopt;
    return reply.front().value;
}

}  // namespace

int runDemo(Context& ctx) {
    ctx.scriptMode = true;
    int failures = 0;
    int steps = 0;

    auto step = [&](const std::string& title) {
        ctx.out.note("\n== " + std::to_string(++steps) + ". " + title);
    };
    auto run = [&](const std::string& line) {
        ctx.out.note("$ velactl " + line);
        Commands commands(ctx, Commands::Mode::kScript);
        if (commands.execute(splitWords(line)) != kExitOk) {
            ++failures;
            ctx.out.error("demo: '" + line + "' failed");
        }
    };
    auto check = [&](bool ok, const std::string& what) {
        if (!ok) {
            ++failures;
            ctx.out.error("demo: check failed: " + what);
        }
    };
    auto expectValue = [&](uint32_t opcode, const std::string& expected, const std::string& why) {
        const auto value = valueNow(opcode);
        check(value == expected,
              why + ": expected " + expected + ", found " + value.value_or("nothing"));
    };
    // Callbacks print from binder threads: wait for them so the tour reads in order. Every
    // callback of the tour is expected, so `mark` is simply the running total.
    size_t mark = 0;
    auto expectCallbacks = [&](size_t more, const std::string& what) {
        mark += more;
        check(ctx.awaitCallbacks(mark, std::chrono::milliseconds(3000)),
              what + " (" + std::to_string(more) + " callbacks)");
    };

    step("The action table: an event id is a position in it");
    run("actions LAUNCH");

    step("Record history; listen to the little-core floor and the top-app clamp");
    run("history on");
    run("listen cpu.little.freq_min");
    run("listen /dev/cpuctl/top-app/cpu.uclamp.min");

    step("An app launches: ACTION_LAUNCH, by name, through the action wrapper");
    run("acquire ACTION_LAUNCH --pkg com.example.gallery --identity demo");
    const int32_t launch = ctx.lastHandle;
    expectCallbacks(2, "both listeners hear the launch");

    step("The resources in force now");
    run("state cpu.little.freq_min cpu.big.freq_min cpu.prime.freq_min cpu.big.cores_min "
        "sched.little.target_load");
    run("state /dev/cpuctl/top-app/cpu.uclamp.min");
    expectValue(kLittleFloor, "1804800", "the launch scenario sets the little-core floor");

    step("Notifications: thermal levels reach a thermal listener; an event is recorded");
    run("listen --thermal 1 2");
    run("thermal 1=3 4=1");
    expectCallbacks(1, "the thermal listener hears subsystem 1");
    run("notify 37 --param 1 120 240");

    step("A rule: the wrapper's target-load source sets the three target loads");
    run("notify-source 130 1 --data 45,70,85");
    run("state sched.little.target_load sched.big.target_load sched.prime.target_load");
    expectValue(kLittleLoad, "45", "the rule's target load is the latest claim");
    run("notify-source 130 0");
    run("state sched.little.target_load");
    expectValue(kLittleLoad, "60", "with the rule off, the launch's target load shows again");

    step("Competing claims: the highest floor and the lowest ceiling win, and a ceiling caps a "
         "floor");
    run("acquire ACTION_CAMERA_OPEN --pkg com.example.camera");
    const int32_t cameraOpen = ctx.lastHandle;
    run("acquire ACTION_CAMERA_PREVIEW --pkg com.example.camera");
    const int32_t cameraPreview = ctx.lastHandle;
    run("state cpu.big.freq_min cpu.big.freq_max");
    expectValue(kBigCeiling, "1996800", "the preview's big ceiling is below the default");
    expectValue(kBigFloor, "1996800",
                "the launch's big floor of 2419200 (above the camera's 2208000) is capped by the "
                "preview's ceiling");
    run("release " + std::to_string(cameraOpen));
    run("release " + std::to_string(cameraPreview));
    run("state cpu.big.freq_min cpu.big.freq_max");
    expectValue(kBigCeiling, "2803200", "with the preview released the default ceiling is back");
    expectValue(kBigFloor, "2419200", "and the launch's big floor shows again");

    step("A short floor boost above the launch's, for 300 ms");
    run("request cpu.little.freq_min=2016000 --duration 300");
    expectCallbacks(1, "the floor listener hears the boost");
    run("dump run-map");
    ctx.out.note("(waiting for it to expire)");
    expectCallbacks(1, "the floor listener hears the expiry");
    run("state cpu.little.freq_min");
    expectValue(kLittleFloor, "1804800", "after the expiry the launch's floor shows again");

    step("A hold for the life of a command: the ceiling goes when `true` ends");
    run("request cpu.big.freq_max=1500000 -- true");
    expectValue(kBigCeiling, "2803200", "the command ended, and its request with it");
    ctx.out.note("(from a shell, a request without --duration holds until Ctrl-C)");

    step("Power figures while the launch holds its resources");
    run("power");
    run("pm 0");

    step("Release the launch: every resource falls back to its default");
    run("release " + std::to_string(launch));
    expectCallbacks(2, "both listeners hear the release");
    run("state cpu.little.freq_min sched.little.target_load");
    expectValue(kLittleFloor, "300000", "the default floor is back");

    step("What the service recorded");
    run("history get");

    if (failures != 0) {
        ctx.out.error("demo: " + std::to_string(failures) + " problem(s)");
        return kExitSoftware;
    }
    ctx.out.note("\ndemo finished: " + std::to_string(steps) + " steps, every check passed");
    return kExitOk;
}

}  // namespace velactl
