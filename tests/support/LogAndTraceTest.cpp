// Log capture and the trace seam, through the same routes the library uses: liblog's public
// entry points, and a shared object that calls the trace functions as libcutils' users do.
#include <android/log.h>
#include <gtest/gtest.h>

#include <thread>

#include "LogCapture.h"
#include "TraceCapture.h"

extern "C" void paxtest_trace_probe(const char* name);

namespace paxtest {
namespace {

// Matches are exact (a looser match would let wrong lines pass), and the capture puts the
// logger and its minimum priority back when it goes.
TEST(LogCaptureTest, MatchesExactlyAndRestoresTheLogger) {
    const int before = __android_log_get_minimum_priority();
    {
        LogCapture log;
        __android_log_print(ANDROID_LOG_DEBUG, "tagA", "value %d", 5);
        std::thread([] { __android_log_print(ANDROID_LOG_ERROR, "tagB", "from afar"); }).join();
        __android_log_print(ANDROID_LOG_DEBUG, "tagA", "value %d", 5);

        EXPECT_TRUE(log.contains("tagA", ANDROID_LOG_DEBUG, "value 5")) << log.dump();
        EXPECT_TRUE(log.contains("tagB", ANDROID_LOG_ERROR, "from afar")) << log.dump();
        EXPECT_FALSE(log.contains("tagA", ANDROID_LOG_INFO, "value 5"));
        EXPECT_FALSE(log.contains("tagB", ANDROID_LOG_ERROR, "value 5"));
        EXPECT_EQ(log.count("value"), 0u);
        EXPECT_EQ(log.count("value 5"), 2u);
        EXPECT_THROW(LogCapture second, std::logic_error);
    }
    EXPECT_EQ(before, __android_log_get_minimum_priority());

    LogCapture again;  // the hook was let go
    __android_log_print(ANDROID_LOG_INFO, "tagC", "later");
    EXPECT_TRUE(again.contains("tagC", ANDROID_LOG_INFO, "later")) << again.dump();
    EXPECT_EQ(again.count("value 5"), 0u);
}

TEST(TraceCaptureTest, SharedObjectsReachTheSeam) {
    paxtest_trace_probe("off");
    {
        TraceCapture trace(1);
        paxtest_trace_probe("on");
        EXPECT_EQ((std::vector<TraceEvent>{{TraceEvent::kBegin, "on"}, {TraceEvent::kEnd, ""}}),
                  trace.events());
        trace.setEnabledTags(2);
        paxtest_trace_probe("other tag");
        EXPECT_EQ(std::vector<std::string>{"on"}, trace.beginNames());
    }
    paxtest_trace_probe("off again");
    EXPECT_TRUE(TraceCapture::events().empty());
}

}  // namespace
}  // namespace paxtest
