// vela-service: the reference resource-control service.
//
//   vela-service [--config FILE] [--sysfs-root DIR]
//
// Serves "vendor.norvo.hardware.vela.IVela/default" until killed: on a host in $HOSTBINDER_DIR,
// on a device with the service manager. Options are read with getopt_long rather than a
// command-line library so that the same file builds in a vendor tree, which has none.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "ExitCodes.h"
#include "ServiceRegistration.h"
#include "VelaService.h"

using aidl::vendor::norvo::hardware::vela::impl::kVelaLogTag;
using aidl::vendor::norvo::hardware::vela::impl::registerService;
using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;
using aidl::vendor::norvo::hardware::vela::impl::VelaService;
namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

namespace {

constexpr const char kUsage[] =
        "Usage: vela-service [--config FILE] [--sysfs-root DIR]\n"
        "Serves the reference resource-control service until killed.\n"
        "\n"
        "  --config FILE      scenario configuration (JSON); the built-in one when not given\n"
        "  --sysfs-root DIR   mirror path resources as files under DIR\n"
        "  -h, --help         show this help and exit\n"
        "\n";

struct Args {
    std::string configFile;
    std::string sysfsRoot;
};

// -1 when the program goes on; otherwise the exit code.
int parseArgs(int argc, char** argv, Args* args) {
    static const option kOptions[] = {
            {"config", required_argument, nullptr, 'c'},
            {"sysfs-root", required_argument, nullptr, 's'},
            {"help", no_argument, nullptr, 'h'},
            {nullptr, 0, nullptr, 0},
    };
    int opt;
    while ((opt = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1) {
        switch (opt) {
            case 'c':
                args->configFile = optarg;
                break;
            case 's':
                args->sysfsRoot = optarg;
                break;
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
    return -1;
}

}  // namespace

int main(int argc, char** argv) {
    Args args;
    if (int done = parseArgs(argc, argv, &args); done >= 0) return done;

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
