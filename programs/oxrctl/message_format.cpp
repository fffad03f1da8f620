#include "oxrctl/message_format.h"

#include <algorithm>
#include <cctype>

namespace oxrctl {

namespace {

// A format cut into what stands between its conversions.
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

bool can_print(const Conversion& conversion, std::string_view argument) {
    if (conversion.padded && conversion.letter != 's') {
        argument = without_padding(argument);
    }
    const auto all = [&argument](auto is_fine) {
        return !argument.empty() && std::all_of(argument.begin(), argument.end(), is_fine);
    };
    switch (conversion.letter) {
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
        if (can_print(conversion, argument)) {
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

std::size_t own_letters(std::string_view format) {
    std::size_t letters = 0;
    while (!format.empty()) {
        const bool is_conversion = format.front() == '%' && !format.starts_with("%%");
        const Conversion conversion = is_conversion ? conversion_at(format) : Conversion{};
        if (conversion.letter == 0) {
            ++letters;
        }
        format.remove_prefix(conversion.letter != 0 ? conversion.length : format.starts_with("%%") ? 2 : 1);
    }
    return letters;
}

}  // namespace oxrctl
