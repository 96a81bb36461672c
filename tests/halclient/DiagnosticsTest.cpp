// Diagnostic commands and service properties.
#include "HalclientFixture.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using paxtest::Answer;

TEST_F(HalclientTest, EveryCommandSendsItsCodeAndMapsTheAnswer) {
    struct Command {
        const char* name;
        int (*run)();
        int32_t code;
    };
    // The service knows the commands by these codes; 9 is unused.
    const std::vector<Command> commands = {
            {"velaDumpToDoQueue", velaDumpToDoQueue, 0},
            {"velaDumpRunMap", velaDumpRunMap, 1},
            {"velaDumpActiveResMap", velaDumpActiveResMap, 2},
            {"velaDumpResRequest", velaDumpResRequest, 3},
            {"velaDumpResInfo", velaDumpResInfo, 4},
            {"velaDumpSAInfo", velaDumpSAInfo, 5},
            {"velaDumpPidFdList", velaDumpPidFdList, 6},
            {"velaDumpPidfdMonitorMap", velaDumpPidfdMonitorMap, 7},
            {"velaDumpResRecordList", velaDumpResRecordList, 8},
            {"velaHistoryRequestRecordOn", velaHistoryRequestRecordOn, 10},
            {"velaHistoryRequestRecordOff", velaHistoryRequestRecordOff, 11},
    };
    for (const Command& c : commands) {
        SCOPED_TRACE(c.name);
        fake->enqueue("resCtlRequest", Answer::ok(0));
        EXPECT_EQ(c.run(), -1);
        EXPECT_TRUE(info(std::string("vela client ") + c.name));
        const paxtest::VelaRequestParcel parcel = fake->lastParcel();
        EXPECT_EQ(parcel.requestType, 5);
        EXPECT_EQ(parcel.param4, 1);
        ASSERT_EQ(parcel.requestDatas.size(), 1u);
        EXPECT_EQ(parcel.requestDatas[0].id, c.code);
        EXPECT_FALSE(parcel.paths.has_value());

        fake->enqueue("resCtlRequest", Answer::ok(2));
        EXPECT_EQ(c.run(), 0);
        fake->enqueue("resCtlRequest", Answer::ok(-3));
        EXPECT_EQ(c.run(), -1);
    }
}

TEST_F(HalclientTest, PropertiesTravelBothWays) {
    const std::string longest(255, 'p');
    fake->enqueue("propertyGet", Answer::property(longest));
    char* value = velaPropertyGet("vendor.key");
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(std::string(value), longest);
    delete[] value;
    EXPECT_EQ(fake->lastCall("propertyGet").key, "vendor.key");
    EXPECT_TRUE(info("velaPropertyGet " + longest + " "));

    fake->enqueue("propertySet", Answer::ok(6));
    EXPECT_EQ(velaPropertySet("vendor.key", "v"), 6);
    EXPECT_EQ(fake->lastCall("propertySet").value, "v");
}

// An answer that does not fit the caller's buffer stops the process rather than being cut.
// Everything happens in the statement, so that the child that dies starts its own service.
TEST(HalclientPropertyDeathTest, AnswerOf256CharactersAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                paxtest::ServiceHarness service;
                auto fake = service.startFake();
                fake->setDefault("propertyGet", Answer::property(std::string(256, 'p')));
                delete[] velaPropertyGet("vendor.key");
            },
            "answer of 256 characters does not fit");
}

}  // namespace
}  // namespace halclienttest
