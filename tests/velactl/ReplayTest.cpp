// A recorded run played again: its values follow the live run's, two replays print the same
// bytes, and another configuration differs only where its changed value was in force.
#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "RunProgram.h"

namespace {

using namespace paxtest;

Outcome velactl(std::vector<std::string> args) {
    return finish(*launch(VELACTL_PATH, std::move(args), ""));
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

Json::Value parse(const std::string& text) {
    Json::Value doc;
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    reader->parse(text.data(), text.data() + text.size(), &doc, nullptr);
    return doc;
}

// Each counter track of a trace-event file, as the values it took in turn (repeats dropped).
std::map<std::string, std::vector<std::string>> valuesByTrack(const std::string& path) {
    std::map<std::string, std::vector<std::string>> out;
    std::istringstream lines(readFile(path));
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] != '{') continue;
        if (line.back() == ',') line.pop_back();
        const Json::Value event = parse(line);
        if (event["ph"] != "C") continue;
        auto& values = out[event["name"].asString()];
        const std::string value = event["args"]["value"].asString();
        if (values.empty() || values.back() != value) values.push_back(value);
    }
    return out;
}

class ReplayTest : public ::testing::Test {
protected:
    void SetUp() override {
        mDir = ::testing::TempDir() + "replay-" + std::to_string(getpid()) + "-";
        // The release and the touch boost come one straight after the other, often within a
        // millisecond: the replay must still show the value in force between them.
        const std::string script = mDir + "script.vela";
        std::ofstream(script) << "request cpu.little.freq_min=2000000 --duration 150\n"
                                 "acquire launch --pkg com.example.mail\n"
                                 "sleep 300\n"
                                 "release $handle\n"
                                 "acquire touch_boost -d 100 --pkg com.example.touch\n"
                                 "sleep 200\n"
                                 "rule 7 on sched.little.target_load=33\n"
                                 "sleep 20\n"
                                 "rule 7 off\n";
        const Outcome live = velactl(
                {"--embedded", "--record", record(), "--trace", mDir + "live.json", "run", script});
        ASSERT_EQ(live.exitCode, 0) << live;
    }
    std::string record() const { return mDir + "record.jsonl"; }

    std::string mDir;
};

TEST_F(ReplayTest, ReplayFollowsTheLiveRunAndPrintsTheSameBytesTwice) {
    // Every line of the record is a JSON object of its own, the header first.
    std::istringstream lines(readFile(record()));
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(parse(line)["record"], "vela-calls");
    size_t calls = 0;
    std::string recordedPid;
    for (; std::getline(lines, line); ++calls) {
        const Json::Value call = parse(line);
        EXPECT_TRUE(call["t_us"].isIntegral() && call["pid"].isIntegral()) << line;
        recordedPid = "pid " + call["pid"].asString();
    }
    EXPECT_EQ(calls, 6u);  // request, launch, release, touch boost, rule on, rule off

    const Outcome first = velactl({"--trace", mDir + "replay.json", "replay", record()});
    ASSERT_EQ(first.exitCode, 0) << first;
    EXPECT_EQ(valuesByTrack(mDir + "replay.json"), valuesByTrack(mDir + "live.json"));
    // The holder is the recorded caller, not the replaying process.
    EXPECT_NE(first.out.find("longest hold: 1804800"), std::string::npos) << first;
    EXPECT_NE(first.out.find("com.example.mail, " + recordedPid), std::string::npos) << first;
    EXPECT_EQ(velactl({"replay", record()}).out, first.out);
    EXPECT_EQ(velactl({"--json", "replay", record()}).out,
              velactl({"--json", "replay", record()}).out);
}

TEST_F(ReplayTest, AnotherConfigurationDiffersOnlyWhereItsValueWasInForce) {
    // B lowers the launch's little-cluster floor, and nothing else.
    std::string config = readFile(VELA_DEFAULT_CONFIG_PATH);
    const std::string from = "\"value\": \"1804800\"";
    ASSERT_EQ(config.find(from), config.rfind(from));
    config.replace(config.find(from), from.size(), "\"value\": \"1500000\"");
    std::ofstream(mDir + "b.json") << config;

    const Outcome diff = velactl({"--json", "replay", record(), "--against", mDir + "b.json"});
    ASSERT_EQ(diff.exitCode, 0) << diff;
    const Json::Value doc = parse(diff.out);
    ASSERT_EQ(doc["differences"].size(), 1u) << diff;
    EXPECT_EQ(doc["differences"][0]["name"], "cpu.little.freq_min");
    for (const Json::Value& range : doc["differences"][0]["ranges"]) {
        EXPECT_EQ(range["a"], "1804800");
        EXPECT_EQ(range["b"], "1500000");
        EXPECT_LT(range["from_us"].asInt64(), range["to_us"].asInt64());
    }
    const Outcome same = velactl({"replay", record(), "--against", VELA_DEFAULT_CONFIG_PATH});
    EXPECT_EQ(same.out, "no difference\n") << same;
}

TEST_F(ReplayTest, RecordCutShortOrOfTheFirstVersionStillReplays) {
    std::string text = readFile(record());
    text.resize(text.size() - 10);  // the last line loses its end
    std::ofstream(mDir + "cut.jsonl") << text;
    const Outcome cut = velactl({"replay", mDir + "cut.jsonl"});
    EXPECT_EQ(cut.exitCode, 0) << cut;

    // Version 1 timed its lines in whole milliseconds ("t"): read as such, in line order.
    std::istringstream lines(readFile(record()));
    std::ofstream old(mDir + "v1.jsonl");
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    for (std::string line; std::getline(lines, line);) {
        Json::Value doc = parse(line);
        if (doc.isMember("version")) doc["version"] = 1;
        if (doc.isMember("t_us")) doc["t"] = Json::Int64(doc["t_us"].asInt64() / 1000);
        doc.removeMember("t_us");
        old << Json::writeString(compact, doc) << "\n";
    }
    old.close();
    const Outcome v1 = velactl({"--trace", mDir + "v1.json", "replay", mDir + "v1.jsonl"});
    ASSERT_EQ(v1.exitCode, 0) << v1;
    EXPECT_EQ(valuesByTrack(mDir + "v1.json"), valuesByTrack(mDir + "live.json"));

    std::ofstream(mDir + "v3.jsonl") << "{\"record\":\"vela-calls\",\"version\":3}\n";
    EXPECT_EQ(velactl({"replay", mDir + "v3.jsonl"}).exitCode, 65);
    EXPECT_EQ(velactl({"replay", mDir + "script.vela"}).exitCode, 65);  // not a record

    // A whole line of the wrong shape is the record's fault, not a cut: refused at its line.
    std::string edited = readFile(record());
    edited.replace(edited.find("\"pid\":"), 6, "\"pid\":\"x\",\"was\":");
    std::ofstream(mDir + "edited.jsonl") << edited;
    const Outcome bad = velactl({"replay", mDir + "edited.jsonl"});
    EXPECT_EQ(bad.exitCode, 65) << bad;
    EXPECT_TRUE(bad.says("edited.jsonl:2: a field of the wrong type")) << bad;
}

}  // namespace
