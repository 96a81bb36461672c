// The exit codes of vela-service and velactl: one table, sysexits-style, so that scripts can
// tell a mistake in the command line from a missing service or a request the service refused.
#pragma once

namespace vela_exit {

enum Code : int {
    kOk = 0,
    kRefused = 1,        // the service answered, and its answer was "no"
    kNoValue = 2,        // nothing came back: no value, or fewer callbacks than awaited
    kUsage = 64,         // the command line is wrong: unknown command, option or name
    kDataError = 65,     // a value is malformed or out of range (number, resource, config)
    kNoInput = 66,       // a file named on the command line cannot be opened
    kUnavailable = 69,   // the service is not running, does not answer in time, or went away
    kSoftware = 70,      // an internal error
    kCannotRun = 127,    // the command velactl was to hold a request for cannot be started
    kInterrupted = 130,  // stopped by SIGINT (Ctrl-C)
};

// For --help and the man pages: the table as people read it.
inline constexpr const char kTable[] =
        "Exit codes:\n"
        "  0    ok\n"
        "  1    the service refused the request\n"
        "  2    nothing came back: no value for what was asked, or fewer callbacks than awaited\n"
        "  64   usage: unknown command, option or name, or a missing argument\n"
        "  65   data: a malformed or out-of-range value (number, resource, configuration)\n"
        "  66   a file cannot be opened: an input, or a --trace output\n"
        "  69   the service is not running, does not answer within the timeout, or went away\n"
        "  70   internal error\n"
        "  127  the command after -- cannot be started (otherwise its own status is passed on)\n"
        "  130  interrupted (Ctrl-C)\n";

}  // namespace vela_exit
