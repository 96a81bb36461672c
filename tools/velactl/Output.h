// Everything velactl prints goes through here: readable lines by default, one JSON document
// per result with --json. Callbacks print from binder threads, so every line is written whole.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace velactl {

// How much of a line the user typed velactl repeats back in a message.
constexpr size_t kEchoLimit = 80;
// `text` cut to `limit` bytes, saying how long it was when cut.
std::string clip(const std::string& text, size_t limit);

class Output {
public:
    void setJson(bool json) { mJson = json; }
    bool json() const { return mJson; }

    // Prints `text` in readable mode, `value` (as one compact line) with --json.
    void result(const std::string& text, const Json::Value& value);
    // Readable mode only: progress and headings that mean nothing to a script.
    void note(const std::string& text);
    // To stderr, in both modes; a message past a few lines is cut (it may quote input).
    void error(const std::string& text);

    // One resource as JSON: {"id": "0x...", "name": ..., "path": ..., "value": ... or null}.
    static Json::Value resourceJson(uint32_t opcode, const std::string& path,
                                    const std::optional<std::string>& value,
                                    const std::string& name);

private:
    void write(FILE* stream, const std::string& text);

    std::mutex mLock;
    bool mJson = false;
};

}  // namespace velactl
