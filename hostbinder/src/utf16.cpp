// Written from the rules of libutils' Unicode.cpp (utf8_to_utf16_length, utf8_to_utf16,
// utf16_to_utf8_length, utf16_to_utf8): the length of a sequence is read from its first byte
// alone, continuation bytes are taken as they come without being checked, and on the way back
// a surrogate that is not half of a pair, or a value past U+10FFFF, produces nothing.
#include "utf16.h"

#include <cstring>

namespace {

char16_t unitAt(const uint8_t* text, size_t i) {
    char16_t unit;
    memcpy(&unit, text + i * sizeof(unit), sizeof(unit));
    return unit;
}

void putUnit(uint8_t* out, size_t i, uint32_t unit) {
    const auto value = static_cast<char16_t>(unit);
    memcpy(out + i * sizeof(value), &value, sizeof(value));
}

// The sequence length the device reads from a first byte: 0xC0-0xDF start two bytes, 0xE0-0xEF
// three, 0xF0-0xFF four, and everything else (ASCII, and a stray continuation byte) one.
size_t sequenceLength(uint8_t first) {
    switch (first >> 4) {
        case 0xC:
        case 0xD:
            return 2;
        case 0xE:
            return 3;
        case 0xF:
            return 4;
        default:
            return 1;
    }
}

// The first byte keeps the bits its length leaves it; each later byte adds its low six bits,
// whatever its high two are.
uint32_t decode(const uint8_t* at, size_t length) {
    static constexpr uint8_t kFirstMask[] = {0, 0xff, 0x1f, 0x0f, 0x07};
    uint32_t value = at[0] & kFirstMask[length];
    for (size_t i = 1; i < length; ++i) value = (value << 6) | (at[i] & 0x3fu);
    return value;
}

bool isHighSurrogate(char16_t unit) {
    return (unit & 0xfc00) == 0xd800;
}
bool isLowSurrogate(char16_t unit) {
    return (unit & 0xfc00) == 0xdc00;
}

size_t utf8Length(uint32_t value) {
    if (value < 0x80) return 1;
    if (value < 0x800) return 2;
    if (value < 0x10000) return value >= 0xd800 && value <= 0xdfff ? 0 : 3;
    return value <= 0x10ffff ? 4 : 0;
}

}  // namespace

int64_t utf16UnitsOfUtf8(const uint8_t* text, size_t length) {
    int64_t units = 0;
    size_t at = 0;
    while (at < length) {
        const size_t n = sequenceLength(text[at]);
        if (n > length - at) return -1;
        units += decode(text + at, n) > 0xffff ? 2 : 1;
        at += n;
    }
    return units;
}

void utf8ToUtf16(const uint8_t* text, size_t length, uint8_t* out, size_t units) {
    size_t at = 0;
    size_t written = 0;
    while (at < length && written < units) {
        const size_t n = sequenceLength(text[at]);
        const uint32_t value = decode(text + at, n);
        at += n;
        if (value <= 0xffff) {
            putUnit(out, written++, value);
            continue;
        }
        // Beyond U+10FFFF (a four-byte sequence can say up to U+1FFFFF) the pair is formed
        // all the same, and decodes to nothing on the way back.
        const uint32_t offset = value - 0x10000;
        putUnit(out, written++, 0xd800 + (offset >> 10));
        if (written == units) return;
        putUnit(out, written++, 0xdc00 + (offset & 0x3ff));
    }
}

size_t utf8BytesOfUtf16(const uint8_t* text, size_t units) {
    size_t bytes = 0;
    for (size_t i = 0; i < units; ++i) {
        const char16_t unit = unitAt(text, i);
        if (isHighSurrogate(unit) && i + 1 < units && isLowSurrogate(unitAt(text, i + 1))) {
            bytes += 4;
            ++i;
        } else {
            bytes += utf8Length(unit);
        }
    }
    return bytes;
}

void utf16ToUtf8(const uint8_t* text, size_t units, char* out) {
    auto* at = reinterpret_cast<uint8_t*>(out);
    for (size_t i = 0; i < units; ++i) {
        const char16_t unit = unitAt(text, i);
        uint32_t value = unit;
        if (isHighSurrogate(unit) && i + 1 < units) {
            const char16_t next = unitAt(text, i + 1);
            if (isLowSurrogate(next)) {
                value = 0x10000 + ((value - 0xd800) << 10) + (next - 0xdc00u);
                ++i;
            }
        }
        switch (utf8Length(value)) {
            case 1:
                *at++ = static_cast<uint8_t>(value);
                break;
            case 2:
                *at++ = static_cast<uint8_t>(0xc0 | (value >> 6));
                *at++ = static_cast<uint8_t>(0x80 | (value & 0x3f));
                break;
            case 3:
                *at++ = static_cast<uint8_t>(0xe0 | (value >> 12));
                *at++ = static_cast<uint8_t>(0x80 | ((value >> 6) & 0x3f));
                *at++ = static_cast<uint8_t>(0x80 | (value & 0x3f));
                break;
            case 4:
                *at++ = static_cast<uint8_t>(0xf0 | (value >> 18));
                *at++ = static_cast<uint8_t>(0x80 | ((value >> 12) & 0x3f));
                *at++ = static_cast<uint8_t>(0x80 | ((value >> 6) & 0x3f));
                *at++ = static_cast<uint8_t>(0x80 | (value & 0x3f));
                break;
            default:  // a lone surrogate: nothing
                break;
        }
    }
    *at = '\0';
}
