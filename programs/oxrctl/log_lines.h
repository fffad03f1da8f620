// The files of the connection manager's log in their order, and its times.
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

// "2024-05-01 08:00:02" of "Wed May  01 08:00:02 2024"; what isn't such a time stays as it is.
std::string plain_time(std::string_view logged);

}  // namespace oxrctl
