// How loud the host log is: -v and -q step liblog's minimum priority down and up from a
// program's default, and VELA_LOG_LEVEL names a level outright. Header-only, with nothing but
// liblog, so that the service builds with it in a vendor tree too.
#pragma once

#include <android/log.h>
#include <strings.h>

#include <cstdlib>
#include <string>

namespace vela_log {

// The steps -v and -q move along, quietest last.
inline constexpr int kSteps[] = {ANDROID_LOG_VERBOSE, ANDROID_LOG_DEBUG, ANDROID_LOG_INFO,
                                 ANDROID_LOG_WARN,    ANDROID_LOG_ERROR, ANDROID_LOG_SILENT};
inline constexpr int kStepCount = sizeof(kSteps) / sizeof(kSteps[0]);

struct Named {
    const char* name;
    char letter;
    int priority;
};
inline constexpr Named kNames[] = {
        {"verbose", 'V', ANDROID_LOG_VERBOSE}, {"debug", 'D', ANDROID_LOG_DEBUG},
        {"info", 'I', ANDROID_LOG_INFO},       {"warn", 'W', ANDROID_LOG_WARN},
        {"error", 'E', ANDROID_LOG_ERROR},     {"fatal", 'F', ANDROID_LOG_FATAL},
        {"silent", 'S', ANDROID_LOG_SILENT},
};

inline constexpr const char kHelp[] =
        "VELA_LOG_LEVEL=verbose|debug|info|warn|error|fatal|silent (or V D I W E F S) sets\n"
        "the log level when the command line has no -v or -q; they step it from the program's\n"
        "default.\n";

// The priority a level name stands for, or -1.
inline int priorityNamed(const std::string& text) {
    for (const Named& named : kNames) {
        if (strcasecmp(text.c_str(), named.name) == 0) return named.priority;
        if (text.size() == 1 && (text[0] == named.letter || text[0] == named.letter + 32)) {
            return named.priority;
        }
    }
    return -1;
}

// The minimum priority for a program whose default is `base`, after `louder` -v and
// `quieter` -q. The command line wins over the environment: VELA_LOG_LEVEL counts only when
// neither is given. One that names no level is reported in `error` and ignored: a typo in the
// environment should not stop a service from starting.
inline int choosePriority(int base, int louder, int quieter, std::string* error) {
    const char* env = louder == 0 && quieter == 0 ? getenv("VELA_LOG_LEVEL") : nullptr;
    if (env != nullptr && *env != '\0') {
        const int named = priorityNamed(env);
        if (named >= 0) {
            base = named;
        } else if (error != nullptr) {
            *error = std::string("VELA_LOG_LEVEL=") + env + " names no level; using the default";
        }
    }
    int step = 0;
    while (step + 1 < kStepCount && kSteps[step] < base) ++step;
    step += quieter - louder;
    if (step < 0) step = 0;
    if (step >= kStepCount) step = kStepCount - 1;
    return kSteps[step];
}

}  // namespace vela_log
