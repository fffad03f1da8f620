// The log as a list of messages, for tests that hold lines to their level, operation and order.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace testing_support {

struct LoggedMessage {
    std::string level;
    std::string module;
    std::string operation;
    std::string text;  // without the final line feed; an empty line behind a message is part of it as "\n"
};

// The messages of a log file. A line that doesn't begin with the standard prefix belongs to the one before.
std::vector<LoggedMessage> parse_log(std::string_view log);

// "WARN handle_num_sessions: No sessions present for x", one a message: what tests compare.
std::vector<std::string> short_lines(std::string_view log);

// How many of these have the text in them.
int count_lines(std::string_view log, std::string_view text);

}  // namespace testing_support
