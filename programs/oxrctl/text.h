// Small helpers for what the commands print.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace oxrctl {

// Text from a file made fit for a terminal: control characters as \xNN, cut to `most` characters.
std::string printable(std::string_view text, std::size_t most = 120);

// Control characters but line feeds as \\xNN.
std::string without_control_characters(std::string_view text);

// Columns that lines are kept within: these, unless the program found out about others.
inline constexpr std::size_t LINE_WIDTH = 100;
std::size_t line_width();
void set_line_width(std::size_t columns);

// Columns of a terminal that UTF-8 text takes.
bool continues_letter(char c);
std::size_t width_of(std::string_view text);

// A sentence behind `first`, over as many lines as it takes, all of them indented by the width of `first`.
std::string wrapped(const std::string& first, std::string_view text);

// Cells in columns as wide as they need, two blanks between them. Where a line has no room for them, text that stands
// at the left is broken at blanks, and columns that still don't fit go on in a line of their own. Nothing is cut.
class Columns {
public:
    // `right`: an 'r' at the place of each column that stands at the right.
    explicit Columns(std::string right = "", std::string indent = "  ")
        : right_(std::move(right)), indent_(std::move(indent)) {}
    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    std::string text() const;

private:
    bool is_at_right(std::size_t column) const { return column < right_.size() && right_[column] == 'r'; }

    std::string right_;
    std::string indent_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace oxrctl
