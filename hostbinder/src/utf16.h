// The device's conversions between the API's UTF-8 and the wire's UTF-16. They are lenient
// where the device is lenient (a byte that starts no valid sequence still decodes into some
// character) and refuse only what the device refuses, so a text that travels here travels
// there, and arrives as the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

// UTF-16 units that `length` bytes of UTF-8 become, or -1 when the last sequence is cut off by
// the end of the text (the device's only refusal).
int64_t utf16UnitsOfUtf8(const uint8_t* text, size_t length);
// Writes the `units` units that utf16UnitsOfUtf8 counted, in host order, to `out` (a parcel's
// bytes: 2 * units of room, any alignment).
void utf8ToUtf16(const uint8_t* text, size_t length, uint8_t* out, size_t units);

// UTF-8 bytes that `units` units of UTF-16 become, without a terminator. A surrogate without
// its partner takes no bytes: it vanishes on the way back, as on the device.
// `text` holds the units in host order, at any alignment.
size_t utf8BytesOfUtf16(const uint8_t* text, size_t units);
// Writes the bytes utf8BytesOfUtf16 counted, then a terminator.
void utf16ToUtf8(const uint8_t* text, size_t units, char* out);
