// vela-service: the reference resource-control service.
//
//   vela-service [--config FILE] [--sysfs-root DIR]
//
// Serves "vendor.norvo.hardware.vela.IVela/default" in $HOSTBINDER_DIR until killed.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <hostbinder/hostbinder.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>

#include "VelaService.h"

using aidl::vendor::norvo::hardware::vela::impl::kVelaLogTag;
using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;
using aidl::vendor::norvo::hardware::vela::impl::VelaService;
namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;

int main(int argc, char** argv) {
    CLI::App app{"Reference resource-control service"};
    std::string configFile;
    std::string sysfsRoot;
    app.add_option("--config", configFile,
                   "scenario configuration (JSON); the built-in one "
                   "when not given")
            ->check(CLI::ExistingFile);
    app.add_option("--sysfs-root", sysfsRoot, "mirror path resources as files under DIR");
    CLI11_PARSE(app, argc, argv);

    VelaService::Options options;
    if (!configFile.empty()) {
        std::string error;
        auto config = ScenarioConfig::load(configFile, &error);
        if (!config) {
            fprintf(stderr, "vela-service: %s\n", error.c_str());
            return 2;
        }
        options.config = std::move(*config);
    }
    options.sysfsRoot = sysfsRoot;

    ABinderProcess_setThreadPoolMaxThreadCount(8);

    const char* kInstance = protocol::instanceName().c_str();
    auto service = ndk::SharedRefBase::make<VelaService>(std::move(options));
    if (HostBinder_declareService(kInstance) != STATUS_OK) {
        fprintf(stderr, "vela-service: cannot declare %s in %s\n", kInstance,
                HostBinder_getDirectory());
        return 1;
    }
    binder_exception_t added = AServiceManager_addService(service->asBinder().get(), kInstance);
    if (added != EX_NONE) {
        fprintf(stderr, "vela-service: cannot serve %s in %s (exception %d)\n", kInstance,
                HostBinder_getDirectory(), added);
        return 1;
    }
    __android_log_print(ANDROID_LOG_INFO, kVelaLogTag, "serving %s in %s", kInstance,
                        HostBinder_getDirectory());
    ABinderProcess_joinThreadPool();
    return EXIT_FAILURE;  // joinThreadPool does not return
}
