// Captures what the process writes to the Android log, so tests can assert the exact tag,
// priority and text of a line.
//
//   paxtest::LogCapture log;   // from here on every line, debug included, is captured
//   ...
//   EXPECT_TRUE(log.contains("[PAX_CLIENT]", ANDROID_LOG_INFO, "paxInit")) << log.dump();
//
// Only one capture may exist at a time (the logger hook is process-wide); a second one throws
// std::logic_error. While a capture exists the minimum log priority is debug; the destructor
// restores the previous minimum and the stderr logger. All members are thread-safe: lines
// arrive from binder threads too.
#pragma once

#include <android/log.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace paxtest {

struct LogLine {
    std::string tag;
    int priority = ANDROID_LOG_UNKNOWN;
    std::string text;
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Lines whose text contains `fragment`, in arrival order.
    std::vector<LogLine> linesContaining(const std::string& fragment) const;
    // Lines whose text is exactly `text` (any tag, any priority).
    size_t count(const std::string& text) const;
    // Lines with exactly this tag, priority and text.
    size_t count(const std::string& tag, int priority, const std::string& text) const;
    bool contains(const std::string& tag, int priority, const std::string& text) const {
        return count(tag, priority, text) > 0;
    }
    // Waits until a line whose text is exactly `text` has been captured (now or before).
    bool waitFor(const std::string& text,
                 std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;
    void clear();
    // Every captured line as "P/tag: text\n", for failure messages.
    std::string dump() const;

private:
    friend struct LogCaptureHook;
    // The lines that `match`, under mMutex.
    std::vector<LogLine> select(const std::function<bool(const LogLine&)>& match) const;

    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::vector<LogLine> mLines;
    int mPreviousMinimum = ANDROID_LOG_DEFAULT;
};

}  // namespace paxtest
