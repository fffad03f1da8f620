#include "support/log_lines.h"

#include <regex>

namespace testing_support {

std::vector<LogLine> parse_log(std::string_view log) {
    static const std::regex prefix(
        R"(^(\w{3} \w{3}  \d{2} \d{2}:\d{2}:\d{2} \d{4}): (ERROR|WARN|INFO|DEBUG): (\w+): (\w+):(\d+) : (.*)$)");
    std::vector<LogLine> lines;
    while (!log.empty()) {
        const std::size_t end = log.find('\n');
        const std::string text(log.substr(0, end));
        log.remove_prefix(end == std::string_view::npos ? log.size() : end + 1);
        std::smatch match;
        if (std::regex_match(text, match, prefix)) {
            lines.push_back({match[1], match[2], match[3], match[4], std::stoi(match[5]), match[6]});
        } else if (!lines.empty()) {
            lines.back().text += "\n" + text;
        } else {
            lines.push_back({"", "", "", "", 0, text});
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
