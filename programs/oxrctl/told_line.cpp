#include "oxrctl/told_line.h"

#include <regex>
#include <string_view>

namespace oxrctl {

namespace {

// Long enough for every message; std::regex needs stack by the letter.
constexpr std::size_t LONGEST = 2000;

std::string without_blanks_at_ends(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string_view::npos ? ""
                                           : std::string(text.substr(begin, text.find_last_not_of(blanks) - begin + 1));
}

// A line feed in a message is printed as its code.
std::string as_logged(std::string text) {
    for (std::size_t at; (at = text.find("\\x0a")) != std::string::npos;) {
        text.replace(at, 4, "\n");
    }
    return text;
}

// "  3 x ERROR OstrelConnections: populate_oxr_sessions, last at 2024-05-01 08:00:02", the message below it, advice
// below that.
std::optional<ToldMessage> of_warnings(const std::string& asked) {
    static const std::regex head(
        R"(^\s*\d+ x (ERROR|WARN|INFO|DEBUG) [^\n]*?, last at (\d{4}-\d\d-\d\d \d\d:\d\d:\d\d|[^\n]*(?=\n)|[^\n]*$))");
    std::smatch found;
    if (!std::regex_search(asked, found, head, std::regex_constants::match_continuous)) {
        return std::nullopt;
    }
    std::string text = without_blanks_at_ends(found.suffix().str());
    return ToldMessage{found[1], as_logged(without_blanks_at_ends(text.substr(0, text.find('\n'))))};
}

// "    log ERROR populate_oxr_sessions: No sessions. (and 2 alike)"
std::optional<ToldMessage> of_simulated_host(const std::string& asked) {
    static const std::regex line(R"(^\s*log (ERROR|WARN|INFO|DEBUG) \w+: ([^\n]*?)(?: \(and \d+ alike\))?\s*$)");
    std::smatch found;
    return std::regex_match(asked, found, line) ? std::optional(ToldMessage{found[1], as_logged(found[2])})
                                                : std::nullopt;
}

// "... since the last good pass, such as "No sessions.""
std::optional<ToldMessage> of_health(const std::string& asked) {
    static const std::regex line("such as \"([^\n]*)\"");
    std::smatch found;
    return std::regex_search(asked, found, line) ? std::optional(ToldMessage{"", as_logged(found[1])}) : std::nullopt;
}

}  // namespace

std::optional<ToldMessage> told_message(const std::string& asked) {
    if (asked.size() > LONGEST) {
        return std::nullopt;
    }
    for (const auto& reader : {of_warnings, of_simulated_host, of_health}) {
        if (std::optional<ToldMessage> told = reader(asked)) {
            return told;
        }
    }
    return std::nullopt;
}

}  // namespace oxrctl
