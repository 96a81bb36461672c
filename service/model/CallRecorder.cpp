#include "CallRecorder.h"

#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "BoundedWrite.h"
#include "JsonText.h"
#include "ServiceState.h"
#include "UtcText.h"

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

void appendOptionalString(std::string* out, const char* name, const std::optional<std::string>& v) {
    *out += ",\"";
    *out += name;
    *out += "\":";
    if (v) {
        appendJsonString(out, *v);
    } else {
        *out += "null";
    }
}

}  // namespace

std::unique_ptr<CallRecorder> CallRecorder::open(const std::string& path, std::string* error) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0) {
        *error = "cannot create the record " + path + ": " + strerror(errno);
        return nullptr;
    }
    std::unique_ptr<CallRecorder> recorder(new CallRecorder(fd, std::chrono::steady_clock::now()));
    const auto wall = std::chrono::system_clock::now();
    const int64_t unixMs =
            std::chrono::duration_cast<std::chrono::milliseconds>(wall.time_since_epoch()).count();
    // Version 2 times its lines in microseconds, under a name of its own ("t_us", where version 1
    // had "t" in milliseconds): a reader that knows only version 1 refuses the lines rather than
    // taking microseconds for milliseconds.
    recorder->writeLine("\"record\":\"vela-calls\",\"version\":2,\"start_unix_ms\":" +
                        std::to_string(unixMs) + ",\"start_utc\":\"" + utcText(unixMs * 1000, 3) +
                        "\",\"t_clock\":\"monotonic, microseconds since the record's start\"");
    return recorder;
}

// Created with mode 0600: the record names the callers' packages and pids.
CallRecorder::CallRecorder(int fd, std::chrono::steady_clock::time_point start)
    : mFd(fd), mStart(start) {}

CallRecorder::~CallRecorder() {
    if (mFd >= 0) ::close(mFd);
}

void CallRecorder::call(const char* name, const std::string& args, int64_t answer) {
    std::string body = "\"call\":\"";
    body += name;
    body += "\",\"pid\":" + std::to_string(callingPid());
    body += ",\"uid\":" + std::to_string(callingUid());
    body += ",\"args\":{" + args + "},\"answer\":" + std::to_string(answer);
    writeLine(body);
}

void CallRecorder::holderGone(pid_t pid, const std::vector<int32_t>& handles) {
    std::string body = "\"call\":\"holderGone\",\"pid\":" + std::to_string(pid) + ",\"handles\":[";
    for (size_t i = 0; i < handles.size(); ++i) {
        body += (i ? "," : "") + std::to_string(handles[i]);
    }
    writeLine(body + "]");
}

std::string CallRecorder::itemsJson(const std::vector<VelaRequestData>& items) {
    std::string out = "[";
    for (size_t i = 0; i < items.size(); ++i) {
        const VelaRequestData& item = items[i];
        out += i ? ",{" : "{";
        out += "\"id\":" + std::to_string(item.id) + ",\"param\":" + std::to_string(item.param);
        appendOptionalString(&out, "value", item.value);
        appendOptionalString(&out, "value2", item.value2);
        appendOptionalString(&out, "value3", item.value3);
        out += "}";
    }
    return out + "]";
}

std::string CallRecorder::parcelArgs(const VelaRequestParcel& parcel) {
    std::string out = "\"requestType\":" + std::to_string(parcel.requestType);
    out += ",\"items\":" + itemsJson(parcel.requestDatas);
    out += ",\"optionFlag\":";
    out += parcel.optionFlag ? "true" : "false";
    out += ",\"param1\":" + std::to_string(parcel.param1);
    out += ",\"param2\":" + std::to_string(parcel.param2);
    out += ",\"param4\":" + std::to_string(parcel.param4);
    out += ",\"param6\":" + std::to_string(parcel.param6);
    out += ",\"paths\":";
    if (parcel.paths) {
        out += "[";
        for (size_t i = 0; i < parcel.paths->size(); ++i) {
            if (i) out += ",";
            const auto& text = (*parcel.paths)[i];
            if (text) {
                appendJsonString(&out, *text);
            } else {
                out += "null";
            }
        }
        out += "]";
    } else {
        out += "null";
    }
    appendOptionalString(&out, "packageName", parcel.packageName);
    appendOptionalString(&out, "identity", parcel.identity);
    out += ",\"extraValues\":";
    if (parcel.extraValues) {
        out += "[";
        for (size_t i = 0; i < parcel.extraValues->size(); ++i) {
            out += (i ? "," : "") + std::to_string((*parcel.extraValues)[i]);
        }
        out += "]";
    } else {
        out += "null";
    }
    // A callback cannot be recorded, only that there was one.
    out += ",\"callback\":";
    out += parcel.callback ? "true" : "false";
    return out;
}

void CallRecorder::writeLine(const std::string& body) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mFd < 0) return;
    // Read under the lock, so that the times never go back down the file.
    const int64_t us = std::chrono::duration_cast<std::chrono::microseconds>(
                               std::chrono::steady_clock::now() - mStart)
                               .count();
    // The header has no time of its own: its start fields are the time base.
    std::string line =
            body.rfind("\"record\"", 0) == 0 ? "{" : "{\"t_us\":" + std::to_string(us) + ",";
    line += body;
    line += "}\n";
    if (const int error = writeWhole(mFd, line); error != 0) {
        // A full disk must not stop the service: the record ends here, and says so once.
        serviceLog(ANDROID_LOG_ERROR, "record: write failed (%s); recording stops",
                   strerror(error));
        ::close(mFd);
        mFd = -1;
    }
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
