#include "ReplayReport.h"

#include <cinttypes>
#include <cstdio>
#include <map>
#include <optional>
#include <set>

#include "JsonText.h"

namespace velactl {

using aidl::vendor::norvo::hardware::vela::impl::appendJsonString;
using aidl::vendor::norvo::hardware::vela::impl::parseIntegerValue;

namespace {

// To the microsecond, the record's own grain: a stretch shorter than a millisecond still shows.
std::string seconds(int64_t us) {
    char text[40];
    snprintf(text, sizeof(text), "%" PRId64 ".%06d s", us / 1000000,
             static_cast<int>(us % 1000000));
    return text;
}

std::string shown(const std::string& value) {
    return value.empty() ? "(none)" : value;
}

int64_t endOf(const std::vector<ReplaySegment>& segments, size_t i, int64_t endUs) {
    return i + 1 < segments.size() ? segments[i + 1].startUs : endUs;
}

struct Summary {
    std::map<std::string, int64_t> usAt;  // by value
    std::optional<double> mean;           // integers only
    size_t changes = 0;
    std::optional<size_t> longest;  // the segment held longest by a claim
};

Summary summarize(const ReplayTimeline& timeline, const std::vector<ReplaySegment>& segments) {
    Summary s;
    s.changes = segments.empty() ? 0 : segments.size() - 1;
    long double weighted = 0;
    int64_t span = 0;
    bool numeric = true;
    int64_t longestUs = -1;
    for (size_t i = 0; i < segments.size(); ++i) {
        const int64_t us = endOf(segments, i, timeline.endUs) - segments[i].startUs;
        s.usAt[segments[i].value] += us;
        const auto number = parseIntegerValue(segments[i].value);
        if (!number) numeric = false;
        if (number) weighted += static_cast<long double>(*number) * us;
        span += us;
        if (segments[i].heldBy >= 0 && us > longestUs) {
            longestUs = us;
            s.longest = i;
        }
    }
    if (numeric && span > 0) s.mean = static_cast<double>(weighted / span);
    return s;
}

std::string causeText(const ReplayTimeline& timeline, int cause) {
    return cause < 0 ? "the configuration" : timeline.causes[cause];
}

// Whose value it is, and what put it in force when that was another call (an end, a release).
std::string sideText(const ReplayTimeline& timeline, int heldBy, int cause) {
    std::string text = heldBy < 0 ? "the configuration's default" : timeline.causes[heldBy];
    if (cause != heldBy && cause >= 0) text += ", since " + timeline.causes[cause];
    return text;
}

// The value and its cause at `us` (the last segment starting at or before it).
const ReplaySegment* segmentAt(const std::vector<ReplaySegment>* segments, int64_t us) {
    static const ReplaySegment kNone{};
    if (segments == nullptr) return &kNone;
    const ReplaySegment* found = &kNone;
    for (const ReplaySegment& s : *segments) {
        if (s.startUs > us) break;
        found = &s;
    }
    return found;
}

struct DiffRange {
    int64_t fromUs, toUs;
    std::string a, b;
    int causeA, causeB;    // what started each side's stretch
    int heldByA, heldByB;  // whose claim each side's value is
};

std::map<std::string, std::vector<DiffRange>> diff(const ReplayTimeline& a,
                                                   const ReplayTimeline& b) {
    std::set<std::string> names;
    for (const auto& entry : a.resources) names.insert(entry.first);
    for (const auto& entry : b.resources) names.insert(entry.first);
    const int64_t endUs = std::max(a.endUs, b.endUs);
    std::map<std::string, std::vector<DiffRange>> out;
    for (const std::string& name : names) {
        auto ia = a.resources.find(name);
        auto ib = b.resources.find(name);
        const auto* sa = ia == a.resources.end() ? nullptr : &ia->second;
        const auto* sb = ib == b.resources.end() ? nullptr : &ib->second;
        std::set<int64_t> cuts{0};
        if (sa)
            for (const auto& s : *sa) cuts.insert(s.startUs);
        if (sb)
            for (const auto& s : *sb) cuts.insert(s.startUs);
        std::vector<int64_t> at(cuts.begin(), cuts.end());
        for (size_t i = 0; i < at.size(); ++i) {
            const int64_t to = i + 1 < at.size() ? at[i + 1] : endUs;
            const ReplaySegment* va = segmentAt(sa, at[i]);
            const ReplaySegment* vb = segmentAt(sb, at[i]);
            if (va->value == vb->value || to <= at[i]) continue;
            auto& ranges = out[name];
            if (!ranges.empty() && ranges.back().toUs == at[i] && ranges.back().a == va->value &&
                ranges.back().b == vb->value) {
                ranges.back().toUs = to;  // one range while both values stay
                continue;
            }
            ranges.push_back({at[i], to, va->value, vb->value, va->cause, vb->cause, va->heldBy,
                              vb->heldBy});
        }
    }
    return out;
}

}  // namespace

std::string replaySummaryText(const ReplayTimeline& timeline) {
    std::string out = "replayed " + seconds(timeline.endUs) + " of record\n";
    for (const auto& [name, segments] : timeline.resources) {
        const Summary s = summarize(timeline, segments);
        out += name + ": " + std::to_string(s.changes) + " changes";
        if (s.mean) {
            char mean[64];
            snprintf(mean, sizeof(mean), "%.1f", *s.mean);
            out += std::string(", mean ") + mean;
        }
        out += "\n";
        for (const auto& [value, us] : s.usAt) {
            out += "  " + shown(value) + ": " + seconds(us) + "\n";
        }
        if (s.longest) {
            const ReplaySegment& seg = segments[*s.longest];
            out += "  longest hold: " + shown(seg.value) + " for " +
                   seconds(endOf(segments, *s.longest, timeline.endUs) - seg.startUs) + " from " +
                   seconds(seg.startUs) + ", by " + timeline.causes[seg.heldBy] + "\n";
        }
    }
    return out;
}

Json::Value replaySummaryJson(const ReplayTimeline& timeline) {
    Json::Value doc(Json::objectValue);
    doc["replayed_us"] = Json::Int64(timeline.endUs);
    Json::Value& resources = doc["resources"] = Json::Value(Json::arrayValue);
    for (const auto& [name, segments] : timeline.resources) {
        const Summary s = summarize(timeline, segments);
        Json::Value r(Json::objectValue);
        r["name"] = name;
        r["changes"] = Json::UInt64(s.changes);
        if (s.mean) r["mean"] = *s.mean;
        Json::Value& at = r["us_at"] = Json::Value(Json::objectValue);
        for (const auto& [value, us] : s.usAt) at[value] = Json::Int64(us);
        if (s.longest) {
            const ReplaySegment& seg = segments[*s.longest];
            Json::Value& l = r["longest_hold"];
            l["value"] = seg.value;
            l["from_us"] = Json::Int64(seg.startUs);
            l["us"] = Json::Int64(endOf(segments, *s.longest, timeline.endUs) - seg.startUs);
            l["by"] = timeline.causes[seg.heldBy];
        }
        resources.append(r);
    }
    return doc;
}

std::string replayDiffText(const ReplayTimeline& a, const ReplayTimeline& b) {
    const auto ranges = diff(a, b);
    if (ranges.empty()) return "no difference\n";
    std::string out;
    for (const auto& [name, list] : ranges) {
        out += name + ":\n";
        for (const DiffRange& r : list) {
            out += "  " + seconds(r.fromUs) + " - " + seconds(r.toUs) + ": A " + shown(r.a) +
                   ", B " + shown(r.b) + "\n    A: " + sideText(a, r.heldByA, r.causeA) +
                   "\n    B: " + sideText(b, r.heldByB, r.causeB) + "\n";
        }
    }
    return out;
}

Json::Value replayDiffJson(const ReplayTimeline& a, const ReplayTimeline& b) {
    Json::Value doc(Json::objectValue);
    doc["replayed_us"] = Json::Int64(std::max(a.endUs, b.endUs));
    Json::Value& resources = doc["differences"] = Json::Value(Json::arrayValue);
    for (const auto& [name, list] : diff(a, b)) {
        Json::Value r(Json::objectValue);
        r["name"] = name;
        Json::Value& out = r["ranges"] = Json::Value(Json::arrayValue);
        for (const DiffRange& d : list) {
            Json::Value range(Json::objectValue);
            range["from_us"] = Json::Int64(d.fromUs);
            range["to_us"] = Json::Int64(d.toUs);
            range["a"] = d.a;
            range["b"] = d.b;
            range["a_held_by"] = causeText(a, d.heldByA);
            range["b_held_by"] = causeText(b, d.heldByB);
            range["a_since"] = causeText(a, d.causeA);
            range["b_since"] = causeText(b, d.causeB);
            out.append(range);
        }
        resources.append(r);
    }
    return doc;
}

std::string replayTraceJson(const ReplayTimeline& timeline) {
    std::string out = "[\n";
    bool first = true;
    for (const auto& [name, segments] : timeline.resources) {
        for (const ReplaySegment& s : segments) {
            out += first ? "" : ",\n";
            first = false;
            out += "{\"ts\":" + std::to_string(s.startUs) + ",\"ph\":\"C\",\"pid\":1,\"name\":";
            appendJsonString(&out, name);
            out += ",\"args\":{\"value\":";
            // A counter track holds numbers; a text value shows as 0 with the text beside it.
            const auto number = parseIntegerValue(s.value);
            out += number ? std::to_string(*number) : "0";
            if (!number) {
                out += ",\"text\":";
                appendJsonString(&out, s.value);
            }
            out += "}}";
        }
    }
    return out + "\n]\n";
}

}  // namespace velactl
