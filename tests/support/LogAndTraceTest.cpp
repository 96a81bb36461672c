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

TEST(LogCaptureTest, CapturesDebugLinesFromAnyThreadAndRestoresTheLogger) {
    const int before = __android_log_get_minimum_priority();
    {
        LogCapture log;
        __android_log_print(ANDROID_LOG_DEBUG, "tagA", "value %d", 5);
        std::thread([] {
            __android_log_print(ANDROID_LOG_ERROR, "tagB", "from %s", "afar");
        }).join();
        __android_log_print(ANDROID_LOG_DEBUG, "tagA", "value %d", 5);

        EXPECT_TRUE(log.contains("tagA", ANDROID_LOG_DEBUG, "value 5")) << log.dump();
        EXPECT_TRUE(log.contains("tagB", ANDROID_LOG_ERROR, "from afar")) << log.dump();
        EXPECT_FALSE(log.contains("tagA", ANDROID_LOG_INFO, "value 5"));
        EXPECT_FALSE(log.contains("tagA", ANDROID_LOG_DEBUG, "value"));
        EXPECT_EQ(2u, log.count("value 5"));
        EXPECT_TRUE(log.waitFor("from afar", std::chrono::milliseconds(0)));
        EXPECT_THROW(LogCapture second, std::logic_error);

        log.clear();
        EXPECT_TRUE(log.lines().empty());
    }
    EXPECT_EQ(before, __android_log_get_minimum_priority());

    LogCapture again;
    __android_log_print(ANDROID_LOG_INFO, "tagC", "later");
    ASSERT_EQ(1u, again.lines().size());
    EXPECT_EQ("later", again.lines()[0].text);
}

TEST(TraceCaptureTest, SharedObjectsReachTheSeam) {
    paxtest_trace_probe("off");
    {
        TraceCapture trace(1);
        paxtest_trace_probe("on");
        EXPECT_EQ((std::vector<TraceEvent>{{TraceEvent::kBegin, "on"}, {TraceEvent::kEnd, ""}}),
                  trace.events());
        EXPECT_EQ(1u, trace.tagQueries());

        trace.setEnabledTags(2);
        paxtest_trace_probe("other tag");
        EXPECT_EQ(std::vector<std::string>{"on"}, trace.beginNames());
    }
    paxtest_trace_probe("off again");
    EXPECT_TRUE(TraceCapture::events().empty());
}

}  // namespace
}  // namespace paxtest
