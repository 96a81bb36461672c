// What the queries send, and how they turn the service's answer into the caller's output.
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>

#include "PaxTestFixture.h"

namespace paxtest {
namespace {

using Resources = std::vector<PaxClient::Resource>;
using Items = std::vector<Item>;

constexpr uint32_t kPowerOpcode = 0x01011670;

VelaRequestData valued(int32_t id, std::optional<std::string> value) {
    return makeItem(id, 0, std::move(value));
}

VelaRequestData record(std::optional<std::string> text) {
    return makeItem(0, 0, std::nullopt, std::nullopt, std::move(text));
}

using PaxQuery = PaxTest;

TEST_F(PaxQuery, HistoryJoinsRecordsWithNoneForMissingOnes) {
    fake->enqueue("resStateRequest",
                  Answer::items({record("a"), record(std::nullopt), record("")}));
    std::string out = "old";
    EXPECT_EQ(PaxGetHistory(out), 0);
    EXPECT_EQ(out, "start:a;none;;end");
    EXPECT_EQ(fake->lastParcel().requestType, 11);
    EXPECT_TRUE(fake->lastParcel().requestDatas.empty());
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "pax client PaxGetHistory"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "pax client hal PaxGetHistory"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "get history successful: start:a;none;;end"));

    fake->enqueue("resStateRequest", Answer::items({record(std::nullopt)}));
    EXPECT_EQ(PaxGetHistory(out), 0);
    EXPECT_EQ(out, "start:none;end");
}

TEST_F(PaxQuery, HistoryFailuresLeaveTheOutputAlone) {
    std::string out = "old";
    fake->enqueue("resStateRequest", Answer::items({}));
    EXPECT_EQ(PaxGetHistory(out), -1);
    EXPECT_TRUE(paxConnected());

    fake->enqueue("resStateRequest", Answer::exception(EX_SECURITY));
    EXPECT_EQ(PaxGetHistory(out), -1);
    EXPECT_FALSE(paxConnected());
    EXPECT_TRUE(
            logged(ANDROID_LOG_ERROR, "PaxGetHistory() failed : vela HAL service not available"));
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_ERROR,
                        "failed to get history or return vector empty, data vector size 0"),
              2u)
            << log.dump();
    EXPECT_EQ(out, "old");
}

TEST_F(PaxQuery, StateRequestFillsMatchedResourcesFromTheFirstAnswer) {
    fake->enqueue("resStateRequest",
                  Answer::items({valued(0xA, "1"), valued(0xC, "3"), valued(0xA, "9"),
                                 valued(static_cast<int32_t>(0x80000010u), "hi"),
                                 valued(0xD, std::nullopt)}));
    Resources resources{
            {0xA, std::nullopt}, {0xB, "keep"}, {0xA, "old"}, {0x80000010u, ""}, {0xD, "stays"}};
    EXPECT_EQ(PaxMutiResStateRequest(resources), 4);
    EXPECT_EQ(resources,
              (Resources{
                      {0xA, "1"}, {0xB, "keep"}, {0xA, "1"}, {0x80000010u, "hi"}, {0xD, "stays"}}));
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO, "not match any opcode in paxcore"), 1u);
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "get resource value, opcode 0x0000000a, value 1"));
    EXPECT_TRUE(logged(ANDROID_LOG_DEBUG, "get resource value, opcode 0x80000010, value hi"));

    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 0);
    EXPECT_EQ(itemsOf(parcel.requestDatas), (Items{{0xA, 0},
                                                   {0xB, 0, "keep"},
                                                   {0xA, 0, "old"},
                                                   {static_cast<int32_t>(0x80000010u), 0, ""},
                                                   {0xD, 0, "stays"}}));
}

TEST_F(PaxQuery, StateRequestRejectsEmptyInputAndEmptyAnswer) {
    Resources empty;
    EXPECT_EQ(PaxMutiResStateRequest(empty), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "input resource is empty, return"));
    EXPECT_EQ(fake->callCount("resStateRequest"), 0u);

    fake->enqueue("resStateRequest", Answer::items({}));
    Resources one{{1, "x"}};
    EXPECT_EQ(PaxMutiResStateRequest(one), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "failed to get resource value"));
    EXPECT_EQ(one, (Resources{{1, "x"}}));

    fake->enqueue("resStateRequest", Answer::transactionError(STATUS_BAD_VALUE));
    EXPECT_EQ(PaxMutiResStateRequest(one), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "PaxMutiResStateRequest() failed : vela HAL service not available"));
}

TEST_F(PaxQuery, SingleStateRequestWritesOnlyAnAnsweredValue) {
    std::string out = "before";
    fake->enqueue("resStateRequest", Answer::items({valued(0x55, "12"), valued(0x66, "x")}));
    PaxResStateRequest(0x77, out);
    EXPECT_EQ(out, "before");
    EXPECT_EQ(itemsOf(fake->lastParcel().requestDatas), (Items{{0x77, 0, ""}}));

    fake->enqueue("resStateRequest", Answer::items({valued(0x55, std::string("12\0 34", 6))}));
    PaxResStateRequest(0x55, out);
    EXPECT_EQ(out, "12");

    // Answered but without a value: the value sent (empty) comes back.
    fake->enqueue("resStateRequest", Answer::items({valued(0x55, std::nullopt)}));
    PaxResStateRequest(0x55, out);
    EXPECT_EQ(out, "");
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_INFO, "PaxResStateRequest enter"), 3u);
}

TEST_F(PaxQuery, PowerOpcodeIsAnsweredByThePowerQuery) {
    fake->enqueue("resStateRequest", Answer::items({valued(kPowerOpcode, "123")}));
    std::string out;
    PaxResStateRequest(kPowerOpcode, out);
    EXPECT_EQ(out, "123");
    ASSERT_EQ(fake->callCount("resStateRequest"), 1u);
    EXPECT_EQ(fake->lastParcel().requestType, 15);
    EXPECT_EQ(log.count("PaxResStateRequest enter"), 0u);
    EXPECT_EQ(log.count("PaxMutiResStateRequest enter"), 0u);
}

TEST_F(PaxQuery, PowerQuerySendsItsFixedRequest) {
    fake->enqueue("resStateRequest", Answer::items({valued(1, " 42 apples")}));
    EXPECT_EQ(PaxGetPowerConsis(), 42);
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 15);
    EXPECT_EQ(parcel.packageName, "none");
    const int32_t op = static_cast<int32_t>(kPowerOpcode);
    EXPECT_EQ(itemsOf(parcel.requestDatas),
              (Items{{op, 0, "0 1 35"}, {op, 0, "1 1 35"}, {op, 0, "2 1 35"}}));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "pax client PaxGetPowerConsis"));
}

// The power query reports unusable answers to the caller as the standard conversion errors.
TEST_F(PaxQuery, PowerQueryRaisesConversionErrors) {
    fake->enqueue("resStateRequest", Answer::items({valued(1, "watts")}));
    EXPECT_THROW(PaxGetPowerConsis(), std::invalid_argument);
    fake->enqueue("resStateRequest", Answer::items({valued(1, "99999999999")}));
    EXPECT_THROW(PaxGetPowerConsis(), std::out_of_range);
    fake->enqueue("resStateRequest", Answer::items({valued(1, std::nullopt)}));
    EXPECT_THROW(PaxGetPowerConsis(), std::bad_optional_access);
    fake->enqueue("resStateRequest", Answer::items({}));
    EXPECT_THROW(PaxGetPowerConsis(), std::invalid_argument);

    // A failed status is not a failure of its own here: the answer is simply missing, and the
    // connection is kept.
    fake->enqueue("resStateRequest", Answer::exception(EX_ILLEGAL_STATE));
    EXPECT_THROW(PaxGetPowerConsis(), std::invalid_argument);
    EXPECT_TRUE(paxConnected());
    EXPECT_EQ(log.linesContaining("failed : vela HAL").size(), 0u);

    // Nothing is held after an error: the next query goes through.
    fake->enqueue("resStateRequest", Answer::items({valued(1, "-8")}));
    EXPECT_EQ(PaxGetPowerConsis(), -8);
}

TEST_F(PaxQuery, PowerModeStatusConvertsTheFirstValue) {
    fake->enqueue("resStateRequest", Answer::items({valued(2, "3"), valued(2, "4")}));
    EXPECT_EQ(PaxGetPMStatus(2), 3);
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 13);
    EXPECT_EQ(itemsOf(parcel.requestDatas), (Items{{2, 0}}));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "pax client PaxGetPMStatus"));
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "pax client hal PaxGetPMStatus"));

    fake->enqueue("resStateRequest", Answer::items({}));
    EXPECT_EQ(PaxGetPMStatus(5), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "failed to get power mode status, mode 5, data vector size 0"));

    fake->enqueue("resStateRequest", Answer::serviceSpecific(1));
    EXPECT_EQ(PaxGetPMStatus(6), -1);
    EXPECT_TRUE(
            logged(ANDROID_LOG_ERROR, "PaxGetPMStatus() failed : vela HAL service not available"));
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "failed to get power mode status, mode 6, data vector size 0"));
    EXPECT_FALSE(paxConnected());
}

TEST_F(PaxQuery, PowerModeStatusReportsBadNumbersOnStandardOutput) {
    fake->enqueue("resStateRequest", Answer::items({valued(2, "on")}));
    testing::internal::CaptureStdout();
    EXPECT_EQ(PaxGetPMStatus(2), -1);
    std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed.rfind("Invalid argument exception: ", 0), 0u) << printed;
    EXPECT_EQ(printed.back(), '\n');

    fake->enqueue("resStateRequest", Answer::items({valued(2, "-99999999999")}));
    testing::internal::CaptureStdout();
    EXPECT_EQ(PaxGetPMStatus(2), -1);
    printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed.rfind("Out of range exception: ", 0), 0u) << printed;

    fake->enqueue("resStateRequest", Answer::items({valued(2, std::nullopt)}));
    EXPECT_THROW(PaxGetPMStatus(2), std::bad_optional_access);
    EXPECT_TRUE(paxConnected());
}

TEST_F(PaxQuery, DatasetIsAppendedToWhatTheCallerHas) {
    fake->enqueue("resStateRequest",
                  Answer::items({valued(5, "a"), valued(static_cast<int32_t>(0x80000006u), "")}));
    Resources out{{1, "pre"}};
    EXPECT_EQ(Pax_fetch_dataset(out), 3);
    EXPECT_EQ(out, (Resources{{1, "pre"}, {5, "a"}, {0x80000006u, ""}}));
    VelaRequestParcel parcel = fake->lastParcel();
    EXPECT_EQ(parcel.requestType, 16);
    EXPECT_TRUE(parcel.requestDatas.empty());
    EXPECT_TRUE(logged(ANDROID_LOG_INFO, "Pax_fetch_dataset enter"));

    fake->enqueue("resStateRequest", Answer::items({}));
    EXPECT_EQ(Pax_fetch_dataset(out), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR, "failed to get resource value"));

    fake->enqueue("resStateRequest", Answer::items({valued(5, std::nullopt)}));
    EXPECT_THROW(Pax_fetch_dataset(out), std::bad_optional_access);

    fake->enqueue("resStateRequest", Answer::exception(EX_UNSUPPORTED_OPERATION));
    EXPECT_EQ(Pax_fetch_dataset(out), -1);
    EXPECT_TRUE(logged(ANDROID_LOG_ERROR,
                       "Pax_fetch_dataset() failed : vela HAL service not available"));
}

}  // namespace
}  // namespace paxtest
