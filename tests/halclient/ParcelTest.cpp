// What each request puts on the wire, read back at the service after a real transaction.
#include <map>
#include <optional>

#include "HalclientFixture.h"

namespace halclienttest {
namespace {

using namespace velaHalclient;
using paxtest::Answer;
using paxtest::makeItem;
using paxtest::VelaRequestData;

struct Item {
    int32_t id;
    std::optional<std::string> value;
    std::optional<std::string> value2;
};

struct ParcelCase {
    const char* what;
    std::function<void()> call;
    int32_t type, param1;
    int64_t param2;
    int32_t param4, param6;
    bool optionFlag, marked, callback;
    std::vector<Item> items;
};

TEST_F(HalclientTest, EveryRequestBuildsItsParcel) {
    auto receiver = std::make_shared<Receiver>();
    auto byPath = std::make_shared<PathReceiver>();
    // The second opcode has its top bit set: it must arrive as the same 32 bits.
    const std::vector<Item> listItems{{0x010108a0, "1", {}}, {int32_t(0x80000001), "2", {}}};
    const std::vector<Item> abItems{{0, "1", "a"}, {0, "2", "b"}};
    auto list = [] { return ResourceList{{0x010108a0, "1"}, {0x80000001u, "2"}}; };
    std::vector<std::string> out;
    std::map<std::string, std::string> outMap;
    ResourceList reply;
    const std::vector<ParcelCase> cases = {
            {"(p2, list, p6)",
             [&] {
                 auto l = list();
                 velaResCtlRequest(5, l, 9);
             },
             1, -1, 5, -1, 9, false, false, false, listItems},
            {"(p2, list, p5, p6)",
             [&] {
                 auto l = list();
                 velaResCtlRequest(5, l, 1, 9);
             },
             1, -1, 5, -1, 9, true, false, false, listItems},
            {"(p2, list, p4, p5, p6)",
             [&] {
                 auto l = list();
                 velaResCtlRequest(5, l, 4, 0, 9);
             },
             1, -1, 5, 4, 9, false, false, false, listItems},
            {"(p1, p2, list, p6)",
             [&] {
                 auto l = list();
                 velaResCtlRequest(3, -1, l, 9);
             },
             1, 3, -1, -1, 9, false, false, false, listItems},
            {"(p1, p2, list, p5, p6)",
             [&] {
                 auto l = list();
                 velaResCtlRequest(3, 5, l, 7, 9);
             },
             1, 3, 5, -1, 9, true, false, false, listItems},
            {"full",
             [&] {
                 auto l = list();
                 velaResCtlRequest(3, 5, l, 4, -1, 9);
             },
             1, 3, 5, 4, 9, false, false, false, listItems},
            {"full with callback",
             [&] {
                 auto l = list();
                 velaResCtlRequest(3, 5, l, 4, 2, 9, receiver);
             },
             1, 3, 5, 4, 9, true, false, true, listItems},
            {"empty list",
             [&] {
                 ResourceList l;
                 velaResCtlRequest(5, l, 9);
             },
             1,
             -1,
             5,
             -1,
             9,
             false,
             false,
             false,
             {}},
            {"SA short",
             [&] { velaSACtlRequest(5, 7, 9); },
             2,
             -1,
             5,
             -1,
             9,
             false,
             false,
             false,
             {{7, {}, {}}}},
            {"SA full",
             [&] { velaSACtlRequest(1, 2, 7, 4, 1, 9); },
             2,
             1,
             2,
             4,
             9,
             true,
             false,
             false,
             {{7, {}, {}}}},
            {"SA with callback",
             [&] { velaSACtlRequest(1, 2, 7, 4, 0, 9, receiver); },
             2,
             1,
             2,
             4,
             9,
             false,
             false,
             true,
             {{7, {}, {}}}},
            {"thermal notify",
             [&] {
                 auto l = list();
                 velaThermalNotify(l, 9);
             },
             7, 0, 0, 0, 9, false, false, false, listItems},
            {"state",
             [&] {
                 auto l = list();
                 velaResStateRequest(l, 9, reply);
             },
             0, 0, 0, 0, 9, false, false, false, listItems},
            {"listening",
             [&] {
                 auto l = list();
                 velaResListeningRegister(l, 9, receiver);
             },
             0, 0, 0, 0, 9, false, false, false, listItems},
            {"by path",
             [&] {
                 vela_resctl_request_by_path(3, -2, {"a", "b"}, {"1", "2"}, 4, 1, 9);
             },
             1, 3, -2, 4, 9, true, true, false, abItems},
            {"by path with callback",
             [&] {
                 vela_resctl_request_with_callback_by_path(3, 5, {"a", "b"}, {"1", "2"}, 4, 0, 9,
                                                           byPath);
             },
             1, 3, 5, 4, 9, false, true, true, abItems},
            {"state by path",
             [&] {
                 vela_res_state_request_by_path({"a", "b"}, {"1", "2"}, 9, out);
             },
             0, 0, 0, 0, 9, false, true, false, abItems},
            {"state by path, values dropped",
             [&] {
                 vela_res_state_request_by_path({"a", "b"}, {"1"}, 9, out);
             },
             0,
             0,
             0,
             0,
             9,
             false,
             true,
             false,
             {{0, {}, "a"}, {0, {}, "b"}}},
            {"state by map",
             [&] {
                 vela_res_state_request_map_by_path({{"b", "2"}, {"a", "1"}}, 9, outMap);
             },
             0, 0, 0, 0, 9, false, true, false, abItems},
            {"listening by path",
             [&] {
                 vela_res_listening_register_by_path({"a", "b"}, 9, byPath);
             },
             0,
             0,
             0,
             0,
             9,
             false,
             true,
             false,
             {{0, {}, "a"}, {0, {}, "b"}}},
            {"listening by map",
             [&] {
                 vela_res_listening_register_map_by_path({{"y", "2"}, {"x", "1"}}, 9, byPath);
             },
             0,
             0,
             0,
             0,
             9,
             false,
             true,
             false,
             {{0, "1", "x"}, {0, "2", "y"}}},
            {"diagnostic",
             [&] { velaDumpSAInfo(); },
             5,
             0,
             0,
             1,
             0,
             false,
             false,
             false,
             {{5, {}, {}}}},
    };
    for (const ParcelCase& c : cases) {
        SCOPED_TRACE(c.what);
        const size_t before = fake->callCount();
        c.call();
        ASSERT_EQ(fake->callCount(), before + 1);
        const paxtest::VelaRequestParcel p = fake->lastParcel();
        EXPECT_EQ(p.requestType, c.type);
        EXPECT_EQ(p.param1, c.param1);
        EXPECT_EQ(p.param2, c.param2);
        EXPECT_EQ(p.param4, c.param4);
        EXPECT_EQ(p.param6, c.param6);
        EXPECT_EQ(p.optionFlag, c.optionFlag);
        EXPECT_EQ(p.callback != nullptr, c.callback);
        if (c.marked) {
            EXPECT_EQ(p.paths, (std::vector<std::optional<std::string>>{"zdbdebug"}));
        } else {
            EXPECT_FALSE(p.paths.has_value());
        }
        EXPECT_FALSE(p.packageName || p.identity || p.extraValues);
        ASSERT_EQ(p.requestDatas.size(), c.items.size());
        for (size_t i = 0; i < c.items.size(); ++i) {
            const VelaRequestData& got = p.requestDatas[i];
            EXPECT_EQ(got.id, c.items[i].id) << i;
            EXPECT_EQ(got.param, 0) << i;
            EXPECT_EQ(got.value, c.items[i].value) << i;
            EXPECT_EQ(got.value2, c.items[i].value2) << i;
            EXPECT_FALSE(got.value3.has_value()) << i;
        }
    }
}

// Every entry with an opcode needs a value and an empty slot (id 0) must have none; the first
// entry breaking that stops the request before anything is sent.
TEST_F(HalclientTest, InconsistentListsAreRefusedWithTheirOwnLine) {
    auto receiver = std::make_shared<Receiver>();
    ResourceList emptyValue{{0x100, "1"}, {0x200, ""}};
    ResourceList slotWithValue{{0, "1"}};
    ResourceList missingValue{{0x300, std::nullopt}};

    EXPECT_EQ(velaResCtlRequest(1, emptyValue, 0), -1);
    EXPECT_TRUE(error("velaResCtlRequest ERROR: size unmatched for id and value "));
    EXPECT_EQ(velaResCtlRequest(1, 2, slotWithValue, 3, 4, 5, receiver), -1);
    EXPECT_TRUE(error("vela client vela_resctl_request ERROR: size unmatched for id and value "));
    EXPECT_EQ(velaThermalNotify(missingValue, 0), -1);
    EXPECT_TRUE(error("velaThermalNotify ERROR: size unmatched for id and level "));
    EXPECT_EQ(fake->callCount(), 0u);
    EXPECT_EQ(fake->callbackCount(), 0u);

    // An empty slot without value is fine and travels as an item with id 0.
    ResourceList slot{{0, std::nullopt}};
    EXPECT_GT(velaResCtlRequest(1, slot, 0), 0);
    ASSERT_EQ(fake->lastParcel().requestDatas.size(), 1u);
    EXPECT_EQ(fake->lastParcel().requestDatas[0].id, 0);
}

TEST_F(HalclientTest, StateReplyIsAppendedAndAnEmptyReplyLeavesItAlone) {
    ResourceList request{{0x10, std::nullopt}};
    ResourceList reply{{0x1, "old"}};
    fake->enqueue("resStateRequest", Answer::items({}));
    EXPECT_EQ(velaResStateRequest(request, 0, reply), -1);
    EXPECT_EQ(reply.size(), 1u);

    fake->enqueue("resStateRequest",
                  Answer::items({makeItem(0x10, 0, "5"), makeItem(int32_t(0x80000002))}));
    EXPECT_EQ(velaResStateRequest(request, 0, reply), 3);
    EXPECT_EQ(reply, (ResourceList{{0x1, "old"}, {0x10, "5"}, {0x80000002u, std::nullopt}}));
    EXPECT_TRUE(info("vela client velaResStateRequest size 3"));
}

TEST_F(HalclientTest, ThermalNotifySucceedsOnlyOnAPositiveHandle) {
    ResourceList levels{{0x40, "3"}};
    fake->enqueue("resCtlRequest", Answer::ok(0));
    EXPECT_EQ(velaThermalNotify(levels, 0), -1);
    fake->enqueue("resCtlRequest", Answer::ok(1));
    EXPECT_EQ(velaThermalNotify(levels, 0), 0);
}

}  // namespace
}  // namespace halclienttest
