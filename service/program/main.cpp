// vela-service: the reference resource-control service.
//
//   vela-service [-v|-q]... [--config FILE] [--sysfs-root DIR] [--trace FILE]
//                [--record FILE]
//   vela-service --check-config FILE [--exec-all | --profile PROFILE | --list-nodes]
//
// Serves "vendor.norvo.hardware.vela.IVela/default" until SIGTERM or SIGINT: on a host in
// $HOSTBINDER_DIR, on a device with the service manager. With --check-config it verifies a
// configuration and exits instead. Options are read with getopt_long rather than a command-line
// library so that the same file builds in a vendor tree, which has none.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <getopt.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "ConfigVerifier.h"
#include "ExitCodes.h"
#include "LogLevel.h"
#include "ProfileCheck.h"
#include "ServiceRegistration.h"
#include "VelaService.h"
#include "Version.h"

using aidl::vendor::norvo::hardware::vela::impl::checkConfig;
using aidl::vendor::norvo::hardware::vela::impl::checkConfigAgainstProfile;
using aidl::vendor::norvo::hardware::vela::impl::kVelaLogTag;
using aidl::vendor::norvo::hardware::vela::impl::listConfigNodes;
using aidl::vendor::norvo::hardware::vela::impl::readConfigOrSayWhy;
using aidl::vendor::norvo::hardware::vela::impl::registerService;
using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;
using aidl::vendor::norvo::hardware::vela::impl::TraceWriter;
using aidl::vendor::norvo::hardware::vela::impl::VelaService;
namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

namespace {

constexpr const char kUsage[] =
        "Usage: vela-service [OPTIONS]\n"
        "       vela-service --check-config FILE [--exec-all | --profile PROFILE | --list-nodes]\n"
        "Serves the reference resource-control service until SIGTERM or SIGINT (which close the\n"
        "timeline and exit 0); or checks a scenario\n"
        "configuration as the service reads it, against the clients' action table too, and\n"
        "exits.\n"
        "\n"
        "Options:\n"
        "  --config FILE      scenario configuration (JSON); the built-in one when not given\n"
        "  --sysfs-root DIR   mirror path resources as files under DIR\n"
        "  --trace FILE       write a timeline to FILE (trace-event JSON: ui.perfetto.dev)\n"
        "  --record FILE      write every call that changes state to FILE, one JSON object a\n"
        "                     line, for velactl replay (it names callers' packages and pids)\n"
        "  --check-config FILE\n"
        "                     verify FILE and exit: each problem on stderr as\n"
        "                     'FILE: $.json.path: message', the verdict on stdout\n"
        "  --exec-all         with --check-config, when FILE is valid: apply each scenario in\n"
        "                     an embedded service, print what it changed, release it again\n"
        "  --profile PROFILE  with --check-config: hold FILE's path resources against a target's\n"
        "                     nodes (scripts/capture-node-profile.sh): missing or read-only\n"
        "                     nodes and values a node would refuse, at their JSON paths\n"
        "  --list-nodes       with --check-config: print the nodes FILE names, one a line\n"
        "  -v, --verbose      log more (debug, then verbose); the default is info\n"
        "  -q, --quiet        log less (warnings, then errors only)\n"
        "  -h, --help         show this help and exit\n"
        "  --version          show the version and exit\n"
        "\n"
        "Environment:\n"
        "  HOSTBINDER_DIR     where the service is served (host builds)\n"
        "  HOSTBINDER_VINTF_DIR  the manifest fragments that must declare it (host builds;\n"
        "                     default: beside the library, etc/vintf/manifest)\n"
        "  VELA_LOG_LEVEL     verbose|debug|info|warn|error|fatal|silent: the log level\n"
        "\n";

struct Args {
    std::string configFile;
    std::string sysfsRoot;
    std::string traceFile;
    std::string recordFile;
    std::string checkFile;
    std::string profileFile;
    bool execAll = false;
    bool listNodes = false;
    int louder = 0;
    int quieter = 0;
};

// -1 when the program goes on; otherwise the exit code.
int parseArgs(int argc, char** argv, Args* args) {
    static const option kOptions[] = {
            {"config", required_argument, nullptr, 'c'},
            {"sysfs-root", required_argument, nullptr, 's'},
            {"trace", required_argument, nullptr, 't'},
            {"record", required_argument, nullptr, 'r'},
            {"check-config", required_argument, nullptr, 'k'},
            {"exec-all", no_argument, nullptr, 'x'},
            {"profile", required_argument, nullptr, 'p'},
            {"list-nodes", no_argument, nullptr, 'l'},
            {"verbose", no_argument, nullptr, 'v'},
            {"quiet", no_argument, nullptr, 'q'},
            {"help", no_argument, nullptr, 'h'},
            {"version", no_argument, nullptr, 'V'},
            {nullptr, 0, nullptr, 0},
    };
    int opt;
    while ((opt = getopt_long(argc, argv, "hvq", kOptions, nullptr)) != -1) {
        switch (opt) {
            case 'c':
                args->configFile = optarg;
                break;
            case 's':
                args->sysfsRoot = optarg;
                break;
            case 't':
                args->traceFile = optarg;
                break;
            case 'r':
                args->recordFile = optarg;
                break;
            case 'k':
                args->checkFile = optarg;
                break;
            case 'x':
                args->execAll = true;
                break;
            case 'p':
                args->profileFile = optarg;
                break;
            case 'l':
                args->listNodes = true;
                break;
            case 'v':
                ++args->louder;
                break;
            case 'q':
                ++args->quieter;
                break;
            case 'V':
                printf("vela-service %s\n", vela_version::kVersion);
                return vela_exit::kOk;
            case 'h':
                printf("%s%s", kUsage, vela_exit::kTable);
                return vela_exit::kOk;
            default:  // getopt_long has said what was wrong
                fprintf(stderr, "Run 'vela-service --help' for the options.\n");
                return vela_exit::kUsage;
        }
    }
    if (optind < argc) {
        fprintf(stderr, "vela-service: unexpected argument '%s'\n", argv[optind]);
        return vela_exit::kUsage;
    }
    const int modes = args->execAll + !args->profileFile.empty() + args->listNodes;
    if (modes > 0 && args->checkFile.empty()) {
        fprintf(stderr,
                "vela-service: --exec-all, --profile and --list-nodes need --check-config FILE\n");
        return vela_exit::kUsage;
    }
    if (modes > 1) {
        fprintf(stderr, "vela-service: one of --exec-all, --profile and --list-nodes at a time\n");
        return vela_exit::kUsage;
    }
    if (!args->checkFile.empty() && (!args->configFile.empty() || !args->sysfsRoot.empty() ||
                                     !args->traceFile.empty() || !args->recordFile.empty())) {
        fprintf(stderr,
                "vela-service: --check-config does not serve: drop --config, "
                "--sysfs-root, --trace and --record\n");
        return vela_exit::kUsage;
    }
    return -1;
}

// SIGTERM and SIGINT are taken by one thread with sigwait, not by a handler: closing the
// timeline takes a lock and writes a file, which a handler may not do, and a thread that
// waits for the signal may. They are blocked before any other thread starts, so that every
// thread inherits the mask and the signal can only be taken here.
void blockStopSignals(sigset_t* set) {
    sigemptyset(set);
    sigaddset(set, SIGTERM);
    sigaddset(set, SIGINT);
    pthread_sigmask(SIG_BLOCK, set, nullptr);
}

void stopOnSignal(sigset_t set, std::shared_ptr<TraceWriter> trace) {
    std::thread([set, trace = std::move(trace)] {
        int signal = 0;
        while (sigwait(&set, &signal) != 0) {
        }
        // The timeline is closed first, so that it is a whole JSON document even if the
        // threads still serving are reporting; nothing else holds state a restart would miss.
        if (trace) trace->close();
        __android_log_print(ANDROID_LOG_INFO, kVelaLogTag, "stopping on %s",
                            signal == SIGTERM ? "SIGTERM" : "SIGINT");
        fflush(stderr);
        _exit(vela_exit::kOk);
    }).detach();
}

// Another vela-service already answers in this directory: replacing it would take its clients'
// requests away from under them, so the newcomer is the one that leaves.
bool servedAlready(const char* instance) {
    ndk::SpAIBinder binder(AServiceManager_checkService(instance));
    return binder.get() != nullptr;
}

}  // namespace

int main(int argc, char** argv) {
    Args args;
    if (int done = parseArgs(argc, argv, &args); done >= 0) return done;
    std::string logWarning;
    // A check prints its own findings: the embedded service of --exec-all only speaks up
    // when it warns, unless asked with -v.
    const int usualPriority = args.checkFile.empty() ? ANDROID_LOG_INFO : ANDROID_LOG_WARN;
    __android_log_set_minimum_priority(
            vela_log::choosePriority(usualPriority, args.louder, args.quieter, &logWarning));
    if (!logWarning.empty()) fprintf(stderr, "vela-service: %s\n", logWarning.c_str());
    if (!args.checkFile.empty()) {
        if (args.listNodes) return listConfigNodes(args.checkFile, stdout, stderr);
        if (!args.profileFile.empty()) {
            return checkConfigAgainstProfile(args.checkFile, args.profileFile, stdout, stderr);
        }
        return checkConfig(args.checkFile, args.execAll, stdout, stderr);
    }

    sigset_t stopSignals;
    blockStopSignals(&stopSignals);
    const char* kInstance = protocol::instanceName().c_str();
    // Before the timeline is opened: a second instance must not empty the first one's file.
    if (servedAlready(kInstance)) {
        fprintf(stderr,
                "vela-service: another vela-service already serves %s in this directory; stop it "
                "first, or give this one another HOSTBINDER_DIR\n",
                kInstance);
        return vela_exit::kUnavailable;
    }

    VelaService::Options options;
    if (!args.configFile.empty()) {
        // The same reading and the same lines as --check-config: what one refuses, the service
        // does not start with.
        std::optional<ScenarioConfig> config;
        if (int code = readConfigOrSayWhy(args.configFile, stderr, &config); code != 0) {
            return code;
        }
        options.config = std::move(*config);
    }
    options.sysfsRoot = args.sysfsRoot;
    // 66, a file named on the command line that cannot be opened: what the user fixes is the
    // path, as with --config. 70 would blame the program.
    if (std::string error; !options.openFiles(args.traceFile, args.recordFile, &error)) {
        fprintf(stderr, "vela-service: %s\n", error.c_str());
        return vela_exit::kNoInput;
    }

    stopOnSignal(stopSignals, options.trace);

    // A service serves on the threads it starts and joins: the pool's first thread, up to 8
    // more spawned as calls arrive, and this one. Joining alone would serve one call at a time.
    ABinderProcess_setThreadPoolMaxThreadCount(8);
    ABinderProcess_startThreadPool();

    auto service = ndk::SharedRefBase::make<VelaService>(std::move(options));
    std::string where;
    if (!registerService(service->asBinder().get(), kInstance, &where)) {
        fprintf(stderr, "vela-service: cannot serve %s: %s\n", kInstance, where.c_str());
        return vela_exit::kUnavailable;
    }
    __android_log_print(ANDROID_LOG_INFO, kVelaLogTag, "serving %s %s", kInstance, where.c_str());
    ABinderProcess_joinThreadPool();
    return vela_exit::kSoftware;  // joinThreadPool does not return
}
