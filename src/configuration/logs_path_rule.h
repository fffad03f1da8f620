// The rule for the key ostrel_logs_path: which lines set it and which folders are usable.
#pragma once

#include <cstddef>
#include <string_view>

#include "common/file_reader.h"

// Longest directory whose log file name fits LOG_FILENAME_SIZE; a longer one counts as not found.
inline constexpr std::size_t MAX_LOGS_PATH = 91;

// The value of a logs-path line, a part of `line`; false when the line is none. It begins with the key in exact case,
// "=" directly behind it.
bool logs_path_value(std::string_view line, std::string_view& value);

// The value of the file's last logs-path line, cut like every line; empty if there is none.
void read_logs_path(oxr::FileReader& file, char (&path)[256]);

// Whether the path exists and leaves room for the log file's name.
bool is_usable_logs_path(const char* path);
