// The times of a log's messages.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace oxrctl {

// Seconds of a calendar without time zone, from 1970 on: a log's times are those of its host's clock.
using LogSeconds = std::int64_t;
inline constexpr LogSeconds NO_TIME = -1;

// Parses "Wed May  01 08:00:02 2024"; none if it isn't such a time.
std::optional<LogSeconds> seconds_of(std::string_view logged);

// "2024-05-01 08:00:02"; empty for NO_TIME.
std::string plain_time(LogSeconds seconds);

// This machine's clock, in the same calendar.
LogSeconds log_seconds_now();

// The time of the Unix epoch at which this machine's clock shows `seconds`.
std::int64_t unix_time(LogSeconds seconds);

}  // namespace oxrctl
