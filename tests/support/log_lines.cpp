#include "support/log_lines.h"

#include <algorithm>

#include "shared/log_line.h"

namespace testing_support {

std::vector<LoggedMessage> parse_log(std::string_view log) {
    std::vector<LoggedMessage> lines;
    shared::LogLine parsed;
    while (!log.empty()) {
        const std::string_view line = log.substr(0, log.find('\n'));
        log.remove_prefix(std::min(line.size() + 1, log.size()));
        if (shared::parse_log_line(line, parsed)) {
            lines.push_back({std::string(parsed.level), std::string(parsed.module), std::string(parsed.function),
                             std::string(parsed.text)});
        } else if (!lines.empty()) {
            lines.back().text.append("\n").append(line);
        } else {
            lines.push_back({"", "", "", std::string(line)});
        }
    }
    return lines;
}

std::vector<std::string> short_lines(std::string_view log) {
    std::vector<std::string> result;
    for (const LoggedMessage& line : parse_log(log)) {
        result.push_back(line.level + " " + line.operation + ": " + line.text);
    }
    return result;
}

int count_lines(std::string_view log, std::string_view text) {
    const std::vector<std::string> lines = short_lines(log);
    return static_cast<int>(std::count_if(
        lines.begin(), lines.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

}  // namespace testing_support
