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

std::string without_control_characters(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        result += (byte < ' ' && c != '\n') || byte == 0x7f ? fmt::format("\\x{:02x}", byte) : std::string(1, c);
    }
    return result;
}

std::string printable(std::string_view text, std::size_t most) {
    std::string result = without_control_characters(text.substr(0, most));
    for (std::size_t at = result.find('\n'); at != std::string::npos; at = result.find('\n', at)) {
        result.replace(at, 1, "\\x0a");
    }
    return text.size() > most ? result + "..." : result;
}

bool continues_letter(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

std::size_t width_of(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return !continues_letter(c); }));
}

std::string wrapped(const std::string& first, std::string_view text) {
    const std::string indent(width_of(first), ' ');
    std::string lines;
    std::string line = first;
    bool is_empty = true;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        if (!is_empty && width_of(line) + 1 + width_of(word) > LINE_WIDTH) {
            lines += line + "\n";
            line = indent;
            is_empty = true;
        }
        line += is_empty ? "" : " ";
        line += word;
        is_empty = false;
    }
    return lines + line + "\n";
}

std::string Columns::text() const {
    std::vector<std::size_t> widths;
    for (const auto& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], width_of(row[i]));
        }
    }
    std::string all;
    for (const auto& row : rows_) {
        std::string line = indent_;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string blanks(widths[i] - std::min(widths[i], width_of(row[i])), ' ');
            const bool at_right = i < right_.size() && right_[i] == 'r';
            line += (i == 0 ? "" : "  ") + (at_right ? blanks + row[i] : row[i] + blanks);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        all += line + "\n";
    }
    return all;
}

}  // namespace oxrctl
