// A timeline of what the service did, in the Chrome trace-event JSON format that the Perfetto UI
// and chrome://tracing open: a counter track per resource value, an async slice per request
// handle, instant events for notifications, thermal levels, rules and clients that died.
//
// The file is the "JSON array" form of that format, written one event per line and flushed as
// it goes, with no closing bracket until close(): the viewers accept an array that never ends,
// so a service killed mid-run still leaves a file that opens.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace aidl::vendor::norvo::hardware::vela::impl {

class TraceWriter {
public:
    using Args = std::vector<std::pair<std::string, std::string>>;

    // Nothing, with `error` set, when the file cannot be created.
    static std::unique_ptr<TraceWriter> open(const std::string& path, std::string* error);
    ~TraceWriter();  // closes the array

    // Ends the slices still open, writes a last event and closes the array. Later calls write
    // nothing: a process that leaves with _exit (velactl) closes the file first, while the
    // service's threads may still be reporting.
    void close();

    // A resource's value in force. Values that are not integers show as an instant instead
    // (a counter track can only hold numbers).
    void counter(const std::string& track, const std::string& value);
    // A request held from now until end().
    void begin(int32_t handle, const std::string& name, const Args& args);
    void end(int32_t handle, const std::string& how);
    // Something that happened at one moment: "notify", "thermal", "rule", "client died", ...
    void instant(const std::string& category, const std::string& name, const Args& args);

private:
    class Impl;
    explicit TraceWriter(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> mImpl;
};

}  // namespace aidl::vendor::norvo::hardware::vela::impl
