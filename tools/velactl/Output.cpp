#include "Output.h"

#include <cinttypes>
#include <cstdio>

namespace velactl {

std::string clip(const std::string& text, size_t limit) {
    if (text.size() <= limit) return text;
    return text.substr(0, limit) + "... (" + std::to_string(text.size()) + " bytes)";
}

void Output::write(FILE* stream, const std::string& text) {
    std::lock_guard<std::mutex> lock(mLock);
    fputs(text.c_str(), stream);
    if (text.empty() || text.back() != '\n') fputc('\n', stream);
    fflush(stream);
}

void Output::result(const std::string& text, const Json::Value& value) {
    if (!mJson) {
        write(stdout, text);
        return;
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    write(stdout, Json::writeString(builder, value));
}

void Output::note(const std::string& text) {
    if (!mJson) write(stdout, text);
}

void Output::error(const std::string& text) {
    write(stderr, "velactl: " + clip(text, 16 * kEchoLimit));
}

Json::Value Output::resourceJson(uint32_t opcode, const std::string& path,
                                 const std::optional<std::string>& value, const std::string& name) {
    Json::Value item(Json::objectValue);
    if (opcode != 0) {
        char text[16];
        snprintf(text, sizeof(text), "0x%08" PRIx32, opcode);
        item["id"] = text;
    } else {
        item["path"] = path;
    }
    if (!name.empty()) item["name"] = name;
    item["value"] = value ? Json::Value(*value) : Json::Value(Json::nullValue);
    return item;
}

}  // namespace velactl
