// ANDROID_LOG_TAGS for programs on the host. The host liblog writes every line of INFO and up to
// stderr and reads no per-tag setting, so a program linked with this runtime could not turn the
// library's lines down. When the variable is set, a filter in logcat's syntax is installed as
// liblog's logger when this library loads: space-separated `tag:level` entries, `*` for every
// tag not named, levels v d i w e f s (s is silent), a tag alone meaning v. Without the
// variable nothing changes. A program that installs a logger of its own replaces this one.
#include <android/log.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <unordered_map>

#include "log.h"

namespace {

struct TagFilter {
    // What is not named follows `*`; without `*`, what liblog prints anyway (INFO and up), so
    // that naming one tag never turns the others up.
    int fallback = ANDROID_LOG_INFO;
    std::unordered_map<std::string, int> perTag;

    bool passes(int priority, const char* tag) const {
        auto it = tag == nullptr ? perTag.end() : perTag.find(tag);
        return priority >= (it == perTag.end() ? fallback : it->second);
    }
    int lowest() const {
        int low = fallback;
        for (const auto& entry : perTag) low = entry.second < low ? entry.second : low;
        return low;
    }
};

// v d i w e f s are ANDROID_LOG_VERBOSE to ANDROID_LOG_SILENT, in order; -1 for anything else.
int priorityOfLetter(char letter) {
    static const char kLetters[] = "vdiwefs";
    const char* at = letter == '\0' ? nullptr
                                    : strchr(kLetters, tolower(static_cast<unsigned char>(letter)));
    return at == nullptr ? -1 : ANDROID_LOG_VERBOSE + static_cast<int>(at - kLetters);
}

// Never destroyed: a line may be logged while the process exits.
TagFilter* gFilter = nullptr;

void filteringLogger(const __android_logger_data* data, const char* message) {
    if (gFilter->passes(data->priority, data->tag)) __android_log_stderr_logger(data, message);
}

__attribute__((constructor)) void installLogTagsFilter() {
    const char* tags = getenv("ANDROID_LOG_TAGS");
    if (tags == nullptr || tags[0] == '\0') return;
    auto* filter = new TagFilter;
    std::istringstream entries(tags);
    for (std::string entry; entries >> entry;) {
        const size_t colon = entry.rfind(':');
        const std::string tag = colon == std::string::npos ? entry : entry.substr(0, colon);
        const int priority = colon == std::string::npos  ? ANDROID_LOG_VERBOSE
                             : colon + 2 == entry.size() ? priorityOfLetter(entry[colon + 1])
                                                         : -1;
        // A wrong entry is skipped, not guessed at; the rest still apply.
        if (tag.empty() || priority < 0) {
            hostbinderLog(
                    "ANDROID_LOG_TAGS: ignoring \"%s\" (want tag:level, level one of "
                    "v d i w e f s)",
                    entry.c_str());
            continue;
        }
        if (tag == "*") {
            filter->fallback = priority;
        } else {
            filter->perTag[tag] = priority;
        }
    }
    gFilter = filter;
    // liblog drops what is below its minimum before any logger sees it: let through what some
    // tag asks for, and let the filter decide the rest.
    __android_log_set_minimum_priority(filter->lowest());
    __android_log_set_logger(&filteringLogger);
}

}  // namespace
