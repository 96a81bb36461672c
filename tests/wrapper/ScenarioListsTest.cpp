#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "PaxWrapper.h"

namespace {

// "opcode=value" per item, opcode in hex, "~" for an absent value.
std::string text(const std::vector<PaxClient::Resource>& list) {
    std::string out;
    char id[16];
    for (const PaxClient::Resource& r : list) {
        snprintf(id, sizeof id, "%x=", r.id);
        out += (out.empty() ? "" : " ") + std::string(id) + r.value.value_or("~");
    }
    return out;
}

using Cases = std::vector<std::pair<const char*, const char*>>;

TEST(ScenarioListsTest, TargetLoadTakesPlainValuesOrTheTextAfterADashByPosition) {
    const Cases cases = {
            {"", ""},
            {"10,20,30", "10108a0=10 10108b0=20 10108c0=30"},
            // Positions count the pieces that split() keeps, so an empty element holds none.
            {"10,,30", "10108a0=10 10108b0=30"},
            // There are three target loads; more elements are ignored, not read past the table.
            {"1,2,3,4,5", "10108a0=1 10108b0=2 10108c0=3"},
            {"a-5,b-6", "10108a0=5 10108b0=6"},
            // A pair without a dash keeps its position but yields nothing; a second dash ends
            // the value.
            {"a-5,7,c-9-x", "10108a0=5 10108c0=9"},
            {"a-1,b-2,c-3,d-4", "10108a0=1 10108b0=2 10108c0=3"},
            // A leading dash is a sign, not a pair: "-1" skips its position in a plain list.
            {"10,-1,30", "10108a0=10 10108c0=30"},
            {"-5,x-", ""}};
    for (auto [in, out] : cases) EXPECT_EQ(text(getTargetLoadList(in)), out) << in;
}

TEST(ScenarioListsTest, ColocationKeepsWellFormedEntriesInOrder) {
    const Cases cases = {
            {"colocation:1,groupmigrate:95-85", "1011040=1 1010fb0=95 1010fc0=85"},
            {"groupmigrate:095-85,colocation:a:b,other:3", "1010fb0=95 1010fc0=85 1011040=a"},
            // A missing lower bound reads as 0 and still makes a valid band.
            {"groupmigrate:95-x", "1010fb0=95 1010fc0=0"}};
    for (auto [in, out] : cases) EXPECT_EQ(text(getColocationList(in)), out) << in;
    for (const char* in :
         {"", "colocation", "colocation=1", "colocation:", ":1", " colocation:1", "Colocation:1",
          "groupmigrate:85-95", "groupmigrate:90-90", "groupmigrate:95", "groupmigrate:abc-5",
          "groupmigrate:99999999999-1", "groupmigrate:-", "unknown:1"}) {
        EXPECT_EQ(text(getColocationList(in)), "") << in;
    }
}

TEST(ScenarioListsTest, GameListsSelectTheirTables) {
    const Cases cases = {
            {"", ""},
            {"1,2;3", "1010b10=1 1010b20=2"},
            // The fifth value of the first group has no opcode.
            {" 1 ,\t2\n, 3,4,5;5,6;7,8;9,10;11,12",
             "1010b10=1 1010b20=2 1010b30=3 1020070=4 1010b90=5 1010ba0=6 1010010=7 1010020=8 "
             "10100a0=9 10100b0=10"},
            // A skipped group still holds its table; a blank value is kept, trimmed to nothing.
            {"1;2,3;  ,x", "1010b90=2 1010ba0=3 1010010= 1010020=x"}};
    for (auto [in, out] : cases) EXPECT_EQ(text(getGameAdpList(in)), out) << in;

    EXPECT_EQ(text(getGameUpgradeList(1, 2, 0, 4, 5, "")), "");
    EXPECT_EQ(text(getGameUpgradeList(0, 0, -3, 0, 0, "")), "");
    EXPECT_EQ(text(getGameUpgradeList(0, 0, 0, 0, 0, "com.game")), "10115b0=com.game");
    EXPECT_EQ(text(getGameUpgradeList(-1, 7, 2, 9, -4, "com.game")), "1011040=2 10115b0=com.game");
    // A resource made from a value always carries one.
    EXPECT_EQ(text({PaxResourceInfo(0x01011040, "")}), "1011040=");
}

}  // namespace
