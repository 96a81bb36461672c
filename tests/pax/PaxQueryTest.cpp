// What the queries send, and how they turn the service's answer into the caller's output.
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "PaxTestFixture.h"
#include "vela_protocol.h"

namespace paxtest {
namespace {

constexpr uint32_t kPowerOpcode = ::aidl::vendor::norvo::hardware::vela::protocol::kPowerUseOpcode;

Items values(std::vector<std::pair<uint32_t, std::optional<std::string>>> pairs) {
    Items items;
    for (auto& [id, value] : pairs) items.push_back(makeItem(static_cast<int32_t>(id), 0, value));
    return items;
}

Items records(std::vector<std::optional<std::string>> texts) {
    Items items;
    for (auto& text : texts) items.push_back(makeItem(0, 0, {}, {}, text));
    return items;
}

class PaxQuery : public PaxTest {
protected:
    // The answer of the next queries.
    template <typename Answer>
    void next(Answer answer) {
        ON_CALL(*fake, resStateRequest).WillByDefault(this->answer(std::move(answer)));
    }
};

TEST_F(PaxQuery, HistoryJoinsRecordsWithNoneForMissingOnes) {
    std::string out = "old";
    next(records({std::nullopt}));
    EXPECT_EQ(PaxGetHistory(out), 0);
    EXPECT_EQ(out, "start:none;end");
    EXPECT_EQ(describe(sent), "11 0 0 0 0");

    next(records({"a", std::nullopt, ""}));
    EXPECT_EQ(PaxGetHistory(out), 0);
    EXPECT_EQ(out, "start:a;none;;end");
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "get history successful: start:a;none;;end"));

    next(records({}));
    EXPECT_EQ(PaxGetHistory(out), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "failed to get history or return vector empty, data vector size 0"));
    EXPECT_EQ(out, "start:a;none;;end");
}

TEST_F(PaxQuery, StateRequestFillsMatchedResourcesFromTheFirstAnswer) {
    EXPECT_CALL(*fake, resStateRequest).Times(2);
    next(values({{0xA, "1"}, {0xC, "3"}, {0xA, "9"}, {0x80000010u, "hi"}, {0xD, std::nullopt}}));
    Resources resources{
            {0xA, std::nullopt}, {0xB, "keep"}, {0xA, "old"}, {0x80000010u, ""}, {0xD, "stays"}};
    EXPECT_EQ(PaxMutiResStateRequest(resources), 4);
    EXPECT_EQ(resources,
              (Resources{
                      {0xA, "1"}, {0xB, "keep"}, {0xA, "1"}, {0x80000010u, "hi"}, {0xD, "stays"}}));
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO, "not match any opcode in paxcore"), 1u);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "get resource value, opcode 0x80000010, value hi"));
    EXPECT_EQ(describe(sent), "0 0 0 0 0 | a | b =keep | a =old | 80000010 = | d =stays");

    Resources empty;
    EXPECT_EQ(PaxMutiResStateRequest(empty), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "input resource is empty, return"));
    next(values({}));
    EXPECT_EQ(PaxMutiResStateRequest(resources), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "failed to get resource value"));
}

// The power opcode is answered by the power query, any other by the state request, which
// writes only an answered value.
TEST_F(PaxQuery, SingleStateRequestWritesOnlyAnAnsweredValue) {
    std::string out = "before";
    next(values({{0x55, "12"}}));
    PaxResStateRequest(0x77, out);
    EXPECT_EQ(out, "before");
    EXPECT_EQ(describe(sent), "0 0 0 0 0 | 77 =");
    next(values({{0x55, std::string("12\0 34", 6)}}));
    PaxResStateRequest(0x55, out);
    EXPECT_EQ(out, "12");

    EXPECT_CALL(*fake, resStateRequest).WillOnce(answer(values({{kPowerOpcode, " 123 mW"}})));
    PaxResStateRequest(kPowerOpcode, out);
    EXPECT_EQ(out, "123");
    EXPECT_EQ(describe(sent),
              "15 0 0 0 0 pkg:none | 1011670 =0 1 35 | 1011670 =1 1 35 | 1011670 =2 1 35");
}

// Unusable power answers reach the caller as the standard conversion errors; a failed status
// counts only as a missing answer and keeps the connection.
TEST_F(PaxQuery, PowerQueriesRaiseOrPrintConversionErrors) {
    next(values({{1, "watts"}}));
    EXPECT_THROW(PaxGetPowerConsis(), std::invalid_argument);
    next(values({{1, "99999999999"}}));
    EXPECT_THROW(PaxGetPowerConsis(), std::out_of_range);
    next(values({{1, std::nullopt}}));
    EXPECT_THROW(PaxGetPowerConsis(), std::bad_optional_access);
    next(exception(EX_ILLEGAL_STATE));
    EXPECT_THROW(PaxGetPowerConsis(), std::invalid_argument);
    EXPECT_TRUE(paxConnected());
    next(values({{1, "-8"}}));
    EXPECT_EQ(PaxGetPowerConsis(), -8);

    // The power-mode status catches them, printing them on standard output, but not the
    // missing value.
    next(values({{2, "3"}, {2, "4"}}));
    EXPECT_EQ(PaxGetPMStatus(2), 3);
    EXPECT_EQ(describe(sent), "13 0 0 0 0 | 2");

    const std::pair<const char*, const char*> bad[] = {
            {"on", "Invalid argument exception: "}, {"-99999999999", "Out of range exception: "}};
    for (auto [value, printed] : bad) {
        next(values({{2, value}}));
        testing::internal::CaptureStdout();
        EXPECT_EQ(PaxGetPMStatus(2), -1);
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(out.rfind(printed, 0), 0u) << out;
        EXPECT_EQ(out.back(), '\n');
    }
    next(values({{2, std::nullopt}}));
    EXPECT_THROW(PaxGetPMStatus(2), std::bad_optional_access);

    next(serviceSpecific(1));
    EXPECT_EQ(PaxGetPMStatus(6), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "failed to get power mode status, mode 6, data vector size 0"));
    EXPECT_FALSE(paxConnected());
}

TEST_F(PaxQuery, DatasetIsAppendedToWhatTheCallerHas) {
    next(values({{5, "a"}, {0x80000006u, ""}}));
    Resources out{{1, "pre"}};
    EXPECT_EQ(Pax_fetch_dataset(out), 3);
    EXPECT_EQ(out, (Resources{{1, "pre"}, {5, "a"}, {0x80000006u, ""}}));
    EXPECT_EQ(describe(sent), "16 0 0 0 0");

    next(values({}));
    EXPECT_EQ(Pax_fetch_dataset(out), -1);
    next(values({{5, std::nullopt}}));
    EXPECT_THROW(Pax_fetch_dataset(out), std::bad_optional_access);
}

}  // namespace
}  // namespace paxtest
