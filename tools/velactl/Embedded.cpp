#include "Embedded.h"

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <hostbinder/hostbinder.h>

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
bool gVerbose = false;
constexpr size_t kMaxServiceLines = 4096;

void logger(const struct __android_logger_data* data, const char* message) {
    if (data->tag != nullptr && strcmp(data->tag, kVelaLogTag) == 0) {
        std::lock_guard<std::mutex> lock(gLogLock);
        if (gServiceLines.size() < kMaxServiceLines) {
            gServiceLines.push_back({data->priority, message});
        }
    }
    if (gVerbose) __android_log_stderr_logger(data, message);
}

}  // namespace

void installLogger(bool verbose) {
    gVerbose = verbose;
    if (verbose) __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
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

    ABinderProcess_setThreadPoolMaxThreadCount(4);
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
    if (!mDirectory.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(mDirectory, ignored);
    }
}

}  // namespace velactl
