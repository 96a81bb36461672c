#include "LogCapture.h"

#include <sstream>
#include <stdexcept>

namespace paxtest {

// liblog takes a plain function pointer, so the active capture lives in a global. The mutex
// also keeps the destructor from finishing while a line is being stored on another thread.
struct LogCaptureHook {
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    static LogCapture*& active() {
        static LogCapture* capture = nullptr;
        return capture;
    }
    static void logger(const struct __android_logger_data* data, const char* message) {
        std::lock_guard<std::mutex> lock(mutex());
        LogCapture* capture = active();
        if (capture == nullptr) return __android_log_stderr_logger(data, message);
        std::lock_guard<std::mutex> captureLock(capture->mMutex);
        capture->mLines.push_back(LogLine{data->tag != nullptr ? data->tag : "", data->priority,
                                          message != nullptr ? message : ""});
        capture->mChanged.notify_all();
    }
};

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(LogCaptureHook::mutex());
        if (LogCaptureHook::active() != nullptr) {
            throw std::logic_error("LogCapture: another capture is active");
        }
        LogCaptureHook::active() = this;
    }
    // Not under the hook's mutex: liblog calls the logger with its own lock held, and setting
    // the logger takes that lock.
    mPreviousMinimum = __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    __android_log_set_logger(&LogCaptureHook::logger);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(&__android_log_stderr_logger);
    __android_log_set_minimum_priority(mPreviousMinimum);
    // A line that got to the hook before the switch is stored or dropped under this lock, so
    // nothing touches this object once the destructor returns.
    std::lock_guard<std::mutex> lock(LogCaptureHook::mutex());
    LogCaptureHook::active() = nullptr;
}

std::vector<LogLine> LogCapture::select(const std::function<bool(const LogLine&)>& match) const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<LogLine> out;
    for (const auto& line : mLines) {
        if (match(line)) out.push_back(line);
    }
    return out;
}

std::vector<LogLine> LogCapture::linesContaining(const std::string& fragment) const {
    return select([&](const LogLine& l) { return l.text.find(fragment) != std::string::npos; });
}

size_t LogCapture::count(const std::string& text) const {
    return select([&](const LogLine& line) { return line.text == text; }).size();
}

size_t LogCapture::count(const std::string& tag, int priority, const std::string& text) const {
    return select([&](const LogLine& line) {
               return line.tag == tag && line.priority == priority && line.text == text;
           })
            .size();
}

bool LogCapture::waitFor(const std::string& text, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] {
        for (const auto& line : mLines) {
            if (line.text == text) return true;
        }
        return false;
    });
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mLines.clear();
}

std::string LogCapture::dump() const {
    static const char kLetters[] = "??VDIWEFS";
    std::lock_guard<std::mutex> lock(mMutex);
    std::ostringstream out;
    for (const auto& line : mLines) {
        char letter = line.priority >= 0 && line.priority < 9 ? kLetters[line.priority] : '?';
        out << letter << '/' << line.tag << ": " << line.text << '\n';
    }
    return out.str();
}

}  // namespace paxtest
