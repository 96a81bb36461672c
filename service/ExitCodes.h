// The exit codes of vela-service and velactl: one table, sysexits-style, so that scripts can
// tell a mistake in the command line from a missing service or a request the service refused.
#pragma once

namespace vela_exit {

enum Code : int {
    kOk = 0,
    kRefused = 1,        // the service answered, and its answer was "no"
    kUsage = 64,         // the command line is wrong
    kDataError = 65,     // an input (configuration, value, script) is malformed
    kNoInput = 66,       // an input file cannot be opened
    kUnavailable = 69,   // the service is not running or went away
    kSoftware = 70,      // an internal error
    kInterrupted = 130,  // stopped by SIGINT
};

// For --help: the table as people read it.
inline constexpr const char kTable[] =
        "exit codes: 0 ok, 1 refused by the service, 64 usage, 65 bad data, 66 cannot open input,\n"
        "            69 service unavailable, 70 internal error, 130 interrupted\n";

}  // namespace vela_exit
