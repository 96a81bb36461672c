// The reference resource-control service, as the binder sees it: each call takes the service
// lock and goes to the part that owns it (requests and rules, listeners, dumps); the small
// calls (properties, notifications, state queries) are answered here.
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

#include "CallRecorder.h"
#include "ListenerRegistry.h"
#include "RequestBook.h"
#include "ServiceLimits.h"
#include "ServiceState.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

class VelaService : public BnVela, public ServiceLimits {
public:
    struct Options {
        ScenarioConfig config = ScenarioConfig::builtIn();
        // When set, path resources are mirrored as files under it.
        std::string sysfsRoot;
        size_t historyLimit = 512;
        // When set, every change of state is also written to this timeline.
        std::shared_ptr<TraceWriter> trace;
        // When set, every call that changes state is also written to this record.
        std::shared_ptr<CallRecorder> recorder;
        // When set, the service's time is this clock's, moved by its owner (a replay), and
        // timed requests end only when expireDue() is called.
        std::shared_ptr<VirtualClock> clock;

        // Opens the timeline and the record named on a command line (an empty path names
        // none); false, with what went wrong, when one cannot be created.
        bool openFiles(const std::string& tracePath, const std::string& recordPath,
                       std::string* error);
    };
    using Stats = ServiceStats;

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
    // The binder dump hook: the tables named in `args` (all when none) to `fd` (dumpsys).
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

    // --- For the embedding tool and tests -----------------------------------------------
    // Blocks until every callback queued so far has been delivered (or has failed).
    void waitForDeliveries();
    std::optional<std::string> valueOf(const ResourceKey& key) const;
    const ScenarioConfig& config() const { return mState.config; }
    Stats stats() const;
    struct InForce {
        ResourceKey key;
        std::string value;
        std::optional<Holder> holder;  // none: the default shows
    };
    std::vector<InForce> valuesInForce() const;

    // --- For a replay on a virtual clock (Options::clock) ---------------------------------
    std::optional<ServiceClock::time_point> nextDeadline() { return mRequests.nextDeadline(); }
    void expireDue(ServiceClock::time_point now) { mRequests.expireDue(now); }
    std::set<int32_t> activeHandles() const;
    void holderGone(pid_t pid, const std::vector<int32_t>& handles) {
        mRequests.holderGone(pid, handles);
    }

private:
    // A diagnostic request leaves its lines in `dump`, for the caller to log once unlocked.
    static bool changesState(const VelaRequestParcel& request);
    int32_t controlLocked(const VelaRequestParcel& request, std::vector<std::string>* dump);
    int32_t diagnosticLocked(const VelaRequestParcel& request, std::vector<std::string>* dump);
    int32_t thermalNotifyLocked(const VelaRequestParcel& request);
    int32_t notifyLocked(const VelaRequestParcel& request);
    ::ndk::ScopedAStatus stateLocked(const VelaRequestParcel& request,
                                     std::vector<VelaRequestData>* out);
    int32_t registerListener(Listener listener, const char* what, const std::string& refusal);

    // The one lock over the whole state (see ServiceState.h for why there is only one).
    mutable std::mutex mLock;
    ServiceState mState;
    // Declared after the state and in this order: each part's threads use what is above it,
    // and members are destroyed bottom up.
    ListenerRegistry mListeners;
    RequestBook mRequests;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
