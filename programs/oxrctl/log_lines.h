// The connection manager's log as messages: its files in their order, and what a line consists of.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace oxrctl {

// One file of a log, as it was read.
struct LogFile {
    std::string name;
    std::string text;
    std::string problem;  // why it could not be read; empty: it was
};

// The log's files that are there, the oldest (.6) first, `file` itself last. Throws a Refusal when that can't be read.
std::vector<LogFile> read_log_files(const std::string& file);

// One message. The texts are parts of the line.
struct LogLine {
    std::string_view time;  // as logged
    std::string_view level;
    std::string_view module;
    std::string_view function;
    int source_line = 0;
    std::string_view text;
};

// False for a line that doesn't begin with the standard prefix.
bool parse_log_line(std::string_view line, LogLine& parsed);

// "2024-05-01 08:00:02" of "Wed May  01 08:00:02 2024"; what isn't such a time stays as it is.
std::string plain_time(std::string_view logged);

}  // namespace oxrctl
