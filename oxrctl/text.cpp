#include "oxrctl/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace oxrctl {

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

std::string nearest(std::string_view word, std::span<const std::string_view> names) {
    constexpr std::size_t most = 2;
    constexpr std::size_t longest_word = 64;
    std::string_view best;
    std::size_t least = most + 1;
    for (const std::string_view name : names) {
        const std::size_t off = word.size() > longest_word ? least : distance(word, name);
        if (off < least) {
            least = off;
            best = name;
        }
    }
    return std::string(best);
}

std::string printable(std::string_view text, std::size_t most) {
    std::string result;
    for (const char c : text.substr(0, most)) {
        const auto byte = static_cast<unsigned char>(c);
        result += byte < ' ' || byte == 0x7f ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
    }
    return text.size() > most ? result + "..." : result;
}

std::string table_text(const std::vector<std::vector<std::string>>& rows, std::string_view indent) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line(indent);
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += i + 1 < row.size() ? fmt::format("{:<{}}  ", row[i], widths[i]) : row[i];
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

}  // namespace oxrctl
