// A replay of a synthetic 60-minute record: the CPU time it takes, and how many times faster
// than the wall it plays. Printed, not judged.
//
// The record is what a busy phone might send: a launch held until released every 2 s, touch
// boosts of 100 ms five times a second, a timed floor request every second, a rule switched
// every minute, and a holder dying every 5 minutes with what it held.
#include <android/log.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "Replay.h"
#include "ScenarioConfig.h"

namespace {

double cpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

double wallSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

std::string eventCall(int64_t t, int pid, int event, int64_t durationMs, int answer) {
    return "{\"t_us\":" + std::to_string(t * 1000) +
           ",\"call\":\"resCtlRequest\",\"pid\":" + std::to_string(pid) +
           ",\"uid\":10000,\"args\":{\"requestType\":8,\"items\":[{\"id\":" +
           std::to_string(event) +
           ",\"param\":0,\"value\":null,\"value2\":null,\"value3\":null}],\"optionFlag\":false,"
           "\"param1\":0,\"param2\":" +
           std::to_string(durationMs) +
           ",\"param4\":0,\"param6\":0,\"paths\":null,\"packageName\":\"com.example.app" +
           std::to_string(pid % 7) +
           "\",\"identity\":\"\",\"extraValues\":null,\"callback\":false},\"answer\":" +
           std::to_string(answer) + "}\n";
}

size_t writeRecord(const std::string& path, int64_t minutes) {
    std::ofstream out(path, std::ios::trunc);
    out << "{\"record\":\"vela-calls\",\"version\":2,\"start_unix_ms\":0}\n";
    size_t calls = 0;
    int answer = 1;
    int launch = 0;
    for (int64_t t = 0; t < minutes * 60000; t += 200) {
        const int pid = 2000 + static_cast<int>(t / 300000);  // a new holder every 5 minutes
        out << eventCall(t, pid, 37, 100, answer++);          // touch boost
        ++calls;
        if (t % 2000 == 0) {
            if (launch != 0) {
                out << "{\"t_us\":" << t * 1000 << ",\"call\":\"resCtlRelease\",\"pid\":" << pid
                    << ",\"uid\":10000,\"args\":{\"handle\":" << launch << "},\"answer\":0}\n";
                ++calls;
            }
            launch = answer;
            out << eventCall(t, pid, 0, 0, answer++);
            ++calls;
        }
        if (t % 1000 == 0) {
            out << "{\"t_us\":" << t * 1000 << ",\"call\":\"resCtlRequest\",\"pid\":" << pid
                << ",\"uid\":10000,\"args\":{\"requestType\":1,\"items\":[{\"id\":16842768,"
                   "\"param\":0,\"value\":\"2000000\",\"value2\":null,\"value3\":null}],"
                   "\"optionFlag\":false,\"param1\":-1,\"param2\":500,\"param4\":-1,\"param6\":0,"
                   "\"paths\":null,\"packageName\":null,\"identity\":null,\"extraValues\":null,"
                   "\"callback\":false},\"answer\":"
                << answer++ << "}\n";
            ++calls;
        }
        if (t % 60000 == 0) {
            out << "{\"t_us\":" << t * 1000
                << ",\"call\":\"ruleCtl\",\"pid\":1000,\"uid\":1000,\"args\":{"
                << "\"ruleId\":7,\"status\":" << (t % 120000 == 0 ? 1 : 0)
                << ",\"items\":[{\"id\":16844960,\"param\":0,\"value\":\"33\",\"value2\":null,"
                   "\"value3\":null}]},\"answer\":0}\n";
            ++calls;
        }
        if (t % 300000 == 299800 && launch != 0) {
            out << "{\"t_us\":" << t * 1000 << ",\"call\":\"holderGone\",\"pid\":" << pid
                << ",\"handles\":[" << launch << "]}\n";
            launch = 0;
            ++calls;
        }
    }
    return calls;
}

}  // namespace

int main() {
    // The service's lines of each call are not what is measured (velactl replay hides them too).
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    const std::string path = "/tmp/vela-replay-bench-" + std::to_string(getpid()) + ".jsonl";
    const int64_t minutes = 60;
    const size_t calls = writeRecord(path, minutes);
    velactl::ReplayTimeline timeline;
    std::string error;
    const double cpu0 = cpuSeconds(), wall0 = wallSeconds();
    const bool ok = velactl::replayRecord(
            path, aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig::builtIn(), &timeline,
            &error);
    const double cpu = cpuSeconds() - cpu0, wall = wallSeconds() - wall0;
    unlink(path.c_str());
    if (!ok) {
        fprintf(stderr, "replay failed: %s\n", error.c_str());
        return 1;
    }
    size_t changes = 0;
    for (const auto& entry : timeline.resources) changes += entry.second.size() - 1;
    printf("record: %lld minutes, %zu calls; replay: %zu value changes\n",
           static_cast<long long>(minutes), calls, changes);
    printf("replay: %.3f s CPU, %.3f s wall; %.0fx faster than the record's wall time\n", cpu, wall,
           minutes * 60 / cpu);
    return 0;
}
