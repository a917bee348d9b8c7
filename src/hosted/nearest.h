// hosted/nearest.h - the known word that a misspelt one was probably meant to be.
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <numeric>
#include <span>
#include <string_view>
#include <tuple>
#include <vector>

namespace hosted {

// The number of characters to insert, delete or replace to make one word of the other.
inline size_t edit_distance(std::string_view one, std::string_view other) {
    std::vector<size_t> row(other.size() + 1);  // distances of a prefix of one to every prefix of other
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < one.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t k = 0; k < other.size(); ++k) {
            const size_t replaced = diagonal + (one[i] == other[k] ? 0 : 1);
            diagonal = row[k + 1];
            row[k + 1] = std::min({replaced, diagonal + 1, row[k] + 1});
        }
    }
    return row.back();
}

// The known word that is nearest to a word: one that it abbreviates, if there is any. Of several at one distance the
// first that begins most like it. known must not be empty.
inline std::string_view nearest_word(std::string_view word, std::span<const std::string_view> known) {
    constexpr size_t longest = 256;  // a longer word is compared by its beginning
    word = word.substr(0, longest);
    const auto rank = [word](std::string_view candidate) {
        const auto differs = std::ranges::mismatch(word, candidate).in1;
        return std::tuple(differs != word.end(), edit_distance(word, candidate), word.end() - differs);
    };
    return *std::ranges::min_element(known, {}, rank);
}

}  // namespace hosted
