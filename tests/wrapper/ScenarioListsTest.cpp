#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "PaxWrapper.h"

namespace PaxClient {
void PrintTo(const Resource& r, std::ostream* os) {
    *os << std::hex << "0x" << r.id << std::dec << "="
        << (r.value ? '"' + *r.value + '"' : "(absent)");
}
}  // namespace PaxClient

namespace {

using List = std::vector<PaxClient::Resource>;
using testing::ElementsAre;
using testing::IsEmpty;

PaxClient::Resource res(uint32_t id, std::string value) {
    return PaxClient::Resource{id, std::move(value)};
}

TEST(ScenarioListsTest, ResourceInfoAlwaysCarriesAValue) {
    EXPECT_EQ(PaxResourceInfo(0x01011040, ""), (PaxClient::Resource{0x01011040, std::string()}));
    EXPECT_TRUE(PaxResourceInfo(1, "").value.has_value());
}

TEST(ScenarioListsTest, TargetLoadPlainValuesTakeTheOpcodeOfTheirPosition) {
    EXPECT_THAT(getTargetLoadList(""), IsEmpty());
    EXPECT_THAT(getTargetLoadList("10,20,30"),
                ElementsAre(res(0x010108a0, "10"), res(0x010108b0, "20"), res(0x010108c0, "30")));
    // Positions count the pieces that split() keeps, so an empty element does not hold one.
    EXPECT_THAT(getTargetLoadList("10,,30"),
                ElementsAre(res(0x010108a0, "10"), res(0x010108b0, "30")));
    // There are three target loads; more elements are ignored, not read past the table.
    EXPECT_THAT(getTargetLoadList("1,2,3,4,5"),
                ElementsAre(res(0x010108a0, "1"), res(0x010108b0, "2"), res(0x010108c0, "3")));
}

TEST(ScenarioListsTest, TargetLoadPairsTakeTheTextAfterTheDash) {
    EXPECT_THAT(getTargetLoadList("a-5,b-6"),
                ElementsAre(res(0x010108a0, "5"), res(0x010108b0, "6")));
    // A pair without a dash keeps its position but yields nothing; a second dash ends the value.
    EXPECT_THAT(getTargetLoadList("a-5,7,c-9-x"),
                ElementsAre(res(0x010108a0, "5"), res(0x010108c0, "9")));
    EXPECT_THAT(getTargetLoadList("a-1,b-2,c-3,d-4"), testing::SizeIs(3));
    // A leading dash is a sign, not a pair: "-1" skips its position in a plain list.
    EXPECT_THAT(getTargetLoadList("10,-1,30"),
                ElementsAre(res(0x010108a0, "10"), res(0x010108c0, "30")));
    EXPECT_THAT(getTargetLoadList("-5,x-"), IsEmpty());
}

TEST(ScenarioListsTest, ColocationEntriesInOrder) {
    EXPECT_THAT(getColocationList("colocation:1,groupmigrate:95-85"),
                ElementsAre(res(0x01011040, "1"), res(0x01010fb0, "95"), res(0x01010fc0, "85")));
    EXPECT_THAT(getColocationList("groupmigrate:095-85,colocation:a:b,other:3"),
                ElementsAre(res(0x01010fb0, "95"), res(0x01010fc0, "85"), res(0x01011040, "a")));
    // A missing lower bound reads as 0 and still makes a valid band.
    EXPECT_THAT(getColocationList("groupmigrate:95-x"),
                ElementsAre(res(0x01010fb0, "95"), res(0x01010fc0, "0")));
}

TEST(ScenarioListsTest, ColocationDropsMalformedEntries) {
    for (const char* text :
         {"", "colocation", "colocation=1", "colocation:", ":1", " colocation:1", "Colocation:1",
          "groupmigrate:85-95", "groupmigrate:90-90", "groupmigrate:95", "groupmigrate:abc-5",
          "groupmigrate:99999999999-1", "groupmigrate:-", "unknown:1"}) {
        EXPECT_THAT(getColocationList(text), IsEmpty()) << text;
    }
}

TEST(ScenarioListsTest, GameAdaptationGroupsSelectTheirTables) {
    EXPECT_THAT(getGameAdpList(""), IsEmpty());
    EXPECT_THAT(getGameAdpList("1,2;3"), ElementsAre(res(0x01010b10, "1"), res(0x01010b20, "2")));
    EXPECT_THAT(getGameAdpList(" 1 ,\t2\n, 3,4,5;5,6;7,8;9,10;11,12"),
                ElementsAre(res(0x01010b10, "1"), res(0x01010b20, "2"), res(0x01010b30, "3"),
                            res(0x01020070, "4"),  // the fifth value has no opcode
                            res(0x01010b90, "5"), res(0x01010ba0, "6"),  //
                            res(0x01010010, "7"), res(0x01010020, "8"),  //
                            res(0x010100a0, "9"), res(0x010100b0, "10")));
    // A skipped group still holds its table; a blank value is kept, trimmed to nothing.
    EXPECT_THAT(getGameAdpList("1;2,3;  ,x"),
                ElementsAre(res(0x01010b90, "2"), res(0x01010ba0, "3"), res(0x01010010, ""),
                            res(0x01010020, "x")));
}

TEST(ScenarioListsTest, GameUpgradeListHoldsLevelAndText) {
    EXPECT_THAT(getGameUpgradeList(1, 2, 0, 4, 5, ""), IsEmpty());
    EXPECT_THAT(getGameUpgradeList(0, 0, -3, 0, 0, ""), IsEmpty());
    EXPECT_THAT(getGameUpgradeList(0, 0, 0, 0, 0, "com.game"),
                ElementsAre(res(0x010115b0, "com.game")));
    const List expected{res(0x01011040, "2"), res(0x010115b0, "com.game")};
    EXPECT_EQ(getGameUpgradeList(0, 0, 2, 0, 0, "com.game"), expected);
    EXPECT_EQ(getGameUpgradeList(-1, 7, 2, 9, -4, "com.game"), expected);
}

}  // namespace
