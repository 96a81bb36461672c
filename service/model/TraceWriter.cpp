#include "TraceWriter.h"

#include <android/log.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#include "BoundedWrite.h"
#include "JsonText.h"
#include "UtcText.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

constexpr const char kLogTag[] = "vela-service";  // the service's own tag: its lines go together
constexpr const char kProcessName[] = "vela-service";

// How a slice still open at close() ends: without an end the viewers draw it as never ending,
// which reads as a request that outlived the service.
constexpr const char kStillHeld[] = "still held when the trace closed";

// An argument that is a whole number written plainly goes out as a JSON number, so that the
// viewers can sort and compare it; any other text ("0x10", "007", a name) stays as written.
void appendArgs(std::string* out, const TraceWriter::Args& args) {
    out->append(",\"args\":{");
    for (size_t i = 0; i < args.size(); ++i) {
        if (i > 0) out->push_back(',');
        appendJsonString(out, args[i].first);
        out->push_back(':');
        const auto number = parseIntegerValue(args[i].second);
        if (number && std::to_string(*number) == args[i].second) {
            out->append(args[i].second);
        } else {
            appendJsonString(out, args[i].second);
        }
    }
    out->push_back('}');
}

}  // namespace

// Every event is formatted as the fields after "ts" (the tail); the writer adds the time under
// its lock, so that the file is in time order whatever thread the event came from.
class TraceWriter::Impl {
public:
    Impl(int fd, std::string path)
        : mFd(fd), mPath(std::move(path)), mPid(std::to_string(getpid())) {}
    ~Impl() {
        if (mFd >= 0) ::close(mFd);  // only when open() gave up on the file
    }

    // "pid" and "tid" for the event's tail. Every event belongs to the one process; the tid is
    // the pid, the process's main thread: counters and async slices get tracks of their own,
    // so which binder thread reported an event would only scatter them.
    std::string owner() const { return ",\"pid\":" + mPid + ",\"tid\":" + mPid; }

    // The errno of the failure when the first line cannot be written; 0 when it was.
    int writeHeader() {
        std::string tail = "\"ph\":\"M\",\"name\":\"process_name\"" + owner();
        appendArgs(&tail, {{"name", kProcessName}});
        std::lock_guard<std::mutex> lock(mLock);
        if (writeLocked("[\n", tail, ",\n") && writeLocked("", anchorTail(), ",\n")) return 0;
        return mError;
    }

    // The wall-clock time of the time base, so that the timeline can be lined up with a log or
    // a device trace: an event's wall time is the anchor plus its "ts". The array form of the
    // format has no field the viewers read a wall clock from (their clock snapshots belong to
    // the protobuf form, and "clock_sync" pairs two traces by a shared marker, not a time), so
    // it is a metadata event: ui.perfetto.dev and chrome://tracing accept and skip a metadata
    // name they do not know, and jq or a script finds it by name.
    std::string anchorTail() const {
        const int64_t unixUs =
                std::chrono::duration_cast<std::chrono::microseconds>(mWallStart.time_since_epoch())
                        .count();
        std::string tail = "\"ph\":\"M\",\"name\":\"clock_anchor\"" + owner();
        tail += ",\"args\":{\"ts_zero_unix_us\":" + std::to_string(unixUs) + ",\"ts_zero_utc\":\"" +
                utcText(unixUs, 6) +
                "\",\"ts_clock\":\"monotonic, microseconds since the timeline was opened\"}";
        return tail;
    }

    void event(const std::string& tail) {
        std::lock_guard<std::mutex> lock(mLock);
        writeLocked("", tail, ",\n");
    }

    void begin(int32_t handle, const std::string& name, const std::string& tail) {
        std::lock_guard<std::mutex> lock(mLock);
        if (mFd < 0) return;
        mOpen[handle] = name;
        writeLocked("", tail, ",\n");
    }

    void end(int32_t handle, const std::string& how) {
        std::lock_guard<std::mutex> lock(mLock);
        if (mFd < 0) return;
        writeLocked("", endTailLocked(handle, how), ",\n");
    }

    void close() {
        std::lock_guard<std::mutex> lock(mLock);
        while (mFd >= 0 && !mOpen.empty()) {
            writeLocked("", endTailLocked(mOpen.begin()->first, kStillHeld), ",\n");
        }
        // The last event carries no comma, so that with the bracket the file is strict JSON.
        std::string tail = "\"ph\":\"i\",\"s\":\"p\",\"cat\":\"trace\",\"name\":\"trace closed\"";
        tail += owner();
        if (!writeLocked("", tail, "\n]\n")) return;
        if (::close(mFd) != 0) logFailure(errno);
        mFd = -1;
    }

private:
    // The end of the slice `handle` began, with the slice's name: the viewers pair "b" and "e"
    // by category and id, and some also want the name to match.
    std::string endTailLocked(int32_t handle, const std::string& how) {
        std::string name = "request";  // a handle begun before a failure, or never begun
        if (auto it = mOpen.find(handle); it != mOpen.end()) {
            name = std::move(it->second);
            mOpen.erase(it);
        }
        std::string tail = "\"ph\":\"e\",\"cat\":\"request\",\"id\":" + std::to_string(handle);
        tail += ",\"name\":";
        appendJsonString(&tail, name);
        tail += owner();
        appendArgs(&tail, {{"ended", how}});
        return tail;
    }

    // Writes one line straight to the file, with no buffer in between, so that a process
    // killed at any moment leaves whole events behind. The first failure (a full disk, a file
    // closed under us) truncates the file back to its last whole event, is logged once, and
    // ends tracing: the service goes on without its timeline rather than failing over it.
    bool writeLocked(const char* before, const std::string& tail, const char* after) {
        if (mFd < 0) return false;
        const auto us = std::chrono::duration_cast<std::chrono::microseconds>(
                                std::chrono::steady_clock::now() - mStart)
                                .count();
        std::string line = before;
        line += "{\"ts\":" + std::to_string(us) + ",";
        line += tail;
        line += "}";
        line += after;
        if (const int error = writeWhole(mFd, line); error != 0) {
            failLocked(error);
            return false;
        }
        mWhole += static_cast<off_t>(line.size());
        return true;
    }

    void failLocked(int error) {
        mError = error;
        if (ftruncate(mFd, mWhole) != 0) {
            // Nothing more can be done: a reader may find half an event at the end.
        }
        if (mWhole > 0) {  // open() reports a failure of the first line itself
            ::close(mFd);
            mFd = -1;
            logFailure(error);
        }
        mOpen.clear();
    }

    void logFailure(int error) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag,
                            "timeline %s: cannot write (%s); tracing stops", mPath.c_str(),
                            strerror(error));
    }

    std::mutex mLock;
    int mFd;  // -1 once closed or failed
    int mError = 0;
    const std::string mPath;
    const std::string mPid;
    // Microseconds from a steady clock since the file was opened: a wall-clock step would
    // otherwise reorder the timeline, and small numbers read easily in the viewers.
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    // The wall clock at the same moment, read once: the anchor of the time base.
    const std::chrono::system_clock::time_point mWallStart = std::chrono::system_clock::now();
    std::map<int32_t, std::string> mOpen;  // handle -> name of the slices begun and not ended
    off_t mWhole = 0;                      // the bytes of whole events written so far
};

std::unique_ptr<TraceWriter> TraceWriter::open(const std::string& path, std::string* error) {
    // O_CLOEXEC: the file is not handed to programs the process starts (velactl restarts
    // itself).
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        *error = "cannot create " + path + ": " + strerror(errno);
        return nullptr;
    }
    auto impl = std::make_unique<Impl>(fd, path);
    // A file that cannot take even its first line is refused now, while the caller can still
    // say so, rather than logged later.
    if (const int failed = impl->writeHeader(); failed != 0) {
        *error = "cannot write " + path + ": " + strerror(failed);
        return nullptr;
    }
    return std::unique_ptr<TraceWriter>(new TraceWriter(std::move(impl)));
}

TraceWriter::TraceWriter(std::unique_ptr<Impl> impl) : mImpl(std::move(impl)) {}

TraceWriter::~TraceWriter() {
    close();
}

void TraceWriter::close() {
    mImpl->close();
}

// One counter track per resource, its one series named "value". A value that is not a whole
// number cannot sit on a counter track, so it becomes a process instant of the same name
// beside it: the change is still seen, and the track keeps its last number.
void TraceWriter::counter(const std::string& track, const std::string& value) {
    std::string tail;
    const auto number = parseIntegerValue(value);
    tail += number ? "\"ph\":\"C\"" : "\"ph\":\"i\",\"s\":\"p\"";
    tail += ",\"cat\":\"resource\",\"name\":";
    appendJsonString(&tail, track);
    tail += mImpl->owner();
    if (number) {
        tail += ",\"args\":{\"value\":" + std::to_string(*number) + "}";
    } else {
        appendArgs(&tail, {{"value", value}});
    }
    mImpl->event(tail);
}

// A request is an async slice keyed by its handle rather than a begin/end pair on a thread:
// requests overlap, end in any order and are released from threads other than the one that
// made them, which thread slices (which must nest) cannot show.
void TraceWriter::begin(int32_t handle, const std::string& name, const Args& args) {
    std::string tail = "\"ph\":\"b\",\"cat\":\"request\",\"id\":" + std::to_string(handle);
    tail += ",\"name\":";
    appendJsonString(&tail, name);
    tail += mImpl->owner();
    appendArgs(&tail, args);
    mImpl->begin(handle, name, tail);
}

void TraceWriter::end(int32_t handle, const std::string& how) {
    mImpl->end(handle, how);
}

// Instants are process-scoped ("s":"p"): everything here happens in the one service, and a
// global instant would be drawn on a track of its own, away from the counters it explains.
void TraceWriter::instant(const std::string& category, const std::string& name, const Args& args) {
    std::string tail = "\"ph\":\"i\",\"s\":\"p\",\"cat\":";
    appendJsonString(&tail, category);
    tail += ",\"name\":";
    appendJsonString(&tail, name);
    tail += mImpl->owner();
    appendArgs(&tail, args);
    mImpl->event(tail);
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
