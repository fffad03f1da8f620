#include "oxrctl/status/log_time.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <ctime>

namespace oxrctl {

namespace {

// The number that fills the whole of `digits`; -1: it is none.
int whole_number(std::string_view digits) {
    int value = -1;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return error == std::errc() && end == digits.data() + digits.size() ? value : -1;
}

}  // namespace

std::optional<LogSeconds> seconds_of(std::string_view logged) {
    static constexpr std::array<std::string_view, 12> months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    // "Www Mmm  DD HH:MM:SS YYYY"
    constexpr std::size_t length = 25;
    if (logged.size() != length || logged[14] != ':' || logged[17] != ':') {
        return {};
    }
    const auto month = std::find(months.begin(), months.end(), logged.substr(4, 3)) - months.begin() + 1;
    const std::chrono::year_month_day date{std::chrono::year(whole_number(logged.substr(21, 4))),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(whole_number(logged.substr(9, 2))))};
    const int hour = whole_number(logged.substr(12, 2));
    const int minute = whole_number(logged.substr(15, 2));
    const int second = whole_number(logged.substr(18, 2));
    if (!date.ok() || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60) {
        return {};
    }
    return std::chrono::sys_days(date).time_since_epoch().count() * LogSeconds{86400} + hour * 3600 + minute * 60 +
           second;
}

std::string plain_time(LogSeconds seconds) {
    if (seconds == NO_TIME) {
        return "";
    }
    const std::chrono::sys_seconds time{std::chrono::seconds(seconds)};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count());
}

LogSeconds log_seconds_now() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    (void)localtime_r(&now, &local);
    return timegm(&local);
}

std::int64_t unix_time(LogSeconds seconds) {
    return seconds + (std::time(nullptr) - log_seconds_now());
}

}  // namespace oxrctl
