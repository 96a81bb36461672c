// Path requests: the length check and what the answers add to the caller's containers.
#include <map>

#include "HalclientFixture.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using paxtest::Answer;
using paxtest::makeItem;

TEST_F(HalclientTest, PathAndValueListsMustBeEquallyLong) {
    EXPECT_EQ(vela_resctl_request_by_path(1, 2, {"a", "b"}, {"1"}, 3, 4, 5), -1);
    EXPECT_TRUE(error("vela_resctl_request ERROR: size unmatched for paths and value "));
    EXPECT_EQ(vela_resctl_request_with_callback_by_path(1, 2, {"a"}, {}, 3, 4, 5, byPath), -1);
    EXPECT_TRUE(error("vela client vela_resctl_request ERROR: size unmatched for id and value "));
    EXPECT_EQ(fake->callCount(), 0u);
    fake->enqueue("resCtlRequest", Answer::ok(17));
    EXPECT_EQ(vela_resctl_request_by_path(1, 2, {}, {}, 3, 4, 5), 17);
}

TEST_F(HalclientTest, StateAnswersAreAppended) {
    std::vector<std::string> out{"x", "y"};
    std::map<std::string, std::string> outMap{{"a", "old"}, {"z", "0"}};
    fake->setDefault("resStateRequest", Answer::items({}));
    EXPECT_EQ(vela_res_state_request_by_path({"a"}, {}, 0, out), -1);
    EXPECT_EQ(vela_res_state_request_map_by_path({{"a", ""}}, 0, outMap), -1);

    // The list form takes every item's value (empty when absent); the map form only items
    // with both a path and a value.
    fake->setDefault("resStateRequest",
                     Answer::items({makeItem(0, 0, "1", "a"), makeItem(0, 0, {}, "b"),
                                    makeItem(0, 0, "3"), makeItem(0, 0, "4", "d")}));
    EXPECT_EQ(vela_res_state_request_by_path({"a", "b", "c", "d"}, {}, 0, out), 6);
    EXPECT_EQ(out, (std::vector<std::string>{"x", "y", "1", "", "3", "4"}));
    EXPECT_TRUE(info("vela client vela_res_state_request size 6"));
    EXPECT_EQ(vela_res_state_request_map_by_path({{"a", ""}}, 0, outMap), 3);
    EXPECT_EQ(outMap, (std::map<std::string, std::string>{{"a", "1"}, {"d", "4"}, {"z", "0"}}));
    EXPECT_TRUE(error("res_Path: a, res_Value:1"));
    EXPECT_EQ(log.linesContaining("res_Path").size(), 2u);
    EXPECT_TRUE(info("vela client vela_res_state_request_map size 3"));
}

}  // namespace
}  // namespace halclienttest
