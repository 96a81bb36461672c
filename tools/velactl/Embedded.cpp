#include "Embedded.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <hostbinder/hostbinder.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

namespace velactl {

namespace protocol = aidl::vendor::norvo::hardware::vela::protocol;
using aidl::vendor::norvo::hardware::vela::impl::kVelaLogTag;
using aidl::vendor::norvo::hardware::vela::impl::VelaService;

namespace {

struct ServiceLine {
    int priority;
    std::string text;
};

std::mutex gLogLock;
std::vector<ServiceLine> gServiceLines;
int gDisplay = ANDROID_LOG_WARN;
constexpr size_t kMaxServiceLines = 4096;

void logger(const struct __android_logger_data* data, const char* message) {
    const bool fromService = data->tag != nullptr && strcmp(data->tag, kVelaLogTag) == 0;
    if (fromService) {
        std::lock_guard<std::mutex> lock(gLogLock);
        if (gServiceLines.size() < kMaxServiceLines) {
            gServiceLines.push_back({data->priority, message});
        }
    }
    // The service's refusals come with the failure they explain (see failed()); its lines of
    // their own are for -v.
    const bool shown = fromService ? gDisplay <= ANDROID_LOG_INFO : true;
    if (shown && data->priority >= gDisplay) __android_log_stderr_logger(data, message);
}

}  // namespace

void installLogger(int displayPriority, bool embedded) {
    gDisplay = displayPriority;
    // An embedded service's info lines are kept (dumps print from them) even when not shown.
    __android_log_set_minimum_priority(
            embedded ? std::min(displayPriority, static_cast<int>(ANDROID_LOG_INFO))
                     : displayPriority);
    __android_log_set_logger(logger);
}

void clearServiceLines() {
    std::lock_guard<std::mutex> lock(gLogLock);
    gServiceLines.clear();
}

std::vector<std::string> serviceLines(int minimumPriority) {
    std::lock_guard<std::mutex> lock(gLogLock);
    std::vector<std::string> out;
    for (const auto& line : gServiceLines) {
        if (line.priority >= minimumPriority) out.push_back(line.text);
    }
    return out;
}

std::unique_ptr<EmbeddedService> EmbeddedService::start(VelaService::Options options,
                                                        std::string* error) {
    std::unique_ptr<EmbeddedService> embedded(new EmbeddedService());
    std::string dir = std::filesystem::temp_directory_path() / "velactl-XXXXXX";
    if (mkdtemp(dir.data()) == nullptr) {
        *error = "cannot make a socket directory under " +
                 std::filesystem::temp_directory_path().string() + ": " + strerror(errno);
        return nullptr;
    }
    embedded->mDirectory = dir;
    setenv("HOSTBINDER_DIR", dir.c_str(), 1);
    // Declared as any service is, by a manifest fragment, in a manifest directory of its own:
    // the embedded service is this process's alone.
    setenv("HOSTBINDER_VINTF_DIR", (dir + "/vintf").c_str(), 1);

    // velactl's main has started the pool already; a second start is harmless, and the pool
    // keeps its size: shrinking a started pool aborts a device process.
    ABinderProcess_startThreadPool();
    embedded->mService = ::ndk::SharedRefBase::make<VelaService>(std::move(options));
    if (HostBinder_declareService(protocol::instanceName().c_str()) != STATUS_OK) {
        *error = "cannot declare the embedded service in " + dir;
        return nullptr;
    }
    const binder_exception_t added = AServiceManager_addService(
            embedded->mService->asBinder().get(), protocol::instanceName().c_str());
    if (added != EX_NONE) {
        *error = "cannot serve the embedded service in " + dir + " (exception " +
                 std::to_string(added) + ")";
        return nullptr;
    }
    return embedded;
}

EmbeddedService::~EmbeddedService() {
    if (mService) HostBinder_stopService(protocol::instanceName().c_str());
    mService.reset();
    removeDirectory();
}

void EmbeddedService::removeDirectory() {
    if (mDirectory.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(mDirectory, ignored);
    mDirectory.clear();
}

}  // namespace velactl
