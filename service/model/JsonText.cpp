#include "JsonText.h"

#include <charconv>

namespace aidl::vendor::norvo::hardware::vela::impl {

namespace {

bool isContinuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

// The length of the well-formed UTF-8 sequence that starts text[i] (a byte >= 0x80), or 0.
// Overlong forms, surrogates and code points above U+10FFFF are not well formed: a strict
// reader refuses them, so they are replaced like any stray byte.
size_t utf8SequenceAt(std::string_view text, size_t i) {
    const auto at = [&](size_t k) -> int {
        return i + k < text.size() ? static_cast<unsigned char>(text[i + k]) : -1;
    };
    const int lead = at(0);
    size_t length = 0;
    int secondLow = 0x80, secondHigh = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) secondLow = 0xA0;   // overlong
        if (lead == 0xED) secondHigh = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) secondLow = 0x90;   // overlong
        if (lead == 0xF4) secondHigh = 0x8F;  // above U+10FFFF
    } else {
        return 0;
    }
    const int second = at(1);
    if (second < secondLow || second > secondHigh) return 0;
    for (size_t k = 2; k < length; ++k) {
        const int next = at(k);
        if (next < 0 || !isContinuation(static_cast<unsigned char>(next))) return 0;
    }
    return length;
}

}  // namespace

void appendJsonString(std::string* out, std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    out->push_back('"');
    for (size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            const size_t length = utf8SequenceAt(text, i);
            if (length == 0) {
                out->append("\\ufffd");
                ++i;
            } else {
                out->append(text.substr(i, length));
                i += length;
            }
            continue;
        }
        ++i;
        switch (c) {
            case '"':
                out->append("\\\"");
                break;
            case '\\':
                out->append("\\\\");
                break;
            case '\n':
                out->append("\\n");
                break;
            case '\r':
                out->append("\\r");
                break;
            case '\t':
                out->append("\\t");
                break;
            default:
                if (c < 0x20) {
                    out->append("\\u00");
                    out->push_back(kHex[c >> 4]);
                    out->push_back(kHex[c & 0xF]);
                } else {
                    out->push_back(static_cast<char>(c));
                }
        }
    }
    out->push_back('"');
}

std::optional<int64_t> parseIntegerValue(std::string_view text) {
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
        // from_chars would take a sign here; "0x-1" is not a number we write.
        if (text.front() == '-') return std::nullopt;
    }
    int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (text.empty() || error != std::errc() || stop != end) return std::nullopt;
    return value;
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
