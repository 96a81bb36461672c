#include "Replay.h"

#include <json/json.h>

#include <fstream>
#include <memory>
#include <set>

#include "ServiceTime.h"
#include "VelaService.h"

namespace velactl {

using aidl::vendor::norvo::hardware::vela::VelaRequestData;
using aidl::vendor::norvo::hardware::vela::VelaRequestParcel;
using aidl::vendor::norvo::hardware::vela::impl::Holder;
using aidl::vendor::norvo::hardware::vela::impl::ResourceKey;
using aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig;
using aidl::vendor::norvo::hardware::vela::impl::ScopedCaller;
using aidl::vendor::norvo::hardware::vela::impl::ServiceClock;
using aidl::vendor::norvo::hardware::vela::impl::VelaService;
using aidl::vendor::norvo::hardware::vela::impl::VirtualClock;

namespace {

std::optional<std::string> optionalText(const Json::Value& value) {
    if (!value.isString()) return std::nullopt;
    return value.asString();
}

std::vector<VelaRequestData> itemsOf(const Json::Value& items) {
    std::vector<VelaRequestData> out;
    for (const Json::Value& item : items) {
        VelaRequestData data{};
        data.id = item["id"].asInt();
        data.param = item["param"].asInt();
        data.value = optionalText(item["value"]);
        data.value2 = optionalText(item["value2"]);
        data.value3 = optionalText(item["value3"]);
        out.push_back(std::move(data));
    }
    return out;
}

VelaRequestParcel parcelOf(const Json::Value& args) {
    VelaRequestParcel parcel{};
    parcel.requestType = args["requestType"].asInt();
    parcel.requestDatas = itemsOf(args["items"]);
    parcel.optionFlag = args["optionFlag"].asBool();
    parcel.param1 = args["param1"].asInt();
    parcel.param2 = args["param2"].asInt64();
    parcel.param4 = args["param4"].asInt();
    parcel.param6 = args["param6"].asInt();
    if (args["paths"].isArray()) {
        parcel.paths.emplace();
        for (const Json::Value& text : args["paths"]) parcel.paths->push_back(optionalText(text));
    }
    parcel.packageName = optionalText(args["packageName"]);
    parcel.identity = optionalText(args["identity"]);
    if (args["extraValues"].isArray()) {
        parcel.extraValues.emplace();
        for (const Json::Value& v : args["extraValues"]) parcel.extraValues->push_back(v.asInt64());
    }
    // A callback is not replayed: it hears values, it does not change them.
    return parcel;
}

std::string nameOf(const ScenarioConfig& config, const ResourceKey& key) {
    const auto* info = config.infoFor(key);
    return info != nullptr && !info->name.empty() ? info->name : key.toString();
}

// Drives one service through one record.
class Player {
public:
    Player(const ScenarioConfig& config, ReplayTimeline* out)
        : mConfig(config), mClock(std::make_shared<VirtualClock>()), mOut(out) {
        VelaService::Options options;
        options.config = config;
        options.clock = mClock;
        mClock->set(at(0));
        mService = ::ndk::SharedRefBase::make<VelaService>(std::move(options));
        observe(0, -1);
    }

    // One recorded line, made at its time after what expires before it (or at that very time:
    // a deadline reached is past, as for the live service's timer). Expiries are not in the
    // record, since another configuration times them otherwise; the live timer ends a request
    // a little after its deadline, so a call that came in that gap (tens of microseconds)
    // replays after the end where it came before it live.
    void play(int64_t us, const Json::Value& line, size_t lineNumber) {
        while (auto due = mService->nextDeadline()) {
            if (*due > at(us)) break;
            mClock->set(*due);
            const std::set<int32_t> before = mService->activeHandles();
            mService->expireDue(*due);
            const int64_t dueUs =
                    std::chrono::duration_cast<std::chrono::microseconds>(*due - at(0)).count();
            int cause = -1;
            for (int32_t handle : before) {
                if (mService->activeHandles().count(handle) == 0 && mCauseOf.count(handle)) {
                    cause = addCause("end of " + mOut->causes[mCauseOf[handle]]);
                    break;
                }
            }
            observe(dueUs, cause);
        }
        mClock->set(at(us));
        const std::string call = line["call"].asString();
        const Json::Value& args = line["args"];
        const pid_t pid = line["pid"].asInt();
        ScopedCaller caller(pid, line["uid"].asUInt());
        std::string who = "pid " + std::to_string(pid);
        if (args["packageName"].isString()) who = args["packageName"].asString() + ", " + who;
        const std::string words = "line " + std::to_string(lineNumber) + " " + call;
        int32_t result = 0;
        int cause = -1;
        if (call == "resCtlRequest") {
            const VelaRequestParcel parcel = parcelOf(args);
            mService->resCtlRequest(parcel, &result);
            cause = addCause(words + " kind " + std::to_string(parcel.requestType) + " (" + who +
                             ")");
            if (result > 0 && line["answer"].asInt() > 0) {
                mHandles[line["answer"].asInt()] = result;
                mCauseOf[result] = cause;
            }
        } else if (call == "resCtlRelease") {
            mService->resCtlRelease(replayed(args["handle"].asInt()), &result);
            cause = addCause(words + " (" + who + ")");
        } else if (call == "ruleCtl") {
            mService->ruleCtl(args["ruleId"].asInt(), args["status"].asInt(),
                              itemsOf(args["items"]), &result);
            cause = addCause(words + " " + std::to_string(args["ruleId"].asInt()) +
                             (args["status"].asInt() != 0 ? " on" : " off") + " (" + who + ")");
            if (result == 0) mRuleCause[args["ruleId"].asInt()] = cause;
        } else if (call == "setRelatedSysInfo") {
            mService->setRelatedSysInfo(args["info"].asInt(), args["value"].asInt64(), &result);
        } else if (call == "propertySet") {
            mService->propertySet(args["key"].asString(), args["value"].asString(), &result);
        } else if (call == "holderGone") {
            std::vector<int32_t> handles;
            for (const Json::Value& h : line["handles"]) handles.push_back(replayed(h.asInt()));
            mService->holderGone(pid, handles);
            cause = addCause(words + " (" + who + ")");
        }
        // Listener registrations are left out: a listener hears values and changes none.
        observe(us, cause);
    }

    void finish(int64_t endUs) {
        mOut->endUs = endUs;
        mService.reset();
    }

private:
    static ServiceClock::time_point at(int64_t us) {
        // Not the clock's zero: a deadline's arithmetic is then never near the epoch.
        return ServiceClock::time_point(std::chrono::hours(1) + std::chrono::microseconds(us));
    }

    int32_t replayed(int32_t recorded) const {
        auto it = mHandles.find(recorded);
        return it == mHandles.end() ? recorded : it->second;
    }

    int addCause(std::string words) {
        mOut->causes.push_back(std::move(words));
        return static_cast<int>(mOut->causes.size()) - 1;
    }

    int heldBy(const std::optional<Holder>& holder) const {
        if (!holder) return -1;
        const auto& causes = holder->kind == Holder::Kind::kRule ? mRuleCause : mCauseOf;
        auto it = causes.find(holder->id);
        return it == causes.end() ? -1 : it->second;
    }

    // A new stretch for every resource whose value differs from its last, even at the instant
    // of the one before: the live service wrote both values, one after the other.
    void observe(int64_t us, int cause) {
        std::map<std::string, std::pair<std::string, int>> now;
        for (const auto& entry : mService->valuesInForce()) {
            now[nameOf(mConfig, entry.key)] = {entry.value, heldBy(entry.holder)};
        }
        for (auto& [name, segments] : mOut->resources) {
            if (now.count(name) == 0) now[name] = {"", -1};
        }
        for (const auto& [name, state] : now) {
            const auto& [value, holder] = state;
            auto& segments = mOut->resources[name];
            if (!segments.empty() && segments.back().value == value) continue;
            segments.push_back({us, value, cause, holder});
        }
    }

    const ScenarioConfig& mConfig;
    std::shared_ptr<VirtualClock> mClock;
    std::shared_ptr<VelaService> mService;
    ReplayTimeline* mOut;
    std::map<int32_t, int32_t> mHandles;  // recorded handle -> this replay's
    std::map<int32_t, int> mCauseOf;      // this replay's handle -> the call that made it
    std::map<int32_t, int> mRuleCause;    // rule id -> the call that switched it on
};

}  // namespace

bool replayRecord(const std::string& path, const ScenarioConfig& config, ReplayTimeline* out,
                  std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = "cannot read the record " + path;
        return false;
    }
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    auto parse = [&](const std::string& text, Json::Value* doc) {
        return reader->parse(text.data(), text.data() + text.size(), doc, nullptr) &&
               doc->isObject();
    };
    Json::Value header;
    if (lines.empty() || !parse(lines[0], &header) || header["record"] != "vela-calls") {
        *error = path + ": not a record of calls (vela-service --record)";
        return false;
    }
    // Version 1 is still read, not refused: its lines are in the order of the changes as
    // version 2's are, and only its times are coarser (two calls in one millisecond replay in
    // their order, at one instant).
    const int version = header["version"].isIntegral() ? header["version"].asInt() : 0;
    if (version != 1 && version != 2) {
        *error = path + ": a record " +
                 (version != 0 ? "of version " + std::to_string(version) : "with no version") +
                 "; this velactl reads versions 1 and 2";
        return false;
    }
    const char* timeField = version == 1 ? "t" : "t_us";
    const int64_t usPerUnit = version == 1 ? 1000 : 1;
    Player player(config, out);
    int64_t lastUs = 0;
    for (size_t i = 1; i < lines.size(); ++i) {
        Json::Value doc;
        const bool parsed = parse(lines[i], &doc);
        if (!parsed && i + 1 == lines.size()) break;  // cut short by a kill
        const std::string where = path + ":" + std::to_string(i + 1) + ": ";
        if (!parsed || !doc[timeField].isInt64() || doc[timeField].asInt64() < 0 ||
            !doc["call"].isString()) {
            *error = where + "not a recorded call (a JSON object with \"" + timeField +
                     "\" and \"call\")";
            return false;
        }
        // The line order is the order of the changes; a time that goes back (it cannot in a
        // record the service wrote) is played at the time reached.
        lastUs = std::max(lastUs, doc[timeField].asInt64() * usPerUnit);
        // A record is a file anyone may have edited: a field of the wrong type stops the replay
        // at its line rather than ending velactl as if it had failed itself.
        try {
            player.play(lastUs, doc, i + 1);
        } catch (const Json::Exception& e) {
            *error = where + "a field of the wrong type (" + e.what() + ")";
            return false;
        }
    }
    player.finish(lastUs);
    return true;
}

}  // namespace velactl
