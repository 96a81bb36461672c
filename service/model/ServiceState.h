// What the service knows, in one place: the value in force of every resource, the active
// requests, rules and listeners, properties, thermal levels, history and counters.
//
// Nothing here locks. The service holds one lock over all of it, taken by the binder facade
// (and by the expiry, delivery and death threads when they come in); every member function
// whose name ends in "Locked" elsewhere expects that lock held. One lock rather than one per
// table because most requests touch several tables at once (a release changes the requests,
// the values in force and what listeners are owed) and must be seen whole.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/IVelaCallback.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestData.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestParcel.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "CallRecorder.h"
#include "ChangeLog.h"
#include "RefusalLog.h"
#include "ResourceTable.h"
#include "ScenarioConfig.h"
#include "ServiceLimits.h"
#include "ServiceTime.h"
#include "SysfsMirror.h"
#include "TraceWriter.h"
#include "vela_protocol.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

constexpr const char kVelaLogTag[] = "vela-service";

struct Request {
    int32_t handle = 0;
    int32_t kind = 0;
    std::optional<int32_t> event;
    std::string package;
    std::string identity;
    int64_t durationMs = 0;
    int64_t leaseMs = 0;  // above 0 when the configuration caps a request made until released
    pid_t pid = 0;
    uint64_t watch = 0;  // the holder watch's token for `pid`; 0 when it is not watched
    ServiceClock::time_point made;
    std::optional<ServiceClock::time_point> deadline;
    ResourceTable::Values resources;
};

struct Listener {
    int32_t handle = 0;
    bool thermal = false;
    std::vector<ResourceKey> keys;
    std::set<int32_t> thermalIds;
    std::shared_ptr<IVelaCallback> callback;
    pid_t pid = 0;
    uint64_t link = 0;  // death-link token; 0 when the callback could not be linked
    uint64_t delivered = 0;
};

struct Rule {
    int32_t id = 0;
    int32_t status = 0;
    ResourceTable::Values resources;
};

struct ServiceStats {
    size_t requests = 0;   // active now
    size_t listeners = 0;  // active now
    size_t rules = 0;      // on now
    uint64_t granted = 0;
    uint64_t released = 0;
    uint64_t expired = 0;
    uint64_t rejected = 0;
    uint64_t delivered = 0;
    uint64_t failedDeliveries = 0;
    uint64_t clientsLost = 0;  // listeners dropped because their client went away
    bool recording = false;
};

class ServiceState {
public:
    // Without `clock`, the service keeps real time; with one, its time is what the clock says
    // and nothing expires until told (see RequestBook::expireDue).
    ServiceState(ScenarioConfig config, size_t historyLimit, std::shared_ptr<TraceWriter> trace,
                 std::shared_ptr<VirtualClock> clock = nullptr);

    const ScenarioConfig config;
    const size_t historyLimit;
    // Both optional: set when the service mirrors path resources or writes a timeline.
    std::unique_ptr<SysfsMirror> mirror;
    const std::shared_ptr<TraceWriter> trace;
    const std::shared_ptr<VirtualClock> virtualClock;
    // Optional too: set when the calls that change state are recorded, for a replay.
    std::shared_ptr<CallRecorder> recorder;

    ResourceTable table;
    std::map<int32_t, Request> requests;
    std::map<int32_t, Listener> listeners;
    std::map<int32_t, Rule> rules;
    std::map<std::string, std::string> properties;
    std::map<int32_t, std::string> thermalLevels;
    std::deque<std::string> history;
    bool recording = false;
    int32_t thermalSequence = 0;
    ServiceStats counters;
    // The recent refusals, with their reasons, for the callers' tools (dumpsys refusals).
    RefusalLog refusals;
    // What changed each value in force lately, and why (dumpsys why).
    ChangeLog changeLog;

    ServiceClock::time_point now() const {
        return virtualClock ? virtualClock->now() : ServiceClock::now();
    }
    // Handles of requests and listeners share one space, so that no handle means two things.
    int32_t newHandle();
    // False for a handle that an earlier run of the service gave out.
    bool isOfThisRun(int32_t handle) const;
    // Keeps a history record when recording is on.
    void record(std::string text);
    // Logs and counts a refusal; returns `result` for the caller to hand back.
    int32_t reject(int32_t result, const std::string& why);
    // The answer item for a resource: its key and its value in force (none when it has none).
    VelaRequestData itemFor(const ResourceKey& key) const;
    // The configured name, or empty.
    std::string nameOf(const ResourceKey& key) const;
    // The key followed by the configured name, when there is one.
    std::string labelOf(const ResourceKey& key) const;

private:
    // A handle is this run's epoch in its high bits over a serial number. The epoch is drawn at
    // random at start: a handle a client kept from before a restart then names nothing (it is
    // refused as unknown) instead of somebody else's request. Drawn rather than counted on
    // storage, because the service may start before any writable partition is mounted (or on a
    // host with none given), and a counter whose file is lost or restored gives back the same
    // handles without a word; a draw needs nothing and repeats the previous run's epoch once in
    // 4095 starts. Not the start time either: init restarts a crashing service within the
    // clock's grain. Handles stay positive 32-bit numbers, as clients expect.
    static constexpr int kSerialBits = 19;
    static constexpr int32_t kSerialMask = (1 << kSerialBits) - 1;
    const int32_t mEpoch;
    int32_t mNextSerial = 1;
};

// Lines of the service's log, under its tag.
void serviceLog(int priority, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace aidl::vendor::norvo::hardware::vela::impl
