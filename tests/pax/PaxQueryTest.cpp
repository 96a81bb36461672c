// What the queries send, and how they turn the service's answer into the caller's output.
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "PaxTestFixture.h"
#include "vela_protocol.h"

namespace paxtest {
namespace {

constexpr uint32_t kPowerOpcode = ::aidl::vendor::norvo::hardware::vela::protocol::kPowerUseOpcode;

Answer values(std::vector<std::pair<uint32_t, std::optional<std::string>>> pairs) {
    std::vector<VelaRequestData> items;
    for (auto& [id, value] : pairs) items.push_back(makeItem(static_cast<int32_t>(id), 0, value));
    return Answer::items(std::move(items));
}

Answer records(std::vector<std::optional<std::string>> texts) {
    std::vector<VelaRequestData> items;
    for (auto& text : texts) items.push_back(makeItem(0, 0, {}, {}, text));
    return Answer::items(std::move(items));
}

using PaxQuery = PaxTest;

TEST_F(PaxQuery, HistoryJoinsRecordsWithNoneForMissingOnes) {
    std::string out = "old";
    fake->enqueue("resStateRequest", records({std::nullopt}));
    EXPECT_EQ(PaxGetHistory(out), 0);
    EXPECT_EQ(out, "start:none;end");
    EXPECT_EQ(describe(fake->lastParcel()), "11 0 0 0 0 |");

    fake->enqueue("resStateRequest", records({"a", std::nullopt, ""}));
    EXPECT_EQ(PaxGetHistory(out), 0);
    EXPECT_EQ(out, "start:a;none;;end");
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "get history successful: start:a;none;;end"));

    fake->enqueue("resStateRequest", records({}));
    EXPECT_EQ(PaxGetHistory(out), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "failed to get history or return vector empty, data vector size 0"));
    EXPECT_EQ(out, "start:a;none;;end");
}

TEST_F(PaxQuery, StateRequestFillsMatchedResourcesFromTheFirstAnswer) {
    fake->enqueue(
            "resStateRequest",
            values({{0xA, "1"}, {0xC, "3"}, {0xA, "9"}, {0x80000010u, "hi"}, {0xD, std::nullopt}}));
    Resources resources{
            {0xA, std::nullopt}, {0xB, "keep"}, {0xA, "old"}, {0x80000010u, ""}, {0xD, "stays"}};
    EXPECT_EQ(PaxMutiResStateRequest(resources), 4);
    EXPECT_EQ(resources,
              (Resources{
                      {0xA, "1"}, {0xB, "keep"}, {0xA, "1"}, {0x80000010u, "hi"}, {0xD, "stays"}}));
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO, "not match any opcode in paxcore"), 1u);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "get resource value, opcode 0x80000010, value hi"));
    EXPECT_EQ(describe(fake->lastParcel()),
              "0 0 0 0 0 | 10/0/~ 11/0/keep 10/0/old -2147483632/0/ 13/0/stays");

    Resources empty;
    EXPECT_EQ(PaxMutiResStateRequest(empty), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "input resource is empty, return"));
    fake->enqueue("resStateRequest", values({}));
    EXPECT_EQ(PaxMutiResStateRequest(resources), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "failed to get resource value"));
    EXPECT_EQ(fake->callCount("resStateRequest"), 2u);
}

// The power opcode is answered by the power query, any other by the state request, which
// writes only an answered value.
TEST_F(PaxQuery, SingleStateRequestWritesOnlyAnAnsweredValue) {
    std::string out = "before";
    fake->enqueue("resStateRequest", values({{0x55, "12"}}));
    PaxResStateRequest(0x77, out);
    EXPECT_EQ(out, "before");
    EXPECT_EQ(describe(fake->lastParcel()), "0 0 0 0 0 | 119/0/");
    fake->enqueue("resStateRequest", values({{0x55, std::string("12\0 34", 6)}}));
    PaxResStateRequest(0x55, out);
    EXPECT_EQ(out, "12");

    fake->clearCalls();
    fake->enqueue("resStateRequest", values({{kPowerOpcode, " 123 mW"}}));
    PaxResStateRequest(kPowerOpcode, out);
    EXPECT_EQ(out, "123");
    ASSERT_EQ(fake->callCount("resStateRequest"), 1u);
    EXPECT_EQ(describe(fake->lastParcel()),
              "15 0 0 0 0 pkg:none | 16848496/0/0 1 35 16848496/0/1 1 35 16848496/0/2 1 35");
}

// Unusable power answers reach the caller as the standard conversion errors; a failed status
// counts only as a missing answer and keeps the connection.
TEST_F(PaxQuery, PowerQueriesRaiseOrPrintConversionErrors) {
    fake->enqueue("resStateRequest", values({{1, "watts"}}));
    EXPECT_THROW(PaxGetPowerConsis(), std::invalid_argument);
    fake->enqueue("resStateRequest", values({{1, "99999999999"}}));
    EXPECT_THROW(PaxGetPowerConsis(), std::out_of_range);
    fake->enqueue("resStateRequest", values({{1, std::nullopt}}));
    EXPECT_THROW(PaxGetPowerConsis(), std::bad_optional_access);
    fake->enqueue("resStateRequest", Answer::exception(EX_ILLEGAL_STATE));
    EXPECT_THROW(PaxGetPowerConsis(), std::invalid_argument);
    EXPECT_TRUE(paxConnected());
    fake->enqueue("resStateRequest", values({{1, "-8"}}));
    EXPECT_EQ(PaxGetPowerConsis(), -8);

    // The power-mode status catches them, printing them on standard output, but not the
    // missing value.
    fake->enqueue("resStateRequest", values({{2, "3"}, {2, "4"}}));
    EXPECT_EQ(PaxGetPMStatus(2), 3);
    EXPECT_EQ(describe(fake->lastParcel()), "13 0 0 0 0 | 2/0/~");

    const std::pair<const char*, const char*> bad[] = {
            {"on", "Invalid argument exception: "}, {"-99999999999", "Out of range exception: "}};
    for (auto [value, printed] : bad) {
        fake->enqueue("resStateRequest", values({{2, value}}));
        testing::internal::CaptureStdout();
        EXPECT_EQ(PaxGetPMStatus(2), -1);
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(out.rfind(printed, 0), 0u) << out;
        EXPECT_EQ(out.back(), '\n');
    }
    fake->enqueue("resStateRequest", values({{2, std::nullopt}}));
    EXPECT_THROW(PaxGetPMStatus(2), std::bad_optional_access);

    fake->enqueue("resStateRequest", Answer::serviceSpecific(1));
    EXPECT_EQ(PaxGetPMStatus(6), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "failed to get power mode status, mode 6, data vector size 0"));
    EXPECT_FALSE(paxConnected());
}

TEST_F(PaxQuery, DatasetIsAppendedToWhatTheCallerHas) {
    fake->enqueue("resStateRequest", values({{5, "a"}, {0x80000006u, ""}}));
    Resources out{{1, "pre"}};
    EXPECT_EQ(Pax_fetch_dataset(out), 3);
    EXPECT_EQ(out, (Resources{{1, "pre"}, {5, "a"}, {0x80000006u, ""}}));
    EXPECT_EQ(describe(fake->lastParcel()), "16 0 0 0 0 |");

    fake->enqueue("resStateRequest", values({}));
    EXPECT_EQ(Pax_fetch_dataset(out), -1);
    fake->enqueue("resStateRequest", values({{5, std::nullopt}}));
    EXPECT_THROW(Pax_fetch_dataset(out), std::bad_optional_access);
}

}  // namespace
}  // namespace paxtest
