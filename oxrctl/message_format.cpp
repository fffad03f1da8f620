#include "oxrctl/message_format.h"

#include <algorithm>
#include <cctype>

namespace oxrctl {

namespace {

// A format cut into what stands between its conversions.
struct Conversion {
    char letter = 0;         // 0: there is none, the format ends
    std::size_t length = 0;  // of its text in the format
};

// The conversion at the start of `format`, which begins with '%'.
Conversion conversion_at(std::string_view format) {
    std::size_t at = 1;
    while (at < format.size() &&
           std::string_view("-+ #0123456789.*hlzjtL").find(format[at]) != std::string_view::npos) {
        ++at;
    }
    return at < format.size() ? Conversion{format[at], at + 1} : Conversion{};
}

bool can_print(char letter, std::string_view argument) {
    const auto all = [&argument](auto is_fine) {
        return !argument.empty() && std::all_of(argument.begin(), argument.end(), is_fine);
    };
    switch (letter) {
        case 'd':
        case 'i':
            if (argument.starts_with('-')) {
                argument.remove_prefix(1);
            }
            return all([](unsigned char c) { return std::isdigit(c) != 0; });
        case 'u':
            return all([](unsigned char c) { return std::isdigit(c) != 0; });
        case 'x':
        case 'X':
        case 'p':
            return all([](unsigned char c) { return std::isxdigit(c) != 0 || c == 'x'; });
        case 'c':
            return argument.size() == 1;
        default:
            return true;
    }
}

bool match_rest(std::string_view format, std::string_view text, std::vector<std::string_view>& arguments) {
    while (!format.empty() && (format.front() != '%' || format.starts_with("%%"))) {
        if (text.empty() || text.front() != format.front()) {
            return false;
        }
        format.remove_prefix(format.starts_with("%%") ? 2 : 1);
        text.remove_prefix(1);
    }
    if (format.empty()) {
        return text.empty();
    }
    const Conversion conversion = conversion_at(format);
    if (conversion.letter == 0) {
        return false;
    }
    const std::string_view rest = format.substr(conversion.length);
    // What follows up to the next conversion must be found behind the argument.
    const std::string_view fixed = rest.substr(0, rest.find('%'));
    for (std::size_t end = 0; end <= text.size(); ++end) {
        end = rest.empty() ? text.size() : text.find(fixed, end);
        if (end == std::string_view::npos) {
            return false;
        }
        const std::string_view argument = text.substr(0, end);
        if (can_print(conversion.letter, argument)) {
            arguments.push_back(argument);
            if (match_rest(rest, text.substr(end), arguments)) {
                return true;
            }
            arguments.pop_back();
        }
    }
    return false;
}

}  // namespace

bool match(std::string_view format, std::string_view text, std::vector<std::string_view>& arguments) {
    arguments.clear();
    return match_rest(format, text, arguments);
}

bool matches(std::string_view format, std::string_view text) {
    std::vector<std::string_view> arguments;
    return match(format, text, arguments);
}

}  // namespace oxrctl
