#include "oxrctl/text.h"

#include <fmt/format.h>

#include <algorithm>

namespace oxrctl {

namespace {

std::size_t columns_of_a_line = LINE_WIDTH;

// Broken at blanks to lines of this width; at least one. A longer word stands whole.
std::vector<std::string> broken(std::string_view text, std::size_t width) {
    if (width_of(text) <= width) {
        return {std::string(text)};
    }
    std::vector<std::string> lines{""};
    bool is_empty = true;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        if (!is_empty && width_of(lines.back()) + 1 + width_of(word) > width) {
            lines.emplace_back();
            is_empty = true;
        }
        lines.back() += is_empty ? "" : " ";
        lines.back() += word;
        is_empty = false;
    }
    return lines;
}

}  // namespace

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

std::size_t line_width() {
    return columns_of_a_line;
}

void set_line_width(std::size_t columns) {
    columns_of_a_line = columns;
}

std::string wrapped(const std::string& first, std::string_view text) {
    const std::size_t indent = width_of(first);
    std::string lines;
    for (const std::string& line : broken(text, line_width() - std::min(indent, line_width()))) {
        lines += (lines.empty() ? first : std::string(indent, ' ')) + line + "\n";
    }
    return lines;
}

// --- columns -----------------------------------------------------------------------------------------------

namespace {

constexpr std::size_t GAP = 2;
// Narrower text isn't worth its column; the last one holds sentences.
constexpr std::size_t LEAST_TEXT = 16, LEAST_SENTENCE = 30;

std::size_t longest_word(std::string_view text) {
    std::size_t longest = 0;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        longest = std::max(longest, width_of(word));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
    }
    return longest;
}

struct Column {
    std::size_t natural = 0;  // of its widest cell
    std::size_t least = 0;    // that it can be broken to
    std::size_t width = 0;
};

std::size_t excess_of(std::span<const Column> columns, std::size_t room) {
    std::size_t total = columns.empty() ? 0 : GAP * (columns.size() - 1);
    for (const Column& column : columns) {
        total += column.width;
    }
    return total - std::min(room, total);
}

// The widest ones first. False: they still don't fit.
bool narrow_to(std::size_t room, std::span<Column> columns) {
    for (std::size_t excess; (excess = excess_of(columns, room)) > 0;) {
        Column& widest = *std::max_element(columns.begin(), columns.end(), [](const Column& a, const Column& b) {
            return a.width - a.least < b.width - b.least;
        });
        if (widest.width == widest.least) {
            return false;
        }
        widest.width -= std::min(excess, widest.width - widest.least);
    }
    return true;
}

// The last column first, then the others; where that isn't enough, the last one is to have a line of its own.
void fit(std::size_t room, std::vector<Column>& columns) {
    const std::span<Column> all = columns;
    if (all.empty()) {
        return;
    }
    Column& last = columns.back();
    last.width -= std::min(excess_of(all, room), last.width - last.least);
    if (!narrow_to(room, all)) {
        for (Column& column : columns) {
            column.width = column.natural;
        }
        narrow_to(room, all.first(all.size() - 1));
        last.width = std::max(last.least, std::min(last.natural, room - std::min(2 * GAP, room)));
    }
}

// The first column of each line that a row takes. The last column gets the room that is left in its line.
std::vector<std::size_t> folds_of(std::vector<Column>& columns, std::size_t indent) {
    std::vector<std::size_t> begins{0};
    std::size_t used = indent;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const bool is_first = i == begins.back();
        if (!is_first && used + GAP + columns[i].width > line_width()) {
            begins.push_back(i);
            used = indent + 2 * GAP + columns[i].width;
        } else {
            used += (is_first ? 0 : GAP) + columns[i].width;
        }
    }
    if (!columns.empty()) {
        Column& last = columns.back();
        last.width = std::min(last.natural, last.width + line_width() - std::min(used, line_width()));
    }
    begins.push_back(columns.size());
    return begins;
}

std::string in_width(const std::string& cell, std::size_t width, bool at_right) {
    const std::string blanks(width - std::min(width, width_of(cell)), ' ');
    return at_right ? blanks + cell : cell + blanks;
}

std::vector<Column> columns_of(const std::vector<std::vector<std::string>>& rows, std::string_view right) {
    std::vector<Column> columns;
    for (const auto& row : rows) {
        columns.resize(std::max(columns.size(), row.size()));
    }
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::size_t width = width_of(row[i]);
            const std::size_t least = std::min(width, i + 1 == columns.size() ? LEAST_SENTENCE : LEAST_TEXT);
            const bool is_at_right = i < right.size() && right[i] == 'r';
            columns[i].natural = columns[i].width = std::max(columns[i].width, width);
            columns[i].least = std::max({columns[i].least, is_at_right ? width : least, longest_word(row[i])});
        }
    }
    return columns;
}

}  // namespace

std::string Columns::text() const {
    std::vector<Column> columns = columns_of(rows_, right_);
    fit(line_width() - std::min(indent_.size(), line_width()), columns);
    const std::vector<std::size_t> folds = folds_of(columns, indent_.size());
    std::string all;
    for (const auto& row : rows_) {
        for (std::size_t fold = 0; fold + 1 < folds.size(); ++fold) {
            std::vector<std::vector<std::string>> cells;
            std::size_t lines = fold == 0 ? 1 : 0;
            for (std::size_t i = folds[fold]; i < std::min(folds[fold + 1], row.size()); ++i) {
                cells.push_back(broken(row[i], columns[i].width));
                lines = std::max(lines, row[i].empty() ? 0 : cells.back().size());
            }
            for (std::size_t at = 0; at < lines; ++at) {
                std::string line = indent_ + std::string(fold == 0 ? 0 : 2 * GAP, ' ');
                for (std::size_t i = 0; i < cells.size(); ++i) {
                    const std::size_t column = folds[fold] + i;
                    line += std::string(i == 0 ? 0 : GAP, ' ') + in_width(at < cells[i].size() ? cells[i][at] : "",
                                                                          columns[column].width, is_at_right(column));
                }
                line.erase(line.find_last_not_of(' ') + 1);
                all += line + "\n";
            }
        }
    }
    return all;
}

}  // namespace oxrctl
