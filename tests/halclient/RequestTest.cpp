// What each request puts on the wire, read back at the service after a real transaction; what
// is refused before anything is sent; and what the answers give the caller.
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <map>
#include <memory>

#include "HalclientFixture.h"
#include "RunProgram.h"

namespace halclienttest {
namespace {

TEST_F(HalclientTest, EveryRequestBuildsItsParcel) {
    // The second opcode has its top bit set: it must arrive as the same 32 bits.
    ResourceList list{{0x010108a0, "1"}, {0x80000001u, "2"}};
    ResourceList none, slot{{0, std::nullopt}};
    const Strings ab{"a", "b"}, v12{"1", "2"}, v1{"1"};
    const std::map<std::string, std::string> map{{"b", "2"}, {"a", "1"}},
            xy{{"y", "1"}, {"x", "2"}};
    const std::string items = " | 10108a0 =1 | 80000001 =2";
    const std::string pathItems = " paths:zdbdebug | 0 =1 @a | 0 =2 @b";
    Strings out;
    std::map<std::string, std::string> outMap;
    const std::vector<std::pair<std::string, std::function<void()>>> cases = {
            {"1 -1 5 -1 9" + items, [&] { velaResCtlRequest(5, list, 9); }},
            {"1 -1 5 -1 9 flag" + items, [&] { velaResCtlRequest(5, list, 1, 9); }},
            {"1 -1 5 4 9" + items, [&] { velaResCtlRequest(5, list, 4, 0, 9); }},
            {"1 3 -1 -1 9" + items, [&] { velaResCtlRequest(3, -1, list, 9); }},
            {"1 3 5 -1 9 flag" + items, [&] { velaResCtlRequest(3, 5, list, 7, 9); }},
            {"1 3 5 4 9" + items, [&] { velaResCtlRequest(3, 5, list, 4, -1, 9); }},
            {"1 3 5 4 9 flag callback" + items,
             [&] { velaResCtlRequest(3, 5, list, 4, 2, 9, receiver); }},
            {"1 -1 5 -1 9", [&] { velaResCtlRequest(5, none, 9); }},
            // An empty slot (id 0) without a value is consistent.
            {"1 -1 1 -1 0 | 0", [&] { velaResCtlRequest(1, slot, 0); }},
            {"2 -1 5 -1 9 | 7", [&] { velaSACtlRequest(5, 7, 9); }},
            {"2 1 2 4 9 flag | 7", [&] { velaSACtlRequest(1, 2, 7, 4, 1, 9); }},
            {"2 1 2 4 9 callback | 7", [&] { velaSACtlRequest(1, 2, 7, 4, 0, 9, receiver); }},
            {"7 0 0 0 9" + items, [&] { velaThermalNotify(list, 9); }},
            {"0 0 0 0 9" + items, [&] { velaResStateRequest(list, 9, none); }},
            {"0 0 0 0 9" + items, [&] { velaResListeningRegister(list, 9, receiver); }},
            {"1 3 -2 4 9 flag" + pathItems,
             [&] { vela_resctl_request_by_path(3, -2, ab, v12, 4, 1, 9); }},
            {"1 3 5 4 9 callback" + pathItems,
             [&] { vela_resctl_request_with_callback_by_path(3, 5, ab, v12, 4, 0, 9, receiver); }},
            {"0 0 0 0 9" + pathItems, [&] { vela_res_state_request_by_path(ab, v12, 9, out); }},
            // Values go along only when there is one per path.
            {"0 0 0 0 9 paths:zdbdebug | 0 @a | 0 @b",
             [&] { vela_res_state_request_by_path(ab, v1, 9, out); }},
            {"0 0 0 0 9" + pathItems, [&] { vela_res_state_request_map_by_path(map, 9, outMap); }},
            {"0 0 0 0 9 paths:zdbdebug | 0 @a | 0 @b",
             [&] { vela_res_listening_register_by_path(ab, 9, receiver); }},
            {"0 0 0 0 9 paths:zdbdebug | 0 =2 @x | 0 =1 @y",
             [&] { vela_res_listening_register_map_by_path(xy, 9, receiver); }},
            // The service knows the diagnostic commands by their codes; 9 is unused.
            {"5 0 0 1 0 | 0", velaDumpToDoQueue},
            {"5 0 0 1 0 | 1", velaDumpRunMap},
            {"5 0 0 1 0 | 2", velaDumpActiveResMap},
            {"5 0 0 1 0 | 3", velaDumpResRequest},
            {"5 0 0 1 0 | 4", velaDumpResInfo},
            {"5 0 0 1 0 | 5", velaDumpSAInfo},
            {"5 0 0 1 0 | 6", velaDumpPidFdList},
            {"5 0 0 1 0 | 7", velaDumpPidfdMonitorMap},
            {"5 0 0 1 0 | 8", velaDumpResRecordList},
            {"5 0 0 1 0 | a", velaHistoryRequestRecordOn},
            {"5 0 0 1 0 | b", velaHistoryRequestRecordOff},
    };
    // Every row sends exactly one parcel, whichever of the three methods carries it.
    VelaRequestParcel sent;
    int sends = 0;
    auto save = [&](const VelaRequestParcel& p) { sent = p, ++sends; };
    ON_CALL(*fake, resCtlRequest).WillByDefault([&](auto& p, int32_t* out) {
        return save(p), *out = 1, Status::ok();
    });
    ON_CALL(*fake, resStateRequest).WillByDefault([&](auto& p, Items*) {
        return save(p), Status::ok();
    });
    ON_CALL(*fake, resListeningRegister).WillByDefault([&](auto& p, auto&, int32_t* out) {
        return save(p), *out = 1, Status::ok();
    });
    for (const auto& [expected, call] : cases) {
        sends = 0;
        call();
        EXPECT_EQ(sends, 1) << expected;
        EXPECT_EQ(describe(sent), expected);
    }
}

// An entry with an opcode needs a value, an empty slot (id 0) must have none, and paths and
// values go in pairs: a request that breaks this is refused before anything is sent, each
// function with its own line.
TEST_F(HalclientTest, InconsistentListsAreRefused) {
    EXPECT_CALL(*fake, resCtlRequest).Times(0);
    ResourceList emptyValue{{0x100, "1"}, {0x200, ""}};
    ResourceList slotWithValue{{0, "1"}};
    ResourceList missingValue{{0x300, std::nullopt}};
    EXPECT_EQ(velaResCtlRequest(1, emptyValue, 0), -1);
    EXPECT_TRUE(error("velaResCtlRequest ERROR: size unmatched for id and value "));
    EXPECT_EQ(velaThermalNotify(missingValue, 0), -1);
    EXPECT_TRUE(error("velaThermalNotify ERROR: size unmatched for id and level "));
    EXPECT_EQ(vela_resctl_request_by_path(1, 2, {"a", "b"}, {"1"}, 3, 4, 5), -1);
    EXPECT_TRUE(error("vela_resctl_request ERROR: size unmatched for paths and value "));
    // The two requests with a callback share their line.
    EXPECT_EQ(velaResCtlRequest(1, 2, slotWithValue, 3, 4, 5, receiver), -1);
    EXPECT_EQ(vela_resctl_request_with_callback_by_path(1, 2, {"a"}, {}, 3, 4, 5, receiver), -1);
    EXPECT_EQ(log.count(kTag, ANDROID_LOG_ERROR,
                        "vela client vela_resctl_request ERROR: size unmatched for id and value "),
              2u);
}

// Answers are appended to what the caller has; an empty answer fails and adds nothing.
TEST_F(HalclientTest, StateAnswersAreAppended) {
    ResourceList request{{0x10, std::nullopt}};
    ResourceList reply{{0x1, "old"}};
    Strings out{"x", "y"};
    std::map<std::string, std::string> outMap{{"a", "old"}, {"z", "0"}};
    EXPECT_EQ(velaResStateRequest(request, 0, reply), -1);
    EXPECT_EQ(vela_res_state_request_by_path({"a"}, {}, 0, out), -1);
    EXPECT_EQ(vela_res_state_request_map_by_path({{"a", ""}}, 0, outMap), -1);

    ON_CALL(*fake, resStateRequest)
            .WillByDefault(
                    paxtest::reply(Items{makeItem(0x10, 0, "5"), makeItem(int32_t(0x80000002))}));
    EXPECT_EQ(velaResStateRequest(request, 0, reply), 3);
    EXPECT_EQ(reply, (ResourceList{{0x1, "old"}, {0x10, "5"}, {0x80000002u, std::nullopt}}));
    EXPECT_TRUE(info("vela client velaResStateRequest size 3"));

    // The list form takes every item's value (empty when absent); the map form only items
    // with both a path and a value.
    ON_CALL(*fake, resStateRequest)
            .WillByDefault(paxtest::reply(Items{makeItem(0, 0, "1", "a"), makeItem(0, 0, {}, "b"),
                                                makeItem(0, 0, "3"), makeItem(0, 0, "4", "d")}));
    EXPECT_EQ(vela_res_state_request_by_path({"a", "b", "c", "d"}, {}, 0, out), 6);
    EXPECT_EQ(out, (Strings{"x", "y", "1", "", "3", "4"}));
    EXPECT_TRUE(info("vela client vela_res_state_request size 6"));
    EXPECT_EQ(vela_res_state_request_map_by_path({{"a", ""}}, 0, outMap), 3);
    EXPECT_EQ(outMap, (std::map<std::string, std::string>{{"a", "1"}, {"d", "4"}, {"z", "0"}}));
    EXPECT_TRUE(error("res_Path: a, res_Value:1"));
    EXPECT_EQ(log.linesContaining("res_Path").size(), 2u);
    EXPECT_TRUE(info("vela client vela_res_state_request_map size 3"));
}

// Thermal notifications and diagnostic commands succeed only on a positive answer; handles
// and property answers reach the caller unchanged.
TEST_F(HalclientTest, AnswersReachTheCaller) {
    ResourceList levels{{0x40, "3"}};
    for (const auto& [answer, expected] : {std::pair{0, -1}, {1, 0}, {-3, -1}, {2, 0}}) {
        ON_CALL(*fake, resCtlRequest).WillByDefault(paxtest::reply(answer));
        EXPECT_EQ(velaThermalNotify(levels, 0), expected) << answer;
        EXPECT_EQ(velaHistoryRequestRecordOn(), expected) << answer;
    }
    EXPECT_EQ(vela_resctl_request_by_path(1, 2, {}, {}, 3, 4, 5), 2);

    const std::string longest(255, 'p');
    EXPECT_CALL(*fake, propertyGet("vendor.key", _)).WillOnce(paxtest::reply(longest));
    std::unique_ptr<char[]> value(velaPropertyGet("vendor.key"));
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value.get(), longest);
    EXPECT_TRUE(info("velaPropertyGet " + longest + " "));
    EXPECT_CALL(*fake, propertySet("vendor.key", "v", _)).WillOnce(paxtest::reply(6));
    EXPECT_EQ(velaPropertySet("vendor.key", "v"), 6);
}

// An answer that does not fit the caller's buffer stops the process rather than being cut. The
// dying part runs in a fresh copy of this program that starts its own service; it is started
// through the emulator in a cross build, which gtest's own death tests cannot do.
TEST(HalclientPropertyDeathTest, AnswerOf256CharactersAborts) {
    constexpr char kRole[] = "PAX_PROPERTY_DEATH_CHILD";
    if (getenv(kRole) != nullptr) {
        paxtest::ServiceHarness service;
        auto fake = service.startFake();
        ON_CALL(*fake, propertyGet).WillByDefault(paxtest::reply(std::string(256, 'p')));
        delete[] velaPropertyGet("vendor.key");
        _exit(0);  // reached only when the library let the answer through
    }
    const paxtest::Outcome run = paxtest::finish(*paxtest::launch(
            "/proc/self/exe",
            {"--gtest_filter=HalclientPropertyDeathTest.AnswerOf256CharactersAborts"}, "",
            {std::string(kRole) + "=1"}));
    EXPECT_EQ(run.exitCode, 128 + SIGABRT) << run;
    EXPECT_TRUE(run.says("answer of 256 characters does not fit")) << run;
}

}  // namespace
}  // namespace halclienttest
