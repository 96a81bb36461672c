// Service properties.
#include "HalclientFixture.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using paxtest::Answer;

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
