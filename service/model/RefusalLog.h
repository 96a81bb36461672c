// The service's recent refusals, kept so that a caller's tools can tell their user why a call
// was refused: the result code alone says only "bad request". Bounded: the oldest go first.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace aidl::vendor::norvo::hardware::vela::impl {

struct Refusal {
    uint64_t sequence = 0;  // counts every refusal since the start: the latest is the highest
    std::chrono::system_clock::time_point when;
    std::chrono::steady_clock::time_point at;  // the same moment, for its age
    pid_t pid = 0;
    std::string call;  // the binder call it came through, or empty when none was named
    int32_t result = 0;
    std::string reason;
};

class RefusalLog {
public:
    static constexpr size_t kKept = 64;

    void add(pid_t pid, int32_t result, const std::string& reason);
    const std::deque<Refusal>& entries() const { return mEntries; }

private:
    std::deque<Refusal> mEntries;
    uint64_t mSequence = 0;
};

// Names the binder call this thread is serving, for the refusals it makes, while it lives.
class ServingCall {
public:
    explicit ServingCall(const char* name);
    ~ServingCall();
    ServingCall(const ServingCall&) = delete;
    ServingCall& operator=(const ServingCall&) = delete;

    // The call named on this thread, or empty.
    static const char* current();

private:
    const char* mOuter;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
