// A reference service inside the velactl process, in a socket directory of its own, so that
// velactl works on a machine where nothing else runs and never disturbs a real service.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "VelaService.h"

namespace velactl {

class EmbeddedService {
public:
    // Must run before anything else touches the binder runtime: it points $HOSTBINDER_DIR
    // at a fresh private directory. Null (with `error` set) on failure.
    static std::unique_ptr<EmbeddedService> start(
            aidl::vendor::norvo::hardware::vela::impl::VelaService::Options options,
            std::string* error);
    ~EmbeddedService();

    // For a process about to _exit: the socket directory goes, the service stays up until
    // the process ends, so that no client in it sees the service die.
    void removeDirectory();

private:
    EmbeddedService() = default;

    std::shared_ptr<aidl::vendor::norvo::hardware::vela::impl::VelaService> mService;
    std::string mDirectory;
};

// The service's own log lines (tag "vela-service"), kept while velactl runs a command: an
// embedded service's dumps are printed from here, and its reasons for refusing a request are
// shown with the failure. Lines at `displayPriority` or above also go to stderr.
void installLogger(int displayPriority, bool embedded);
void clearServiceLines();
std::vector<std::string> serviceLines(int minimumPriority);

}  // namespace velactl
