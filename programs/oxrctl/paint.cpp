#include "oxrctl/paint.h"

#include <string_view>

namespace oxrctl {

namespace {

constexpr std::string_view RED = "1;31", YELLOW = "33", GREEN = "32", BLUE = "36";

struct ColouredWord {
    std::string_view text;
    std::string_view colour;
    std::string_view behind;  // one of these characters stands behind it, or two blanks, or the line ends
};

constexpr ColouredWord words[] = {
    {"critical", RED, ""},   {"unknown", BLUE, ""},    {"warning", YELLOW, ""},
    {"well", GREEN, ""},     {"ERROR", RED, " "},      {"WARN", YELLOW, " "},
    {"SETTLED", GREEN, ":"}, {"SETTLED", YELLOW, ","}, {"NOT SETTLED", RED, ":,"},
};

// Blanks alone before it: a sentence may go on there from the line above.
bool begins_a_cell(std::string_view text, std::size_t at) {
    const std::string_view line = text.substr(0, at).substr(text.substr(0, at).rfind('\n') + 1);
    const bool is_behind_a_cell = line.ends_with("  ") && line.find_first_not_of(' ') != std::string_view::npos;
    return line.empty() || line.ends_with(" x ") || is_behind_a_cell;
}

const ColouredWord* word_at(std::string_view text, std::size_t at) {
    for (const ColouredWord& word : words) {
        const std::string_view rest = text.substr(at);
        if (rest.starts_with(word.text)) {
            const std::string_view behind = rest.substr(word.text.size());
            if (behind.empty() || behind.starts_with('\n') || behind.starts_with("  ") ||
                word.behind.find(behind.front()) != std::string_view::npos) {
                return &word;
            }
        }
    }
    return nullptr;
}

}  // namespace

std::string painted(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const ColouredWord* const word = begins_a_cell(text, at) ? word_at(text, at) : nullptr;
        if (word == nullptr) {
            result += text[at];
            continue;
        }
        result += "\x1b[";
        result += word->colour;
        result += "m";
        result += word->text;
        result += "\x1b[0m";
        at += word->text.size() - 1;
    }
    return result;
}

}  // namespace oxrctl
