#include "shared/nearest.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace shared {

namespace {

// Letters to put in, leave out or change to make one of the other.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::vector<std::string_view> nearest_names(std::string_view word, std::span<const std::string_view> names) {
    constexpr std::size_t most_letters_off = 2;
    constexpr std::size_t longest_word = 64;
    std::vector<std::pair<std::size_t, std::string_view>> found;
    for (const std::string_view name : word.size() > longest_word ? names.first(0) : names) {
        if (const std::size_t off = distance(word, name); off <= most_letters_off) {
            found.emplace_back(off, name);
        }
    }
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string_view> nearest_first;
    for (const auto& [off, name] : found) {
        nearest_first.push_back(name);
    }
    return nearest_first;
}

std::string nearest(std::string_view word, std::span<const std::string_view> names) {
    const std::vector<std::string_view> found = nearest_names(word, names);
    return found.empty() ? "" : std::string(found.front());
}

}  // namespace shared
