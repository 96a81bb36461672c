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

private:
    EmbeddedService() = default;

    std::shared_ptr<aidl::vendor::norvo::hardware::vela::impl::VelaService> mService;
    std::string mDirectory;
};

// The service's own log lines (tag "vela-service"), kept while velactl runs a command: an
// embedded service's dumps are printed from here, and its reasons for refusing a request are
// shown with the failure.
void installLogger(bool verbose);
void clearServiceLines();
std::vector<std::string> serviceLines(int minimumPriority);

}  // namespace velactl
