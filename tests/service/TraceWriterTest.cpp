// The timeline file: what a viewer reads back, closed or cut off, whatever the strings hold,
// and that a service's counters follow the values in force step by step.
#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <thread>

#include "LogCapture.h"
#include "ServiceFixture.h"
#include "TraceWriter.h"
#include "Waiter.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;
namespace {

// On the service fixture, whose helpers drive the counter test's tracing service.
class TraceWriterTest : public VelaServiceTest {
protected:
    std::string path = ::testing::TempDir() + "trace-" + std::to_string(getpid()) + ".json";
    void TearDown() override { unlink(path.c_str()); }

    // The events, read strictly. A file never closed ends in ",\n": a viewer drops the comma
    // and supplies the bracket, and so does this.
    Json::Value events(bool closed) {
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        std::string json = text.str();
        if (!closed) {
            EXPECT_EQ(json.substr(json.size() - 2), ",\n");
            json = json.substr(0, json.size() - 2) + "]";
        }
        Json::CharReaderBuilder builder;
        Json::CharReaderBuilder::strictMode(&builder.settings_);
        Json::Value root;
        std::string error;
        std::istringstream in(json);
        EXPECT_TRUE(Json::parseFromStream(builder, in, &root, &error)) << error << "\n" << json;
        return root;
    }
};

TEST_F(TraceWriterTest, RequestsCountersAndInstantsReadBackAfterClose) {
    std::string error;
    auto trace = TraceWriter::open(path, &error);
    ASSERT_TRUE(trace) << error;
    trace->begin(7, "ACTION_LAUNCH", {{"package", "com.example"}, {"duration", "500"}});
    trace->begin(8, "event 0", {});
    for (const char* value :
         {"1200", "-3", "0x1f", "1.5", "", "12abc", "0x", "0x-1", "99999999999999999999", " 1"}) {
        trace->counter("cpu.freq", value);
    }
    trace->end(7, "released");
    trace->instant("thermal", "level 3", {{"level", "3"}});
    trace.reset();

    const Json::Value e = events(true);
    ASSERT_EQ(e.size(), 18u);
    EXPECT_EQ(e[0]["ph"], "M");
    EXPECT_EQ(e[0]["args"]["name"], "vela-service");
    // The wall clock of ts 0, as a number and as text.
    EXPECT_EQ(e[1]["name"], "clock_anchor");
    EXPECT_GT(e[1]["args"]["ts_zero_unix_us"].asInt64(), 1600000000000000);
    EXPECT_EQ(e[1]["args"]["ts_zero_utc"].asString().back(), 'Z');
    EXPECT_EQ(e[2]["ph"], "b");
    EXPECT_EQ(e[2]["id"], 7);
    EXPECT_EQ(e[2]["args"]["package"], "com.example");
    EXPECT_TRUE(e[2]["args"]["duration"].isInt()) << "numbers are numbers";
    // Whole numbers are counters; anything else is an instant of the same name.
    const int64_t numbers[] = {1200, -3, 31};
    for (int i = 0; i < 10; ++i) {
        const Json::Value& c = e[4 + i];
        EXPECT_EQ(c["name"], "cpu.freq");
        EXPECT_EQ(c["ph"], i < 3 ? "C" : "i") << i;
        if (i < 3) {
            EXPECT_EQ(c["args"]["value"].asInt64(), numbers[i]);
        } else {
            EXPECT_TRUE(c["args"]["value"].isString()) << i;
        }
    }
    // Ends carry the begin's name (viewers pair on it) and how the request ended; the slice
    // still open at close ends there.
    EXPECT_EQ(e[14]["ph"], "e");
    EXPECT_EQ(e[14]["name"], "ACTION_LAUNCH");
    EXPECT_EQ(e[14]["args"]["ended"], "released");
    EXPECT_EQ(e[16]["name"], "event 0");
    EXPECT_EQ(e[16]["id"], 8);
    EXPECT_EQ(e[17]["name"], "trace closed");
    for (Json::ArrayIndex i = 1; i < e.size(); ++i) {
        EXPECT_GE(e[i]["ts"].asInt64(), e[i - 1]["ts"].asInt64());
        EXPECT_EQ(e[i]["pid"], getpid());
    }
}

TEST_F(TraceWriterTest, HostileStringsStayValidJson) {
    const std::string fffd = "\xEF\xBF\xBD";
    const struct {
        std::string raw, read;
    } cases[] = {
            {"q\"b\\s/", "q\"b\\s/"},
            {std::string("nul\0\x01\x1f\n\t\x7f", 10), std::string("nul\0\x01\x1f\n\t\x7f", 10)},
            {"é€😀", "é€😀"},
            {"\xff|\xc0\x80|\xed\xa0\x80|\xf4\x90\x80\x80|\xe2\x82",
             fffd + "|" + fffd + fffd + "|" + fffd + fffd + fffd + "|" + fffd + fffd + fffd + fffd +
                     "|" + fffd + fffd},
    };
    std::string error;
    auto trace = TraceWriter::open(path, &error);
    ASSERT_TRUE(trace) << error;
    for (const auto& c : cases) trace->instant(c.raw, c.raw, {{c.raw, c.raw}});
    const Json::Value e = events(false);
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Json::Value& event = e[static_cast<Json::ArrayIndex>(i + 2)];
        EXPECT_EQ(event["cat"].asString(), cases[i].read) << i;
        EXPECT_EQ(event["args"][cases[i].read].asString(), cases[i].read) << i;
    }
}

TEST_F(TraceWriterTest, ThreadsWriteWholeLines) {
    std::string error;
    auto trace = TraceWriter::open(path, &error);
    ASSERT_TRUE(trace) << error;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i) {
                trace->begin(t * 1000 + i, "control", {});
                trace->counter("r" + std::to_string(t), std::to_string(i));
                trace->end(t * 1000 + i, "expired");
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(events(false).size(), 2u + 4 * 100 * 3);
}

TEST_F(TraceWriterTest, AFullDiskStopsTracingWithOneLogLineAndWholeEvents) {
    std::string error;
    EXPECT_FALSE(TraceWriter::open("/nonexistent/dir/t.json", &error));
    EXPECT_NE(error.find("/nonexistent/dir/t.json"), std::string::npos);
    EXPECT_FALSE(TraceWriter::open("/dev/full", &error));

    auto trace = TraceWriter::open(path, &error);
    ASSERT_TRUE(trace) << error;
    // The file size limit stands in for a full disk: writes past it fail with EFBIG.
    signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    rlimit small = old;
    small.rlim_cur = 2000;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    paxtest::LogCapture log;
    for (int i = 0; i < 100; ++i) trace->counter("resource", std::to_string(i));
    trace.reset();
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(log.linesContaining("tracing stops").size(), 1u) << log.dump();
    const auto count = events(false).size();
    EXPECT_GT(count, 5u);
    EXPECT_LT(count, 100u);
}

// After every step, each resource's last counter (or marker, for a value that is no number)
// holds what the service has in force, and a resource without a value has no track.
TEST_F(TraceWriterTest, EachCounterEndsAtTheValueInForceAfterEveryStep) {
    VelaService::Options options;
    std::string error;
    options.trace = TraceWriter::open(path, &error);
    ASSERT_TRUE(options.trace) << error;
    service = ::ndk::SharedRefBase::make<VelaService>(std::move(options));
    auto expectCountersMatch = [&](const std::string& step) {
        std::map<std::string, std::string> last;
        for (const Json::Value& e : events(false)) {
            if (e["cat"] != "resource") continue;
            const Json::Value& v = e["args"]["value"];
            last[e["name"].asString()] = v.isString() ? v.asString() : std::to_string(v.asInt64());
        }
        for (const ResourceInfo& info : service->config().resources()) {
            const auto now = service->valueOf(info.key);
            const auto it = last.find(info.name);
            EXPECT_EQ(it == last.end() ? std::nullopt : std::optional(it->second), now)
                    << step << ": " << info.name;
        }
    };

    const int32_t launch = event(kLaunch);
    expectCountersMatch("launch");
    const int32_t open = event(11);
    const int32_t preview = event(17);
    expectCountersMatch("camera open and preview over the launch");
    release(launch);
    expectCountersMatch("the launch, winner of the big floor, released");
    const int32_t held = control({item(kLittleFloor, "2000000"), item(0x01011040, "on")});
    expectCountersMatch("a floor and a text value");
    release(held);
    // Looked at only once it has expired: a check in between would race the expiry thread.
    control({item(kLittleFloor, "2000000")}, 20);
    ASSERT_TRUE(paxtest::waitUntil([&] { return service->stats().expired == 1; }));
    expectCountersMatch("expiry");
    rule(7, 1, {item(kLittleLoad, "33")});
    expectCountersMatch("rule on");
    rule(7, 0);
    release(open);
    release(preview);
    expectCountersMatch("all gone");
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
