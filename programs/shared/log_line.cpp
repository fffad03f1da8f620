#include "shared/log_line.h"

#include <charconv>

namespace shared {

namespace {

// "populate_oxr_sessions:129"
bool parse_place(std::string_view word, LogLine& parsed) {
    const std::size_t colon = word.find(':');
    if (colon == std::string_view::npos || colon == 0) {
        return false;
    }
    parsed.function = word.substr(0, colon);
    const char* const end = word.data() + word.size();
    const auto [behind, error] = std::from_chars(word.data() + colon + 1, end, parsed.source_line);
    return error == std::errc() && behind == end && parsed.source_line >= 0;
}

// Takes the last part off, which stands before ": ".
std::string_view take_last(std::string_view& prefix) {
    constexpr std::string_view separator = ": ";
    if (!prefix.ends_with(separator)) {
        return {};
    }
    prefix.remove_suffix(separator.size());
    const std::size_t before = prefix.rfind(separator);
    const std::size_t begin = before == std::string_view::npos ? 0 : before + separator.size();
    const std::string_view part = prefix.substr(begin);
    prefix = prefix.substr(0, begin);
    return part;
}

bool is_level(std::string_view word) {
    return word == "ERROR" || word == "WARN" || word == "INFO" || word == "DEBUG";
}

}  // namespace

bool parse_log_line_end(std::string_view line, LogLine& parsed) {
    constexpr std::string_view separator = " : ";
    for (std::size_t at = line.find(separator); at != std::string_view::npos; at = line.find(separator, at + 1)) {
        std::string_view prefix = line.substr(0, at);
        const std::size_t place = prefix.rfind(' ') + 1;
        if (parse_place(prefix.substr(place), parsed)) {
            prefix = prefix.substr(0, place);
            parsed.module = take_last(prefix);
            parsed.level = take_last(prefix);
            parsed.level = is_level(parsed.level) ? parsed.level : std::string_view();
            parsed.time = take_last(prefix);
            parsed.text = line.substr(at + separator.size());
            return true;
        }
    }
    return false;
}

bool parse_log_line(std::string_view line, LogLine& parsed) {
    return parse_log_line_end(line, parsed) && !parsed.level.empty() && parsed.time.data() == line.data();
}

}  // namespace shared
