// The default folder of the log and the maximum length of its name; used by the log and by the configuration.
#pragma once

#include <cstddef>

// Size of a log file's full path, terminator included.
inline constexpr std::size_t LOG_FILENAME_SIZE = 100;

inline constexpr char DEFAULT_LOG_DIR[] = "/var/log/ostrel";
