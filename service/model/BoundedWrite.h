// Writing to a descriptor someone else handed us (the dump hook's), where the other end may
// read slowly, never, or go away: the service must neither stall a binder thread for good nor
// be killed by SIGPIPE.
#pragma once

#include <chrono>
#include <string_view>

namespace aidl::vendor::norvo::hardware::vela::impl {

// Writes all of `text` to `fd`. Gives up (false) on an error, when the reader has gone, or
// when the reader takes nothing for `stall`. Never raises SIGPIPE in the process.
bool writeBounded(int fd, std::string_view text, std::chrono::milliseconds stall);

// Writes all of `text` to a file of our own, retrying short writes and interruptions. On a
// failure returns the errno (EIO when the file took nothing), and 0 once everything is written.
int writeWhole(int fd, std::string_view text);

}  // namespace aidl::vendor::norvo::hardware::vela::impl
