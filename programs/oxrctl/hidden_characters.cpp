#include "oxrctl/hidden_characters.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "common/file_reader.h"

namespace oxrctl {

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

// Letters in UTF-8 from the first to the last.
struct Kind {
    std::string_view first, last;
    std::string_view what;
};

constexpr std::string_view NO_BLANK = "which is no blank for the service";
constexpr Kind kinds[] = {
    {"\xC2\x80", "\xC2\x9F", "a control character"},
    {"\xC2\xA0", "\xC2\xA0", "a no-break space"},
    {"\xC2\xAD", "\xC2\xAD", "a soft hyphen"},
    {"\xE2\x80\x80", "\xE2\x80\x8A", "a space of another width"},
    {"\xE2\x80\x8B", "\xE2\x80\x8F", "a character without width"},
    {"\xE2\x80\xA8", "\xE2\x80\xAE", "a character that steers the layout"},
    {"\xE2\x80\xAF", "\xE2\x80\xAF", "a narrow no-break space"},
    {"\xE2\x81\x9F", "\xE2\x81\xAF", "a character without width"},
    {"\xE3\x80\x80", "\xE3\x80\x80", "a wide space"},
    {BYTE_ORDER_MARK, BYTE_ORDER_MARK, "a byte order mark inside the line"},
};

std::string kind_at(std::string_view text) {
    const auto byte = static_cast<unsigned char>(text.front());
    if ((byte < ' ' && byte != '\t') || byte == 0x7f) {
        return byte == '\r' ? "a carriage return inside the line"
                            : fmt::format("a control character (\\x{:02x})", byte);
    }
    for (const Kind& kind : kinds) {
        const std::string_view letter = text.substr(0, kind.first.size());
        if (letter.size() == kind.first.size() && letter >= kind.first && letter <= kind.last) {
            return fmt::format("{}, {}", kind.what, NO_BLANK);
        }
    }
    return "";
}

// Beyond those at its ends.
void add_those_inside(int line, std::string_view text, std::vector<ConfigReport::HiddenCharacter>& found) {
    const std::size_t before = found.size();
    for (; !text.empty(); text.remove_prefix(1)) {
        const std::string what = kind_at(text);
        const auto is_known = [&](const auto& hidden) { return hidden.what == what; };
        if (!what.empty() && std::none_of(found.begin() + static_cast<std::ptrdiff_t>(before), found.end(), is_known)) {
            found.push_back({line, what});
        }
    }
}

}  // namespace

std::vector<ConfigReport::HiddenCharacter> hidden_characters(const std::vector<std::string>& lines) {
    std::vector<ConfigReport::HiddenCharacter> found;
    int number = 0;
    for (const std::string& line : lines) {
        ++number;
        std::string_view text = line;
        if (number == 1 && text.starts_with(BYTE_ORDER_MARK)) {
            found.push_back({number, "a byte order mark, which the service takes for a part of the line"});
            text.remove_prefix(BYTE_ORDER_MARK.size());
        }
        text.remove_suffix(text.ends_with('\n') ? 1 : 0);
        if (text.ends_with('\r')) {
            found.push_back(
                {number, "a carriage return at the end, which the service passes over and scripts may not"});
            text.remove_suffix(1);
        }
        if (!oxr::is_comment_line(text)) {
            add_those_inside(number, text, found);
        }
    }
    return found;
}

std::string line_numbers(const std::vector<int>& lines) {
    constexpr int most_runs = 8;
    std::string text;
    int runs = 0;
    for (std::size_t i = 0; i < lines.size();) {
        std::size_t last = i;
        while (last + 1 < lines.size() && lines[last + 1] == lines[last] + 1) {
            ++last;
        }
        if (++runs > most_runs) {
            text += " and more";
            break;
        }
        text += text.empty() ? "" : ", ";
        text += last == i ? fmt::format("{}", lines[i]) : fmt::format("{} to {}", lines[i], lines[last]);
        i = last + 1;
    }
    return fmt::format("{} {}", lines.size() == 1 ? "Line" : "Lines", text);
}

}  // namespace oxrctl
