// Arbitrary texts and character sets through the string helpers, checked against what the
// helpers promise rather than against a second implementation.
#include <fuzzer/FuzzedDataProvider.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

#include "stringUtils.h"

#define FUZZ_CHECK(cond) \
    if (!(cond)) __builtin_trap()

namespace {

bool inSet(char c, const char* set) {
    for (; *set != '\0'; ++set) {
        if (*set == c) return true;
    }
    return false;
}

void checkSplit(const std::string& text, const std::string& delimiters) {
    const std::vector<std::string> pieces = stringUtils::split(text, delimiters);
    if (delimiters.empty()) {
        FUZZ_CHECK(pieces.size() == (text.empty() ? 0u : 1u));
        return;
    }
    // The pieces are exactly the text with every delimiter taken out, cut at the delimiters.
    std::string joined, kept;
    for (const std::string& p : pieces) {
        FUZZ_CHECK(!p.empty());
        FUZZ_CHECK(p.find_first_of(delimiters) == std::string::npos);
        joined += p;
    }
    for (char c : text) {
        if (delimiters.find(c) == std::string::npos) kept += c;
    }
    FUZZ_CHECK(joined == kept);
}

void checkTrim(const std::string& text, const char* set) {
    const std::string left = stringUtils::trimLeft(text, set);
    const std::string right = stringUtils::trimRight(text, set);
    const std::string both = stringUtils::trim(text, set);
    FUZZ_CHECK(text.size() >= left.size() &&
               text.compare(text.size() - left.size(), left.size(), left) == 0);
    FUZZ_CHECK(text.compare(0, right.size(), right) == 0);
    FUZZ_CHECK(both.size() <= left.size() && left.compare(0, both.size(), both) == 0);
    if (!left.empty()) FUZZ_CHECK(!inSet(left.front(), set));
    if (!right.empty()) FUZZ_CHECK(!inSet(right.back(), set));
    if (!both.empty()) FUZZ_CHECK(!inSet(both.front(), set) && !inSet(both.back(), set));
}

void checkParseInt(const std::string& text) {
    const int32_t parsed = stringUtils::parseInt(text);
    errno = 0;
    char* end = nullptr;
    const long expected = std::strtol(text.c_str(), &end, 10);
    const bool valid =
            end != text.c_str() && errno != ERANGE && expected >= INT_MIN && expected <= INT_MAX;
    FUZZ_CHECK(parsed == (valid ? expected : 0));
    FUZZ_CHECK(stringUtils::parseInt(stringUtils::valueOf(parsed)) == parsed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const std::string set = in.ConsumeRandomLengthString(8);
    const std::string text = in.ConsumeRemainingBytesAsString();

    checkSplit(text, set);
    checkTrim(text, set.c_str());
    checkTrim(text, stringUtils::WHITESPACE);
    checkParseInt(text);
    FUZZ_CHECK(stringUtils::contains(text, set) == (text.find(set) != std::string::npos));
    FUZZ_CHECK(stringUtils::equals(text, set) == (text == set));
    return 0;
}
