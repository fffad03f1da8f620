#include "configuration/logs_path_rule.h"

#include <unistd.h>

#include <cstring>

#include "common/text.h"
#include "configuration/config_keys.h"

bool logs_path_value(std::string_view line, std::string_view& value) {
    constexpr std::size_t max_ignored_line = 18;
    constexpr std::string_view key = LOGS_PATH_KEY;
    if (line.size() <= max_ignored_line || !line.starts_with(key) || line[key.size()] != '=') {
        return false;
    }
    value = line.substr(key.size() + 1);
    value = value.substr(0, value.find_first_of(std::string_view("\0\t\r\n", 4)));
    return true;
}

void read_logs_path(oxr::FileReader& file, char (&path)[256]) {
    oxr::copy_text(path, "");
    std::string_view line;
    std::string_view value;
    while (file.next_line(line)) {
        if (logs_path_value(line, value)) {
            oxr::copy_text(path, value);
        }
    }
}

bool is_usable_logs_path(const char* path) {
    return std::strlen(path) <= MAX_LOGS_PATH && ::access(path, F_OK) == 0;
}
