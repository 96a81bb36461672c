// Holds end with their holders: client processes that acquire, release, let expire and are
// killed leave nothing behind once they are gone, and a handle kept across a restart of the
// service names nothing.
#include <PaxEvent.h>
#include <signal.h>
#include <unistd.h>
#include <velaHalclient.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "E2eSupport.h"
#include "RunProgram.h"

namespace e2e {
namespace {

using namespace velaHalclient;
using PaxClient::Resource;

constexpr const char* kScriptEnv = "VELA_E2E_HOLDER_SCRIPT";
const std::string kClamp = "/dev/cpuctl/top-app/cpu.uclamp.min";  // default 0
const std::string kKnob = "/proc/e2e/holders";                    // no default: no file

// A holder's script, one step a word group: "a RESOURCE VALUE MS" acquires (MS 0: until
// released), "r N" releases its N-th acquisition, "s MS" sleeps, "p" waits to be killed; at the
// end it exits holding whatever it still holds.
int runHolderScript(const std::string& script) {
    // The kill is timed from this line: an emulated child may take longer to start than the
    // longest delay the test draws.
    printf("started\n");
    fflush(stdout);
    std::istringstream in(script);
    std::vector<int> handles;
    for (std::string step; in >> step;) {
        if (step == "a") {
            std::string resource, value;
            int ms = 0;
            in >> resource >> value >> ms;
            int handle;
            if (resource[0] == '/') {
                handle = vela_resctl_request_by_path(-1, ms, {resource}, {value}, -1, 0, 0);
            } else {
                ResourceList list{
                        Resource{static_cast<uint32_t>(std::stoul(resource, nullptr, 16)), value}};
                handle = velaResCtlRequest(ms, list, 0);
            }
            handles.push_back(handle);
        } else if (step == "r") {
            size_t n = 0;
            in >> n;
            if (n < handles.size()) velaResCtlRelease(handles[n]);
        } else if (step == "s") {
            int ms = 0;
            in >> ms;
            std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        } else if (step == "p") {
            pause();
        }
    }
    return 0;
}

// Before main, in the child the script names: with no thread pool, as a bare client would.
[[maybe_unused]] const bool holderRole = [] {
    if (const char* script = getenv(kScriptEnv)) _exit(runHolderScript(script));
    return false;
}();

std::string randomScript(std::mt19937& rng) {
    const std::vector<std::pair<std::string, std::pair<int, int>>> resources = {
            {"01010010", {0, 3000000}}, {"01010020", {0, 3000000}}, {"010100c0", {0, 3187200}},
            {"010108a0", {0, 100}},     {kClamp, {0, 100}},         {kKnob, {0, 1000}}};
    std::ostringstream script;
    int acquired = 0;
    const int steps = 4 + static_cast<int>(rng() % 6);
    for (int i = 0; i < steps; ++i) {
        const unsigned roll = rng() % 10;
        if (roll < 6) {
            const auto& [name, range] = resources[rng() % resources.size()];
            const int value = range.first + static_cast<int>(rng() % (range.second - range.first));
            const int ms = rng() % 2 == 0 ? 0 : 20 + static_cast<int>(rng() % 300);
            script << "a " << name << " " << value << " " << ms << " ";
            ++acquired;
        } else if (roll < 8 && acquired > 0) {
            script << "r " << rng() % acquired << " ";
        } else {
            script << "s " << rng() % 60 << " ";
        }
    }
    if (rng() % 2 == 0) script << "p";
    return script.str();
}

class HoldersTest : public ServiceProcessTest {
protected:
    // Every file under the mirror with its bytes, and the values of the resources the holders
    // touch by opcode.
    std::map<std::string, std::string> snapshot() {
        std::map<std::string, std::string> seen;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(sysfsRoot)) {
            if (!entry.is_regular_file()) continue;
            std::ifstream in(entry.path(), std::ios::binary);
            seen[entry.path().string()] = std::string(std::istreambuf_iterator<char>(in), {});
        }
        ResourceList query{Resource{kLittleFloor, {}}, Resource{kBigFloor, {}},
                           Resource{kPrimeCeiling, {}}, Resource{kLittleLoad, {}}},
                reply;
        if (velaResStateRequest(query, 0, reply) != 4) return {};
        for (const Resource& r : reply) seen[std::to_string(r.id)] = r.value.value_or("none");
        return seen;
    }
};

TEST_F(HoldersTest, ValuesReturnToTheirDefaultsOnceEveryHolderIsGone) {
    uint64_t seed = std::random_device()();
    if (const char* given = getenv("VELA_HOLDERS_SEED")) seed = std::stoull(given);
    std::cout << "seed " << seed << " (replay with VELA_HOLDERS_SEED=" << seed << ")" << std::endl;
    RecordProperty("seed", std::to_string(seed));
    std::mt19937 rng(static_cast<std::mt19937::result_type>(seed));

    ASSERT_EQ(velaHistoryRequestRecordOn(), 0);
    // One request of its own, so that the history is never empty when every holder was killed
    // before its first call.
    ResourceList own{Resource{kLittleLoad, "50"}};
    ASSERT_EQ(velaResCtlRelease(velaResCtlRequest(0, own, 0)), 0);
    const auto defaults = snapshot();
    ASSERT_FALSE(defaults.empty());

    for (int round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<paxtest::Launch>> holders;
        std::vector<int> killAfterMs;
        for (int i = 0; i < 3; ++i) {
            const std::string script = randomScript(rng);
            SCOPED_TRACE(script);
            holders.push_back(paxtest::launch("/proc/self/exe", {}, "",
                                              {std::string(kScriptEnv) + "=" + script}));
            killAfterMs.push_back(50 + static_cast<int>(rng() % 400));
        }
        for (const auto& holder : holders) {
            ASSERT_TRUE(paxtest::waitUntil([&] { return holder->read(1) == "started\n"; },
                                           std::chrono::seconds(20)));
        }
        const auto started = std::chrono::steady_clock::now();
        for (int i = 0; i < 3; ++i) {
            std::this_thread::sleep_until(started + std::chrono::milliseconds(killAfterMs[i]));
            // Not yet reaped, so the pid is still this child's even when it has exited.
            kill(holders[i]->pid, SIGKILL);
        }
        for (const auto& holder : holders) paxtest::exitCodeOf(holder->pid);
        const auto gone = std::chrono::steady_clock::now();
        EXPECT_TRUE(paxtest::waitUntil([&] { return snapshot() == defaults; },
                                       std::chrono::seconds(10)))
                << "round " << round << ", seed " << seed;
        std::cout << "round " << round << ": defaults back "
                  << std::chrono::duration_cast<std::chrono::milliseconds>(
                             std::chrono::steady_clock::now() - gone)
                             .count()
                  << " ms after the last holder was reaped" << std::endl;
    }

    // Every request the history saw begin, it saw end, once.
    std::string history;
    ASSERT_EQ(PaxGetHistory(history), 0);
    std::map<int, int> begun, ended;
    for (const char* word : {"acquire", "release", "expire", "lease", "holder gone"}) {
        const std::string marker = std::string(word) + " handle ";
        for (size_t at = history.find(marker); at != std::string::npos;
             at = history.find(marker, at + 1)) {
            // "lease handle" is also the tail of "release handle": whole words only.
            if (at > 0 && history[at - 1] != ' ' && history[at - 1] != '\n') continue;
            const int handle = std::atoi(history.c_str() + at + marker.size());
            ++(word == std::string("acquire") ? begun : ended)[handle];
        }
    }
    EXPECT_FALSE(begun.empty()) << history;
    for (const auto& [handle, times] : begun) {
        EXPECT_EQ(times, 1) << handle;
        EXPECT_EQ(ended[handle], 1) << "handle " << handle << ", seed " << seed << "\n" << history;
    }
}

// A handle kept across a restart names nothing, even once the new run has given out as many.
TEST_F(HoldersTest, AHandleFromBeforeARestartIsRefused) {
    ResourceList before{Resource{kLittleFloor, "1000000"}};
    const int stale = velaResCtlRequest(0, before, 0);
    ASSERT_GE(stale, 1);
    killAndSettle(service, log);
    ASSERT_TRUE(service.restart());
    std::vector<int> fresh;
    ASSERT_TRUE(paxtest::waitUntil([&] {
        ResourceList after{Resource{kLittleFloor, "1200000"}};
        const int handle = velaResCtlRequest(0, after, 0);
        if (handle >= 1) fresh.push_back(handle);
        return handle >= 1;
    }));
    EXPECT_EQ(velaResCtlRelease(stale), -2);
    ResourceList query{Resource{kLittleFloor, {}}}, reply;
    ASSERT_EQ(velaResStateRequest(query, 0, reply), 1);
    EXPECT_EQ(reply.front().value, "1200000");
    EXPECT_EQ(velaResCtlRelease(fresh.front()), 0);
}

}  // namespace
}  // namespace e2e
