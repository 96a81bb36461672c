// Path requests: the length check and what the answers add to the caller's containers.
#include <map>

#include "HalclientFixture.h"
#include "VelaCallbackClient.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using paxtest::Answer;
using paxtest::makeItem;

TEST_F(HalclientTest, PathAndValueListsMustBeEquallyLong) {
    EXPECT_EQ(vela_resctl_request_by_path(1, 2, {"a", "b"}, {"1"}, 3, 4, 5), -1);
    EXPECT_TRUE(error("vela_resctl_request ERROR: size unmatched for paths and value "));
    EXPECT_EQ(vela_resctl_request_with_callback_by_path(1, 2, {"a"}, {}, 3, 4, 5,
                                                        std::make_shared<PathReceiver>()),
              -1);
    EXPECT_TRUE(error("vela client vela_resctl_request ERROR: size unmatched for id and value "));
    EXPECT_EQ(fake->callCount(), 0u);
    {
        std::lock_guard<std::mutex> lock(request_callback_mutex);
        EXPECT_TRUE(request_callbacks.empty());
    }
    fake->enqueue("resCtlRequest", Answer::ok(17));
    EXPECT_EQ(vela_resctl_request_by_path(1, 2, {}, {}, 3, 4, 5), 17);
}

TEST_F(HalclientTest, StateByPathAppendsOneValuePerAnsweredItem) {
    std::vector<std::string> out{"x", "y"};
    fake->enqueue("resStateRequest", Answer::items({}));
    EXPECT_EQ(vela_res_state_request_by_path({"a"}, {}, 0, out), -1);
    fake->enqueue("resStateRequest", Answer::items({makeItem(0, 0, "1", "a"),
                                                    makeItem(0, 0, {}, "b"), makeItem(0, 0, "3")}));
    EXPECT_EQ(vela_res_state_request_by_path({"a", "b", "c"}, {}, 0, out), 5);
    EXPECT_EQ(out, (std::vector<std::string>{"x", "y", "1", "", "3"}));
    EXPECT_TRUE(info("vela client vela_res_state_request size 5"));
}

TEST_F(HalclientTest, StateByMapStoresOnlyItemsWithPathAndValue) {
    std::map<std::string, std::string> out{{"a", "old"}, {"z", "0"}};
    fake->enqueue("resStateRequest", Answer::items({}));
    EXPECT_EQ(vela_res_state_request_map_by_path({{"a", ""}}, 0, out), -1);
    fake->enqueue("resStateRequest",
                  Answer::items({makeItem(0, 0, "1", "a"), makeItem(0, 0, "2"),
                                 makeItem(0, 0, {}, "c"), makeItem(0, 0, "4", "d")}));
    EXPECT_EQ(vela_res_state_request_map_by_path({{"a", ""}, {"d", ""}}, 0, out), 3);
    EXPECT_EQ(out, (std::map<std::string, std::string>{{"a", "1"}, {"d", "4"}, {"z", "0"}}));
    EXPECT_TRUE(error("res_Path: a, res_Value:1"));
    EXPECT_TRUE(error("res_Path: d, res_Value:4"));
    EXPECT_EQ(log.linesContaining("res_Path").size(), 2u);
    EXPECT_TRUE(info("vela client vela_res_state_request_map size 3"));
}

}  // namespace
}  // namespace halclienttest
