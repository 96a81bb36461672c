#include <stdexcept>

#include "stringUtils.h"

namespace stringUtils {

const char* const WHITESPACE = " \n\r\t";

bool contains(std::string text, std::string part) {
    return text.find(part) != std::string::npos;
}

bool equals(std::string a, std::string b) {
    return a == b;
}

int32_t parseInt(std::string text) {
    // Callers feed this with untrusted scenario texts; a bad number must read as 0 rather than
    // unwind through the exported entry points.
    try {
        return std::stoi(text, nullptr, 10);
    } catch (const std::invalid_argument&) {
        return 0;
    } catch (const std::out_of_range&) {
        return 0;
    }
}

std::string valueOf(int32_t value) {
    return std::to_string(value);
}

std::string trimLeft(const std::string& text, const char* set) {
    if (set == nullptr) return text;
    size_t first = text.find_first_not_of(set);
    if (first == std::string::npos) return {};
    return text.substr(first);
}

std::string trimRight(const std::string& text, const char* set) {
    if (set == nullptr) return text;
    size_t last = text.find_last_not_of(set);
    if (last == std::string::npos) return {};
    return text.substr(0, last + 1);
}

std::string trim(const std::string& text, const char* set) {
    return trimRight(trimLeft(text, set), set);
}

std::vector<std::string> split(const std::string& text, std::string delimiters) {
    std::vector<std::string> pieces;
    size_t start = text.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        size_t end = text.find_first_of(delimiters, start);
        pieces.push_back(text.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) break;
        start = text.find_first_not_of(delimiters, end);
    }
    return pieces;
}

}  // namespace stringUtils
