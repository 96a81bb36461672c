// The service's tables as dumpsys answers them, read back from the descriptor the way an asker
// reads them, and the diagnostic dumps that write the same tables to the log.
#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "ServiceFixture.h"

namespace aidl::vendor::norvo::hardware::vela::impl {
namespace {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

constexpr uint32_t kPrimeCeiling = 0x010100c0;  // cpu.prime.freq_max, arbitration min

class DumpsysTablesTest : public VelaServiceTest {
protected:
    Json::Value dumpsysJson(std::vector<const char*> args) {
        args.insert(args.begin(), "--json");
        const Answer answer = dumpsys(args);
        Json::Value json;
        std::string errors;
        std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        EXPECT_TRUE(reader->parse(answer.text.data(), answer.text.data() + answer.text.size(),
                                  &json, &errors))
                << errors << answer.text;
        return json;
    }
};

TEST_F(DumpsysTablesTest, ResourcesShowEveryClaimWithTheWinnerMarkedOrTheDefault) {
    const int32_t low = control({item(kPrimeCeiling, "1500000")}, 60'000);
    const int32_t high = control({item(kPrimeCeiling, "2000000")});
    const std::string text = dumpsys({"resources"}).text;
    const std::string lo = std::to_string(low), hi = std::to_string(high);
    EXPECT_NE(text.find("  0x010100c0 cpu.prime.freq_max = 1500000 (min, 2 claims)\n"
                        "    * request " +
                        lo +
                        " = 1500000\n"
                        "      request " +
                        hi + " = 2000000\n"),
              std::string::npos)
            << text;
    EXPECT_NE(text.find("0x01010b30 cpu.prime.cores_min = 0 (max, default)\n"), std::string::npos)
            << text;

    const Json::Value rows = dumpsysJson({"resources"})["resources"];
    ASSERT_TRUE(rows.isArray());
    bool seen = false;
    for (const Json::Value& row : rows) {
        if (row["id"].asString() != "0x010100c0") continue;
        seen = true;
        EXPECT_EQ(row["name"].asString(), "cpu.prime.freq_max");
        EXPECT_EQ(row["holder"].asString(), "request " + lo);
        ASSERT_EQ(row["claims"].size(), 2u);
        EXPECT_TRUE(row["claims"][0]["winner"].asBool());
        EXPECT_FALSE(row["claims"][1]["winner"].asBool());
    }
    EXPECT_TRUE(seen);
    // Once both go the default shows again, with no holder.
    release(low);
    release(high);
    EXPECT_NE(dumpsys({"resources"}).text.find("cpu.prime.freq_max = 3187200 (min, default)"),
              std::string::npos);
}

TEST_F(DumpsysTablesTest, RequestsShowTimeLeftAndWhatEachClaims) {
    const int32_t timed = event(kLaunch, 60'000);
    const int32_t open = control({item(kLittleLoad, "90"), item(0, "1", kUclamp)});
    const std::string text = dumpsys({"requests"}).text;
    EXPECT_NE(text.find("requests (2):\n"), std::string::npos) << text;
    EXPECT_NE(text.find("handle " + std::to_string(timed) + " event 0 (ACTION_LAUNCH) pkg none"),
              std::string::npos)
            << text;
    EXPECT_NE(text.find(" ms left, 6 resources\n"), std::string::npos) << text;
    EXPECT_NE(text.find("handle " + std::to_string(open) + " control pkg none identity none pid " +
                        std::to_string(getpid()) +
                        ", until released, 2 resources\n"
                        "    0x010108a0 sched.little.target_load = 90\n"
                        "    " +
                        std::string(kUclamp) + " top-app uclamp min = 1\n"),
              std::string::npos)
            << text;

    const Json::Value rows = dumpsysJson({"requests"})["requests"];
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0]["action"].asString(), "ACTION_LAUNCH");
    EXPECT_GT(rows[0]["ms_left"].asInt64(), 0);
    EXPECT_TRUE(rows[1]["ms_left"].isNull());
    EXPECT_EQ(rows[1]["resources"].asUInt64(), 2u);
    EXPECT_EQ(rows[1]["claims"][1]["path"].asString(), kUclamp);
}

TEST_F(DumpsysTablesTest, TablesAreChosenByNameAndHistoryOnlyWhileRecording) {
    // With no table named every table shows but the history, which shows while recording.
    EXPECT_EQ(dumpsys({}).text.find("history ("), std::string::npos);
    diagnostic(kHistoryOn);
    EXPECT_NE(dumpsys({}).text.find("history (0 records, recording on):"), std::string::npos);
    // The tools' tables show only when named.
    EXPECT_EQ(dumpsys({}).text.find("why ("), std::string::npos);
    EXPECT_EQ(dumpsys({}).text.find("declared ("), std::string::npos);

    const Json::Value json = dumpsysJson({"rules", "properties"});
    EXPECT_EQ(json.getMemberNames(), (std::vector<std::string>{"properties", "rules"}));
    EXPECT_TRUE(json["properties"].isObject());

    const Answer unknown = dumpsys({"resources", "claims"});
    EXPECT_EQ(unknown.status, STATUS_BAD_VALUE);
    EXPECT_EQ(unknown.text,
              "dumpsys: unknown table 'claims'; tables: resources requests listeners rules "
              "history properties refusals why declared (and --json, -h)\n");
    const Answer help = dumpsys({"-h"});
    EXPECT_EQ(help.status, STATUS_OK);
    EXPECT_NE(help.text.find("  listeners   resource and thermal listeners\n"), std::string::npos);
}

// The log's dumps of the same things are the very lines dumpsys gives, so that the two never
// tell a reader different stories; the dumps dumpsys has no table for keep their own.
TEST_F(DumpsysTablesTest, LogDumpsWriteTheSameTablesAsDumpsys) {
    paxtest::LogCapture log;
    const int32_t handle = event(kLaunch, 60'000);
    rule(7, 1, {item(kLittleLoad, "33")});
    for (int32_t code = kDumpToDoQueue; code <= kDumpRecords; ++code) {
        EXPECT_EQ(diagnostic(code), kResultDone) << code;
    }
    const std::string tables = dumpsys({"resources", "requests", "listeners", "rules"}).text;
    size_t start = 0;
    for (size_t end; (end = tables.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line = tables.substr(start, end - start);
        if (line.find(" ms left") != std::string::npos) continue;  // a moment later in the log
        EXPECT_TRUE(log.contains(kVelaLogTag, ANDROID_LOG_INFO, line)) << line << log.dump();
    }
    EXPECT_TRUE(log.contains(kVelaLogTag, ANDROID_LOG_INFO, "to-do queue:"));
    EXPECT_FALSE(log.linesContaining("  event 0 ACTION_LAUNCH: 6 resources - ").empty());
    EXPECT_FALSE(log.linesContaining("expire handle " + std::to_string(handle) + " in ").empty());
}

}  // namespace
}  // namespace aidl::vendor::norvo::hardware::vela::impl
