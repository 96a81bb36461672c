// An empty two-way call through the host binder runtime against a raw Unix-socket ping-pong
// of the same payload size, measured in the same run; prints how many times slower the binder
// call is.
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <benchmark/benchmark.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* kInstance = "bench.IEmpty/default";
// What one empty call puts on the wire: our header plus the interface token.
constexpr size_t kPayload = 48 + 20;

std::map<std::string, double> gNanosPerCall;

void record(benchmark::State& state, const char* name) {
    state.counters["ns_per_call"] = benchmark::Counter(
            static_cast<double>(state.iterations()),
            benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void RawSocketPingPong(benchmark::State& state) {
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, fds) != 0) {
        state.SkipWithError("socketpair");
        return;
    }
    std::thread echo([fd = fds[1]] {
        char buf[kPayload];
        for (;;) {
            size_t got = 0;
            while (got < kPayload) {
                ssize_t n = recv(fd, buf + got, kPayload - got, 0);
                if (n <= 0) return;
                got += static_cast<size_t>(n);
            }
            if (send(fd, buf, kPayload, MSG_NOSIGNAL) != static_cast<ssize_t>(kPayload)) return;
        }
    });
    char buf[kPayload] = {};
    for (auto _ : state) {
        send(fds[0], buf, kPayload, MSG_NOSIGNAL);
        size_t got = 0;
        while (got < kPayload) got += static_cast<size_t>(recv(fds[0], buf + got, kPayload - got, 0));
    }
    shutdown(fds[0], SHUT_RDWR);
    echo.join();
    close(fds[0]);
    close(fds[1]);
    record(state, "raw");
}

AIBinder* emptyService() {
    static AIBinder_Class* clazz = AIBinder_Class_define(
            "bench.IEmpty", [](void* a) { return a; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    static AIBinder* binder = [] {
        AIBinder* b = AIBinder_new(clazz, nullptr);
        AServiceManager_addService(b, kInstance);
        return b;
    }();
    (void)binder;
    AIBinder* remote = AServiceManager_waitForService(kInstance);
    AIBinder_associateClass(remote, clazz);
    return remote;
}

void HostBinderEmptyCall(benchmark::State& state) {
    AIBinder* remote = emptyService();
    for (auto _ : state) {
        AParcel* in = nullptr;
        AParcel* out = nullptr;
        AIBinder_prepareTransaction(remote, &in);
        if (AIBinder_transact(remote, FIRST_CALL_TRANSACTION, &in, &out, 0) != STATUS_OK) {
            state.SkipWithError("transact failed");
            break;
        }
        AParcel_delete(out);
    }
    AIBinder_decStrong(remote);
    record(state, "binder");
}

BENCHMARK(RawSocketPingPong)->MinTime(2.0)->UseRealTime();
BENCHMARK(HostBinderEmptyCall)->MinTime(2.0)->UseRealTime();

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            gNanosPerCall[run.benchmark_name()] = run.GetAdjustedRealTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
};

}  // namespace

int main(int argc, char** argv) {
    std::string dir;
    if (getenv("HOSTBINDER_DIR") == nullptr) {
        std::string tmpl = std::filesystem::temp_directory_path() / "paxbench-XXXXXX";
        if (mkdtemp(tmpl.data()) != nullptr) {
            dir = tmpl;
            setenv("HOSTBINDER_DIR", dir.c_str(), 1);
        }
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double raw = gNanosPerCall["RawSocketPingPong/min_time:2.000/real_time"];
    const double binder = gNanosPerCall["HostBinderEmptyCall/min_time:2.000/real_time"];
    if (raw > 0 && binder > 0) {
        printf("empty two-way call: %.0f ns, raw socket round trip: %.0f ns, ratio %.2fx\n",
               binder, raw, binder / raw);
    }
    if (!dir.empty()) std::filesystem::remove_all(dir);
    return 0;
}
