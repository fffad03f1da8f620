#include "shared/duration.h"

#include <fmt/format.h>

#include <cstdint>

namespace shared {

namespace {

double unit_seconds(char unit) {
    switch (unit) {
        case 'd':
            return 86400;
        case 'h':
            return 3600;
        case 'm':
            return 60;
        case 's':
            return 1;
        default:
            return 0;
    }
}

}  // namespace

std::optional<double> parse_duration(std::string_view text) {
    if (text.empty()) {
        return std::nullopt;
    }
    double total = 0;
    double last_unit = 2 * 86400;
    std::size_t i = 0;
    while (i < text.size()) {
        double number = 0;
        const std::size_t begin = i;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
            number = number * 10 + (text[i] - '0');
            ++i;
        }
        if (i == begin) {
            return std::nullopt;
        }
        double unit = 1;
        if (i < text.size()) {
            unit = unit_seconds(text[i]);
            ++i;
        } else if (begin != 0) {
            return std::nullopt;  // "1h30": 30 of what?
        }
        if (unit <= 0 || unit >= last_unit) {
            return std::nullopt;  // no unit, or not from the larger to the smaller
        }
        last_unit = unit;
        total += number * unit;
        if (!(total <= LONGEST_DURATION_SECONDS)) {
            return std::nullopt;
        }
    }
    return total;
}

std::string clock_text(double seconds) {
    const auto whole = static_cast<std::int64_t>(seconds);
    return fmt::format("{:02}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

std::string duration_text(double seconds) {
    const auto whole = static_cast<std::int64_t>(seconds);
    std::string text;
    if (whole >= 3600) {
        text += fmt::format("{}h", whole / 3600);
    }
    if (whole / 60 % 60 != 0) {
        text += fmt::format("{}m", whole / 60 % 60);
    }
    if (whole % 60 != 0 || text.empty()) {
        text += fmt::format("{}s", whole % 60);
    }
    return text;
}

}  // namespace shared
