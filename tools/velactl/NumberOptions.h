// Numbers on velactl's command line: decimal, or hexadecimal after 0x, and nothing else (a
// leading zero does not make 0500 octal). Options declared through here are typed, show their
// kind in --help, and are checked against their range while the line parses, so that nothing
// is sent before every value is known to be good.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

namespace velactl {

// The value of `text` as a whole number; nothing when it is not one or does not fit.
std::optional<int64_t> parseWhole(const std::string& text);

struct Range {
    int64_t min;
    int64_t max;
    // Says what the range is for the message that refuses a value outside it; empty: "MIN to
    // MAX".
    const char* meaning = "";
};

inline constexpr Range kAnyInt32{INT32_MIN, INT32_MAX};
inline constexpr Range kAnyInt64{INT64_MIN, INT64_MAX};
inline constexpr Range kNonNegative{0, INT32_MAX};
inline constexpr Range kPositive{1, INT32_MAX};

// Why `text` is not a number in `range`, or empty when it is.
std::string checkNumber(const std::string& text, const Range& range);

// The validator behind numeric options: refuses what checkNumber refuses and hands CLI11 the
// value in plain decimal, which its own conversion then reads as written.
CLI::Validator numberIn(const Range& range);

template <typename T>
CLI::Option* addNumber(CLI::App& app, const std::string& name, T& target, const std::string& help,
                       const Range& range, const std::string& kind) {
    return app.add_option(name, target, help)->transform(numberIn(range))->type_name(kind);
}

}  // namespace velactl
