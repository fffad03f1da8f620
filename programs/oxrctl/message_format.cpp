#include "oxrctl/message_format.h"

#include <algorithm>
#include <cctype>

namespace oxrctl {

namespace {

struct Conversion {
    char letter = 0;         // 0: there is none, the format ends
    std::size_t length = 0;  // of its text in the format
    bool padded = false;     // may have blanks before or behind it
};

// The conversion at the start of `format`, which begins with '%'.
Conversion conversion_at(std::string_view format) {
    std::size_t at = 1;
    while (at < format.size() &&
           std::string_view("-+ #0123456789.*hlzjtL").find(format[at]) != std::string_view::npos) {
        ++at;
    }
    if (at == format.size()) {
        return {};
    }
    const std::string_view flags = format.substr(1, at - 1);
    return {format[at], at + 1, flags.find_first_of("123456789* ") != std::string_view::npos};
}

std::string_view without_padding(std::string_view argument) {
    const std::size_t begin = argument.find_first_not_of(' ');
    return begin == std::string_view::npos ? std::string_view()
                                           : argument.substr(begin, argument.find_last_not_of(' ') - begin + 1);
}

bool can_print(char letter, bool padded, std::string_view argument) {
    if (padded && letter != 's') {
        argument = without_padding(argument);
    }
    const auto all = [&argument](auto is_fine) {
        return !argument.empty() && std::all_of(argument.begin(), argument.end(), is_fine);
    };
    switch (letter) {
        case 0:
            return false;
        case 'd':
        case 'i':
            if (argument.starts_with('-') || argument.starts_with('+')) {
                argument.remove_prefix(1);
            }
            return all([](unsigned char c) { return std::isdigit(c) != 0; });
        case 'u':
            return all([](unsigned char c) { return std::isdigit(c) != 0; });
        case 'x':
        case 'X':
        case 'p':
            if (argument.starts_with("0x") || argument.starts_with("0X")) {
                argument.remove_prefix(2);
            }
            return argument == "(nil)" || all([](unsigned char c) { return std::isxdigit(c) != 0; });
        case 'c':
            return argument.size() == 1;
        default:
            return true;
    }
}

}  // namespace

MessageFormat::MessageFormat(std::string_view format) {
    std::string* fixed = &begin_;
    while (!format.empty()) {
        if (format.front() != '%' || format.starts_with("%%")) {
            *fixed += format.front();
            format.remove_prefix(format.front() == '%' ? 2 : 1);
            continue;
        }
        const Conversion conversion = conversion_at(format);
        pieces_.push_back({conversion.letter, conversion.padded, ""});
        fixed = &pieces_.back().behind;
        format.remove_prefix(conversion.letter != 0 ? conversion.length : format.size());
    }
}

bool MessageFormat::match(std::string_view text, std::vector<std::string_view>& arguments) const {
    arguments.clear();
    // Most texts of another format differ from the first letter on.
    if (!begin_.empty() && (text.empty() || text.front() != begin_.front())) {
        return false;
    }
    return text.starts_with(begin_) && match_from(0, text.substr(begin_.size()), arguments);
}

bool MessageFormat::matches(std::string_view text) const {
    std::vector<std::string_view> arguments;
    return match(text, arguments);
}

// Whether the text is what the pieces from this one on print.
bool MessageFormat::match_from(std::size_t at, std::string_view text, std::vector<std::string_view>& arguments) const {
    if (at == pieces_.size()) {
        return text.empty();
    }
    const Piece& piece = pieces_[at];
    const bool takes_all = at + 1 == pieces_.size() && piece.behind.empty();
    for (std::size_t end = takes_all ? text.size() : 0; end <= text.size(); ++end) {
        end = text.find(piece.behind, end);
        if (end == std::string_view::npos) {
            return false;
        }
        const std::string_view argument = text.substr(0, end);
        if (can_print(piece.letter, piece.padded, argument)) {
            arguments.push_back(argument);
            if (match_from(at + 1, text.substr(end + piece.behind.size()), arguments)) {
                return true;
            }
            arguments.pop_back();
        }
    }
    return false;
}

std::size_t MessageFormat::own_letters() const {
    std::size_t letters = begin_.size();
    for (const Piece& piece : pieces_) {
        letters += piece.behind.size();
    }
    return letters;
}

}  // namespace oxrctl
