// The reference resource-control service: keeps the value in force of every resource, the
// active requests with their expiry, rules, listeners, history and properties, and answers
// every request kind that the client library sends.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/BnVela.h>
#include <android/binder_auto_utils.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ExpiryTimer.h"
#include "Notifier.h"
#include "ResourceTable.h"
#include "ScenarioConfig.h"
#include "SysfsMirror.h"
#include "TraceWriter.h"
#include "vela_protocol.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

using namespace ::aidl::vendor::norvo::hardware::vela::protocol;

constexpr const char kVelaLogTag[] = "vela-service";
constexpr const char kPowerModeProperty[] = "vendor.vela.power_mode";

class VelaService : public BnVela {
public:
    struct Options {
        ScenarioConfig config = ScenarioConfig::builtIn();
        // When set, path resources are mirrored as files under it.
        std::string sysfsRoot;
        size_t historyLimit = 512;
        // When set, every change of state is also written to this timeline.
        std::shared_ptr<TraceWriter> trace;
    };

    // Limits that keep one client from growing the service without bound.
    static constexpr size_t kMaxItems = 256;
    static constexpr size_t kMaxText = 1024;
    static constexpr size_t kMaxRequests = 4096;
    static constexpr size_t kMaxListeners = 1024;
    static constexpr size_t kMaxRules = 1024;
    static constexpr int64_t kMaxDurationMs = 7LL * 24 * 3600 * 1000;
    // propertyGet answers must fit the clients' 256-byte buffer, terminator included.
    static constexpr size_t kMaxPropertyValue = 255;

    VelaService();
    explicit VelaService(Options options);
    ~VelaService() override;

    ::ndk::ScopedAStatus init() override;
    ::ndk::ScopedAStatus resCtlRequest(const VelaRequestParcel& request, int32_t* out) override;
    ::ndk::ScopedAStatus resCtlRelease(int32_t handle, int32_t* out) override;
    ::ndk::ScopedAStatus resStateRequest(const VelaRequestParcel& request,
                                         std::vector<VelaRequestData>* out) override;
    ::ndk::ScopedAStatus resListeningRegister(const VelaRequestParcel& request,
                                              const std::shared_ptr<IVelaCallback>& callback,
                                              int32_t* out) override;
    ::ndk::ScopedAStatus resListeningUnregister(int32_t handle, int32_t* out) override;
    ::ndk::ScopedAStatus propertyGet(const std::string& key, std::string* out) override;
    ::ndk::ScopedAStatus propertySet(const std::string& key, const std::string& value,
                                     int32_t* out) override;
    ::ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>& ids,
                                                  const std::shared_ptr<IVelaCallback>& callback,
                                                  int32_t* out) override;
    ::ndk::ScopedAStatus thermalListeningUnregister(int32_t handle, int32_t* out) override;
    ::ndk::ScopedAStatus reserved(int32_t* out) override;
    ::ndk::ScopedAStatus setRelatedSysInfo(int32_t info, int64_t value, int32_t* out) override;
    ::ndk::ScopedAStatus ruleCtl(int32_t ruleId, int32_t status,
                                 const std::vector<VelaRequestData>& items, int32_t* out) override;

    // --- For the embedding tool and tests -----------------------------------------------
    // Blocks until every callback queued so far has been delivered (or has failed).
    void waitForDeliveries();
    std::optional<std::string> valueOf(const ResourceKey& key) const;
    const ScenarioConfig& config() const { return mConfig; }

    struct Stats {
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
    Stats stats() const;

private:
    using Clock = ExpiryTimer::Clock;

    struct Request {
        int32_t handle = 0;
        int32_t kind = 0;
        std::optional<int32_t> event;
        std::string package;
        std::string identity;
        int64_t durationMs = 0;
        pid_t pid = 0;
        Clock::time_point made;
        std::optional<Clock::time_point> deadline;
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

    // A diagnostic request leaves its lines in `dump`, for the caller to log once unlocked.
    int32_t controlLocked(const VelaRequestParcel& request, std::vector<std::string>* dump);
    int32_t acquireLocked(const VelaRequestParcel& request);
    int32_t releaseLocked(int32_t handle, const char* why);
    // What a release and an expiry share once they have logged and counted.
    void endRequestLocked(std::map<int32_t, Request>::iterator request);
    int32_t diagnosticLocked(const VelaRequestParcel& request, std::vector<std::string>* dump);
    int32_t thermalNotifyLocked(const VelaRequestParcel& request);
    int32_t notifyLocked(const VelaRequestParcel& request);
    ::ndk::ScopedAStatus stateLocked(const VelaRequestParcel& request,
                                     std::vector<VelaRequestData>* out);

    // Takes the items' resources from `first` on. Strict: an item that names a resource but
    // carries no value is an error. Lenient (rules): such an item is skipped.
    bool readResources(const std::vector<VelaRequestData>& items, size_t first, bool lenient,
                       ResourceTable::Values* out, std::string* why) const;
    // Listener registration: the two forms share everything after their own checks.
    int32_t addListener(Listener listener, const char* what);
    int32_t removeListener(int32_t handle, bool thermal, const char* what);
    void forgetLink(uint64_t link);
    static void onClientDied(void* cookie);

    // Mirrors the changes and queues the listeners' callbacks.
    void publishLocked(const std::vector<Change>& changes);
    // Listener 0: a request's one-shot callback.
    void queueDelivery(int32_t listener, std::shared_ptr<IVelaCallback> callback,
                       std::vector<VelaRequestData> items);
    void deliver(int32_t listener, std::shared_ptr<IVelaCallback> callback,
                 std::vector<VelaRequestData> items);
    void onExpired(int32_t handle, Clock::time_point deadline);

    VelaRequestData itemFor(const ResourceKey& key) const;
    int32_t newHandleLocked();
    void recordLocked(std::string text);
    std::string describeLocked(const Request& request) const;
    std::string nameOf(const ResourceKey& key) const;
    std::vector<std::string> dumpLinesLocked(int32_t code) const;
    int32_t rejectLocked(int32_t result, const std::string& why);

    const ScenarioConfig mConfig;
    const size_t mHistoryLimit;
    const Clock::time_point mStarted = Clock::now();
    std::unique_ptr<SysfsMirror> mMirror;
    ::ndk::ScopedAIBinder_DeathRecipient mDeathRecipient;

    mutable std::mutex mLock;
    ResourceTable mTable;
    std::map<int32_t, Request> mRequests;
    std::map<int32_t, Listener> mListeners;
    std::map<int32_t, Rule> mRules;
    std::map<std::string, std::string> mProperties;
    std::map<int32_t, std::string> mThermalLevels;
    std::deque<std::string> mHistory;
    bool mRecording = false;
    int32_t mNextHandle = 1;
    int32_t mThermalSequence = 0;
    Stats mCounters;

    // Declared last: their threads call back into the state above, so they go first.
    std::unique_ptr<Notifier> mNotifier;
    std::unique_ptr<ExpiryTimer> mTimer;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
