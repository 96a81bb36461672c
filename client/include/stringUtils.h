// Byte-string helpers of the action wrapper. Exported: which arguments are taken by value is
// part of the library's interface, so it is kept even where a reference would do.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "pax_export.h"

namespace stringUtils {

// Blank, line feed, carriage return and tab; vertical tab and form feed are deliberately not
// members.
PAX_EXPORT extern const char* const WHITESPACE;

// True when `part` occurs in `text`; an empty `part` occurs everywhere.
PAX_EXPORT bool contains(std::string text, std::string part);
PAX_EXPORT bool equals(std::string a, std::string b);
// Base 10, leading whitespace and a sign accepted, trailing garbage ignored; 0 when there is no
// number at the start or it does not fit 32 bits.
PAX_EXPORT int32_t parseInt(std::string text);
PAX_EXPORT std::string valueOf(int32_t value);

// `set` is a zero-terminated list of the characters to strip; a null `set` strips nothing.
PAX_EXPORT std::string trimLeft(const std::string& text, const char* set);
PAX_EXPORT std::string trimRight(const std::string& text, const char* set);
PAX_EXPORT std::string trim(const std::string& text, const char* set);

// Every character of `delimiters` separates pieces; empty pieces are dropped.
PAX_EXPORT std::vector<std::string> split(const std::string& text, std::string delimiters);

}  // namespace stringUtils
