#include "support/log_lines.h"

#include <algorithm>

#include "shared/log_line.h"

namespace testing_support {

std::vector<LogLine> parse_log(std::string_view log) {
    std::vector<LogLine> lines;
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
    for (const LogLine& line : parse_log(log)) {
        result.push_back(line.level + " " + line.operation + ": " + line.text);
    }
    return result;
}

int count_lines(std::string_view log, std::string_view level, std::string_view operation, std::string_view text) {
    int count = 0;
    for (const LogLine& line : parse_log(log)) {
        const bool counts =
            (level.empty() || line.level == level) && (operation.empty() || line.operation == operation);
        count += counts && line.text.find(text) != std::string::npos ? 1 : 0;
    }
    return count;
}

bool in_order(std::string_view log, const std::vector<std::string>& texts) {
    std::size_t at = 0;
    for (const LogLine& line : parse_log(log)) {
        if (at < texts.size() && line.text.find(texts[at]) != std::string::npos) {
            ++at;
        }
    }
    return at == texts.size();
}

}  // namespace testing_support
