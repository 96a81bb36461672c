// A record of what callers asked of the service, to be played again later: every incoming call
// that changes state, with its time, its caller and the answer it got, one JSON object a line.
//
// The first line is a header with the wall-clock time of the record's start; each later line
// carries "t_us", the microseconds since that start on the monotonic clock, so that a record
// stays in order when the wall clock is set. Lines are written in the order the service made
// the changes (every state-changing call records under the service's lock), and a replay plays
// them in that order: two calls in one microsecond still replay one after the other. Each line
// is written whole with one write(2) and nothing is buffered: a service killed mid-run leaves a
// file whose every line parses.
//
// The record holds the callers' package names, identities and pids: it says who asked for what.
#pragma once

#include <aidl/vendor/norvo/hardware/vela/VelaRequestData.h>
#include <aidl/vendor/norvo/hardware/vela/VelaRequestParcel.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace aidl::vendor::norvo::hardware::vela::impl {

class CallRecorder {
public:
    // Nothing, with `error` set, when the file cannot be created.
    static std::unique_ptr<CallRecorder> open(const std::string& path, std::string* error);
    ~CallRecorder();
    CallRecorder(const CallRecorder&) = delete;
    CallRecorder& operator=(const CallRecorder&) = delete;

    // One call, made by the binder caller of the current thread. `args` is a JSON object's
    // members without braces (see the helpers below); `answer` is what the caller got back.
    void call(const char* name, const std::string& args, int64_t answer);
    // A holder's process ended while holding `handles` (they end with it).
    void holderGone(pid_t pid, const std::vector<int32_t>& handles);

    // Members describing a request parcel: its kind, items and every other field, the caller's
    // package and identity included, so that a replay can make the very same call.
    static std::string parcelArgs(const VelaRequestParcel& parcel);
    // A JSON array of request items.
    static std::string itemsJson(const std::vector<VelaRequestData>& items);

private:
    CallRecorder(int fd, std::chrono::steady_clock::time_point start);
    void writeLine(const std::string& body);

    std::mutex mLock;
    int mFd;
    const std::chrono::steady_clock::time_point mStart;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
