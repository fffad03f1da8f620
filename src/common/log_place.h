// Where the log stands and how long its name may be; shared by the log and by the configuration, which can move it.
#pragma once

#include <cstddef>

// Size of a log file's full path, terminator included.
inline constexpr std::size_t LOG_FILENAME_SIZE = 100;

inline constexpr char DEFAULT_LOG_DIR[] = "/var/log/ostrel";
