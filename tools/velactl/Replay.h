// A record (vela-service --record) played again against a configuration, in an embedded
// service whose clock the record moves: what each resource's value would have been, when, and
// which recorded call put it there.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ScenarioConfig.h"

namespace velactl {

// One stretch of a resource's value: from `startUs` until the next stretch (or the end). A
// stretch may last no time at all: a value that one call put in force and the next call, in
// the same microsecond, replaced was still written, and is kept as the live run had it.
struct ReplaySegment {
    int64_t startUs = 0;  // microseconds since the record's start
    std::string value;    // empty: the resource has no value in force
    int cause = -1;       // index into ReplayTimeline::causes; -1: the configuration's start
    int heldBy = -1;      // the call whose claim is in force; -1: the configuration's default
};

struct ReplayTimeline {
    int64_t endUs = 0;  // the time of the record's last call
    // What started each stretch, in words: the recorded line, its call and its caller.
    std::vector<std::string> causes;
    // By resource name (the configuration's, else its key), in name order.
    std::map<std::string, std::vector<ReplaySegment>> resources;
};

// Plays the record at `path`. False, with `error` set, when it cannot be read or is not a
// record; a last line cut short (a service killed while writing it) is left out. Both versions
// of a record are read: version 1's millisecond times ("t") as whole milliseconds.
bool replayRecord(const std::string& path,
                  const aidl::vendor::norvo::hardware::vela::impl::ScenarioConfig& config,
                  ReplayTimeline* out, std::string* error);

}  // namespace velactl
