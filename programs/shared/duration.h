// Times as a person writes and reads them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace shared {

// "90", "90s", "10m", "1h30m", "2d": seconds, more than none and at most a year; empty when it isn't one.
// "0" and "0s" are accepted.
std::optional<double> parse_duration(std::string_view text);

inline constexpr double LONGEST_DURATION_SECONDS = 366.0 * 86400;

// 4205 seconds: "01:10:05".
std::string clock_text(double seconds);

// 5400 seconds: "1h30m".
std::string duration_text(double seconds);

}  // namespace shared
