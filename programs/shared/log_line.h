// The parts of a line of the connection manager's log.
#pragma once

#include <string_view>

namespace shared {

// "TIME: LEVEL: MODULE: FUNCTION:LINE : TEXT". The texts are parts of the line.
struct LogLine {
    std::string_view time;  // as logged
    std::string_view level;
    std::string_view module;
    std::string_view function;
    int source_line = 0;
    std::string_view text;
};

// False for a line that doesn't begin with the whole prefix.
bool parse_log_line(std::string_view line, LogLine& parsed);

// The same for as much of a line as somebody gives: from FUNCTION on; what isn't given is empty.
bool parse_log_line_end(std::string_view line, LogLine& parsed);

}  // namespace shared
