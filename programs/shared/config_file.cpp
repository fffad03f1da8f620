#include "shared/config_file.h"

#include "common/blank.h"
#include "common/file_reader.h"
#include "common/text.h"
#include "configuration/logs_path_rule.h"

namespace shared {

std::vector<std::string_view> config_lines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::string_view line =
            text.substr(0, text.find('\n')).size() < text.size() ? text.substr(0, text.find('\n') + 1) : text;
        lines.push_back(line.substr(0, oxr::FileReader::line_capacity));
        text.remove_prefix(line.size());
    }
    return lines;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && oxr::is_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && oxr::is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string last_logs_path(std::string_view text) {
    std::string_view last;
    for (const std::string_view line : config_lines(text)) {
        (void)logs_path_value(line, last);
    }
    return std::string(last);
}

std::string value_text(const ConfigKey& key, const ConfigValues& values) {
    return key.number != nullptr ? std::to_string(values.*key.number)
                                 : std::string(oxr::field_view(values.ostrel_logs_path));
}

}  // namespace shared
