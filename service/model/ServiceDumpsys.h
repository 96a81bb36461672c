// The binder dump hook (`dumpsys`): which tables the asker named, and the answer written back to
// it, as text or as one JSON object, without holding the service up.
#pragma once

#include <android/binder_status.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "DumpsysTables.h"
#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

// What the arguments of one dump asked for.
struct DumpsysRequest {
    bool help = false;
    bool json = false;
    // Indexed by DumpsysTable. All false once parsed means the default selection.
    bool tables[kDumpsysTableCount] = {};
    bool named = false;
};

// Nothing when an argument is neither a table nor an option; `error` is then one line that
// lists what is accepted.
std::optional<DumpsysRequest> parseDumpsysArgs(const char** args, uint32_t numArgs,
                                               std::string* error);

// The usage text for -h.
std::string dumpsysHelp();

// The selected tables, titled lines each (or one JSON object and a newline). Needs the
// service lock: it reads the whole state.
std::string dumpsysTextLocked(const ServiceState& state, const DumpsysRequest& request);

// Answers one dump: the tables `args` name, taken under `lock` and written to `fd` once it is
// released. STATUS_BAD_VALUE (and a line saying why on `fd`) for an unknown argument.
binder_status_t answerDumpsys(int fd, const char** args, uint32_t numArgs, std::mutex& lock,
                              const ServiceState& state);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
