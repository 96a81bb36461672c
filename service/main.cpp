// vela-service: the reference resource-control service.
//
//   vela-service [-v|-q]... [--config FILE] [--sysfs-root DIR] [--trace FILE]
//   vela-service --check-config FILE [--exec-all]
//
// Serves "vendor.norvo.hardware.vela.IVela/default" until killed: on a host in $HOSTBINDER_DIR,
// on a device with the service manager. With --check-config it verifies a configuration and
// exits instead. Options are read with getopt_long rather than a
// command-line library so that the same file builds in a vendor tree, which has none.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "ExitCodes.h"
#include "LogLevel.h"
#include "ServiceRegistration.h"
#include "VelaService.h"
#include "Version.h"

// The verifier needs valijson, which a vendor tree does not have: the device build (Android.bp)
// leaves it out, and --check-config then says so rather than pass a file it never read.
#ifdef VELA_HAVE_CONFIG_VERIFIER
#include "ConfigDryRun.h"
#include "ConfigVerifier.h"
#endif

using aidl::vendor::norvo::hardware::vela::impl::kVelaLogTag;
using aidl::vendor::norvo::hardware::vela::impl::registerService;
using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;
using aidl::vendor::norvo::hardware::vela::impl::TraceWriter;
using aidl::vendor::norvo::hardware::vela::impl::VelaService;
namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

namespace {

constexpr const char kUsage[] =
        "Usage: vela-service [OPTIONS]\n"
        "       vela-service --check-config FILE [--exec-all]\n"
        "Serves the reference resource-control service until killed; or checks a scenario\n"
        "configuration against its schema and the clients' action table, and exits.\n"
        "\n"
        "Options:\n"
        "  --config FILE      scenario configuration (JSON); the built-in one when not given\n"
        "  --sysfs-root DIR   mirror path resources as files under DIR\n"
        "  --trace FILE       write a timeline to FILE (trace-event JSON: ui.perfetto.dev)\n"
        "  --check-config FILE\n"
        "                     verify FILE and exit: each problem on stderr as\n"
        "                     'FILE: $.json.path: message', the verdict on stdout\n"
        "  --exec-all         with --check-config, when FILE is valid: apply each scenario in\n"
        "                     an embedded service, print what it changed, release it again\n"
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
    std::string checkFile;
    bool execAll = false;
    int louder = 0;
    int quieter = 0;
};

// -1 when the program goes on; otherwise the exit code.
int parseArgs(int argc, char** argv, Args* args) {
    static const option kOptions[] = {
            {"config", required_argument, nullptr, 'c'},
            {"sysfs-root", required_argument, nullptr, 's'},
            {"trace", required_argument, nullptr, 't'},
            {"check-config", required_argument, nullptr, 'k'},
            {"exec-all", no_argument, nullptr, 'x'},
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
            case 'k':
                args->checkFile = optarg;
                break;
            case 'x':
                args->execAll = true;
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
    if (args->execAll && args->checkFile.empty()) {
        fprintf(stderr, "vela-service: --exec-all needs --check-config FILE\n");
        return vela_exit::kUsage;
    }
    if (!args->checkFile.empty() &&
        (!args->configFile.empty() || !args->sysfsRoot.empty() || !args->traceFile.empty())) {
        fprintf(stderr,
                "vela-service: --check-config does not serve: drop --config, "
                "--sysfs-root and --trace\n");
        return vela_exit::kUsage;
    }
    return -1;
}

#ifdef VELA_HAVE_CONFIG_VERIFIER
int checkConfig(const Args& args) {
    const std::string& file = args.checkFile;
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    if (!in || !(text << in.rdbuf())) {
        fprintf(stderr, "vela-service: cannot read %s: %s\n", file.c_str(), strerror(errno));
        return vela_exit::kNoInput;
    }
    using aidl::vendor::norvo::hardware::vela::impl::verifyConfig;
    const auto problems = verifyConfig(text.str());
    for (const auto& problem : problems) {
        fprintf(stderr, "%s: %s: %s\n", file.c_str(), problem.path.c_str(),
                problem.message.c_str());
    }
    if (!problems.empty()) {
        printf("%s: invalid, %zu problem%s\n", file.c_str(), problems.size(),
               problems.size() == 1 ? "" : "s");
        return vela_exit::kDataError;
    }
    printf("%s: valid\n", file.c_str());
    if (!args.execAll) return vela_exit::kOk;

    std::string error;
    auto config = ScenarioConfig::parse(text.str(), &error);
    if (!config) {  // verifyConfig has parsed it already; this is a fault of ours
        fprintf(stderr, "vela-service: %s\n", error.c_str());
        return vela_exit::kSoftware;
    }
    using aidl::vendor::norvo::hardware::vela::impl::dryRunScenarios;
    fflush(stdout);
    return dryRunScenarios(*config, stdout) ? vela_exit::kOk : vela_exit::kDataError;
}
#else
int checkConfig(const Args&) {
    fprintf(stderr, "vela-service: the configuration verifier is not in this build\n");
    return vela_exit::kUnavailable;
}
#endif

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
    if (!args.checkFile.empty()) return checkConfig(args);

    VelaService::Options options;
    if (!args.configFile.empty()) {
        if (access(args.configFile.c_str(), R_OK) != 0) {
            fprintf(stderr, "vela-service: cannot open %s: %s\n", args.configFile.c_str(),
                    strerror(errno));
            return vela_exit::kNoInput;
        }
        std::string error;
        auto config = ScenarioConfig::load(args.configFile, &error);
        if (!config) {
            fprintf(stderr, "vela-service: %s\n", error.c_str());
            return vela_exit::kDataError;
        }
        options.config = std::move(*config);
    }
    options.sysfsRoot = args.sysfsRoot;
    if (!args.traceFile.empty()) {
        std::string error;
        options.trace = TraceWriter::open(args.traceFile, &error);
        // 66, a file named on the command line that cannot be opened: what the user fixes is
        // the path, as with --config. 70 would blame the program.
        if (!options.trace) {
            fprintf(stderr, "vela-service: %s\n", error.c_str());
            return vela_exit::kNoInput;
        }
    }

    ABinderProcess_setThreadPoolMaxThreadCount(8);

    const char* kInstance = protocol::instanceName().c_str();
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
