#include "NumberOptions.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

namespace velactl {

std::optional<int64_t> parseWhole(const std::string& text) {
    const bool negative = !text.empty() && text[0] == '-';
    std::string digits = text.substr(negative ? 1 : 0);
    int base = 10;
    if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        base = 16;
        digits = digits.substr(2);
    }
    if (digits.empty()) return std::nullopt;
    for (char c : digits) {
        if (!(base == 16 ? isxdigit(static_cast<unsigned char>(c))
                         : isdigit(static_cast<unsigned char>(c)))) {
            return std::nullopt;
        }
    }
    errno = 0;
    const unsigned long long magnitude = strtoull(digits.c_str(), nullptr, base);
    if (errno != 0) return std::nullopt;
    if (negative) {
        if (magnitude > static_cast<unsigned long long>(INT64_MAX) + 1) return std::nullopt;
        return static_cast<int64_t>(0 - magnitude);
    }
    if (magnitude > static_cast<unsigned long long>(INT64_MAX)) return std::nullopt;
    return static_cast<int64_t>(magnitude);
}

std::string checkNumber(const std::string& text, const Range& range) {
    const auto value = parseWhole(text);
    if (!value) {
        return "'" + text +
               "' is not a whole number (write it in decimal, or in hexadecimal "
               "after 0x)";
    }
    if (*value >= range.min && *value <= range.max) return "";
    const std::string allowed =
            *range.meaning != '\0' ? std::string(range.meaning)
                                   : std::to_string(range.min) + " to " + std::to_string(range.max);
    if (*value < 0 && range.min >= 0) return text + " is negative; give " + allowed;
    return text + " is out of range; give " + allowed;
}

CLI::Validator numberIn(const Range& range) {
    return CLI::Validator(
            [range](std::string& text) {
                std::string why = checkNumber(text, range);
                if (why.empty()) text = std::to_string(*parseWhole(text));
                return why;
            },
            "", "");
}

}  // namespace velactl
