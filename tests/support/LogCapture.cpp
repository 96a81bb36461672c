#include "LogCapture.h"

#include <cstdlib>
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
        if (capture == nullptr) {
            __android_log_stderr_logger(data, message);
            return;
        }
        capture->add(data->priority, data->tag, message);
        bool echo;
        {
            std::lock_guard<std::mutex> captureLock(capture->mMutex);
            echo = capture->mEcho;
        }
        if (echo) __android_log_stderr_logger(data, message);
    }
};

LogCapture::LogCapture() {
    {
        std::lock_guard<std::mutex> lock(LogCaptureHook::mutex());
        if (LogCaptureHook::active() != nullptr) {
            throw std::logic_error("LogCapture: another capture is active");
        }
        mEcho = getenv("PAX_TEST_LOG_ECHO") != nullptr;
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

void LogCapture::add(int priority, const char* tag, const char* text) {
    std::lock_guard<std::mutex> lock(mMutex);
    mLines.push_back(LogLine{tag != nullptr ? tag : "", priority, text != nullptr ? text : ""});
    mChanged.notify_all();
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

std::vector<LogLine> LogCapture::linesWithTag(const std::string& tag) const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<LogLine> out;
    for (const auto& line : mLines) {
        if (line.tag == tag) out.push_back(line);
    }
    return out;
}

std::vector<LogLine> LogCapture::linesContaining(const std::string& fragment) const {
    std::lock_guard<std::mutex> lock(mMutex);
    std::vector<LogLine> out;
    for (const auto& line : mLines) {
        if (line.text.find(fragment) != std::string::npos) out.push_back(line);
    }
    return out;
}

bool LogCapture::contains(const std::string& tag, int priority, const std::string& text) const {
    return count(tag, priority, text) > 0;
}

size_t LogCapture::count(const std::string& text) const {
    std::lock_guard<std::mutex> lock(mMutex);
    size_t n = 0;
    for (const auto& line : mLines) {
        if (line.text == text) ++n;
    }
    return n;
}

size_t LogCapture::count(const std::string& tag, int priority, const std::string& text) const {
    std::lock_guard<std::mutex> lock(mMutex);
    size_t n = 0;
    for (const auto& line : mLines) {
        if (line.tag == tag && line.priority == priority && line.text == text) ++n;
    }
    return n;
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

bool LogCapture::waitForLines(size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] { return mLines.size() >= n; });
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(mMutex);
    mLines.clear();
}

void LogCapture::setEcho(bool echo) {
    std::lock_guard<std::mutex> lock(mMutex);
    mEcho = echo;
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
