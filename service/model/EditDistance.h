// How many single-letter edits turn one name into another: the measure behind every "did you
// mean" of the service's verifier and of velactl, so that both suggest the same names.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace aidl::vendor::norvo::hardware::vela::impl {

// Levenshtein distance, one row at a time: names are short, so O(|a|·|b|) time is nothing and
// O(|b|) memory keeps it allocation-light.
inline size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

}  // namespace aidl::vendor::norvo::hardware::vela::impl
