// What a replay prints: per resource, the time at each value, the time-weighted mean, the
// number of changes and the longest hold; or, against a second configuration, where the values
// in force differ and the calls behind them. Only the replay's own times and the record's words
// appear, so that one record and one configuration always print the same bytes.
#pragma once

#include <json/json.h>

#include <string>

#include "Replay.h"

namespace velactl {

std::string replaySummaryText(const ReplayTimeline& timeline);
Json::Value replaySummaryJson(const ReplayTimeline& timeline);

std::string replayDiffText(const ReplayTimeline& a, const ReplayTimeline& b);
Json::Value replayDiffJson(const ReplayTimeline& a, const ReplayTimeline& b);

// The replay's timeline in trace-event JSON (counter tracks on the virtual clock).
std::string replayTraceJson(const ReplayTimeline& timeline);

}  // namespace velactl
