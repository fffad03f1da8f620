#include "config_values.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <optional>

namespace program {

namespace {

constexpr std::size_t LINE_CAPACITY = 255;  // of a line only so many characters are looked at

struct Line {
    std::string_view text;  // without the line feed
    std::size_t begin = 0;  // offset in the file
};

std::vector<Line> lines_of(std::string_view text) {
    std::vector<Line> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back({text.substr(begin, end - begin), begin});
        begin = end + 1;
    }
    return lines;
}

bool is_comment(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t");
    return first != std::string_view::npos && line[first] == '#';
}

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return result;
}

// Both spellings of a key give the one that a rewrite uses.
std::string canonical_key(std::string_view key) {
    std::string name = lower(key);
    if (name == "min_volsessions") {
        return "min_vol_sessions";
    }
    if (name == "max_volsessions") {
        return "max_vol_sessions";
    }
    return name == "volsessions" ? "vol_sessions" : name;
}

struct Entry {
    std::string key;
    std::string_view value;
    Line line;
};

std::optional<Entry> entry_of(const Line& line, char delimiter) {
    const std::string_view seen = line.text.substr(0, LINE_CAPACITY);
    const std::size_t split = seen.find(delimiter);
    if (is_comment(seen) || split == std::string_view::npos || split == 0) {
        return std::nullopt;
    }
    return Entry{canonical_key(seen.substr(0, split)), seen.substr(split + 1), line};
}

// Blanks, a sign, digits; whatever follows is not looked at. Beyond the range of an int the nearest bound.
std::uint32_t number_of(std::string_view text) {
    std::size_t i = text.find_first_not_of(" \t\r\n\v\f");
    if (i == std::string_view::npos) {
        return 0;
    }
    const bool negative = text[i] == '-';
    if (negative || text[i] == '+') {
        ++i;
    }
    std::int64_t value = 0;
    constexpr std::int64_t most = std::numeric_limits<std::uint32_t>::max();
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = std::min(value * 10 + (text[i] - '0'), most);
    }
    return static_cast<std::uint32_t>(negative ? -value : value);
}

std::uint32_t within(std::uint32_t value, std::uint32_t least, std::uint32_t most, std::uint32_t otherwise) {
    return value >= least && value <= most ? value : otherwise;
}

void apply(ConfigValues& values, std::string_view key, std::uint32_t number) {
    if (key == "interval") {
        values.interval = within(number, 60, 604800, 120);
    } else if (key == "min_vol_sessions") {
        values.min_vol_sessions = within(number, 2, 32, 2);
    } else if (key == "max_vol_sessions") {
        values.max_vol_sessions = within(number, 2, 32, 8);
    } else if (key == "vol_sessions") {
        values.vol_sessions = number;
    } else if (key == "min_pe_sessions") {
        values.min_pe_sessions = within(number, 4, 32, 4);
    } else if (key == "max_pe_sessions") {
        values.max_pe_sessions = within(number, 4, 32, 32);
    } else if (key == "log_level") {
        values.log_level = within(number, 1, 2, 1);
    } else if (key == "vmknic_count") {
        values.vmknic_count = number;
    } else if (key == "worker_stop") {
        values.worker_stop = number;
    } else if (key == "use_ostrel_timeouts") {
        values.use_ostrel_timeouts = within(number, 0, 1, 1);
    }
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

ConfigChanges entries_of(std::string_view text) {
    ConfigChanges entries;
    const char delimiter = is_old_format(text) ? ':' : '=';
    for (const Line& line : lines_of(text)) {
        if (const auto entry = entry_of(line, delimiter)) {
            std::string key(trimmed(entry->key));
            const auto same =
                std::find_if(entries.begin(), entries.end(), [&](const auto& e) { return e.first == key; });
            if (same != entries.end()) {
                same->second = trimmed(entry->value);
            } else {
                entries.emplace_back(std::move(key), trimmed(entry->value));
            }
        }
    }
    return entries;
}

}  // namespace

ConfigValues config_in_force(std::string_view text) {
    ConfigValues values;
    for (const Line& line : lines_of(text)) {
        if (const auto entry = entry_of(line, '=')) {
            apply(values, entry->key, number_of(entry->value));
        }
    }
    if (const auto paths = logs_paths_of(text); !paths.empty()) {
        values.logs_path = paths.back();
    }
    if (values.min_vol_sessions > values.max_vol_sessions) {
        values.min_vol_sessions = 2;
    }
    if (values.vol_sessions != 0 &&
        (values.vol_sessions < values.min_vol_sessions || values.vol_sessions > values.max_vol_sessions)) {
        values.vol_sessions = values.min_vol_sessions;
    }
    return values;
}

bool is_old_format(std::string_view text) {
    const auto lines = lines_of(text);
    return std::none_of(lines.begin(), lines.end(), [](const Line& line) { return is_comment(line.text); });
}

std::string config_file_text(const ConfigChanges& changes) {
    const ConfigValues defaults;
    const std::array<std::uint32_t, CONFIG_NUMBER_KEYS.size()> values = {
        defaults.interval,        defaults.min_vol_sessions,   defaults.max_vol_sessions, defaults.vol_sessions,
        defaults.min_pe_sessions, defaults.max_pe_sessions,    defaults.log_level,        defaults.vmknic_count,
        defaults.worker_stop,     defaults.use_ostrel_timeouts};
    std::string text = "# Configuration of the scenario\n";
    for (std::size_t i = 0; i < CONFIG_NUMBER_KEYS.size(); ++i) {
        text += fmt::format("{}={}\n", CONFIG_NUMBER_KEYS[i], values[i]);
    }
    text += fmt::format("{}={}\n", CONFIG_LOGS_PATH_KEY, defaults.logs_path);
    for (const auto& [key, value] : changes) {
        text = with_config_value(text, key, value);
    }
    return text;
}

std::string with_config_value(std::string_view text, std::string_view key, std::string_view value) {
    std::string result(text);
    const char delimiter = is_old_format(text) && !text.empty() ? ':' : '=';
    const std::string wanted = canonical_key(key);
    std::optional<Line> place;
    for (const Line& line : lines_of(text)) {
        if (const auto entry = entry_of(line, delimiter); entry && entry->key == wanted) {
            place = line;  // of several the last one counts
        }
    }
    const std::string replacement = fmt::format("{}{}{}", wanted, delimiter, value);
    if (place) {
        result.replace(place->begin, place->text.size(), replacement);
        return result;
    }
    if (!result.empty() && result.back() != '\n') {
        result += '\n';
    }
    return result + replacement + '\n';
}

std::vector<std::string> config_differences(std::string_view before, std::string_view after) {
    std::vector<std::string> differences;
    const ConfigChanges old_entries = entries_of(before);
    const ConfigChanges new_entries = entries_of(after);
    const auto find = [](const ConfigChanges& entries, const std::string& key) {
        return std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.first == key; });
    };
    for (const auto& [key, value] : new_entries) {
        const auto old = find(old_entries, key);
        if (old == old_entries.end()) {
            differences.push_back(fmt::format("{} = {} (new)", key, value));
        } else if (old->second != value) {
            differences.push_back(
                fmt::format("{} {} -> {}", key, old->second.empty() ? "(empty)" : old->second, value));
        }
    }
    for (const auto& [key, value] : old_entries) {
        if (find(new_entries, key) == new_entries.end()) {
            differences.push_back(fmt::format("{} = {} (gone)", key, value));
        }
    }
    return differences;
}

std::vector<std::string> logs_paths_of(std::string_view text) {
    std::vector<std::string> paths;
    constexpr std::string_view start = "ostrel_logs_path=";
    for (const Line& line : lines_of(text)) {
        if (line.text.starts_with(start)) {
            const std::string_view value = line.text.substr(0, LINE_CAPACITY).substr(start.size());
            paths.emplace_back(value.substr(0, value.find_first_of(std::string_view("\0\t\r", 3))));
        }
    }
    return paths;
}

bool is_simulated_logs_path(std::string_view path) {
    for (const std::string_view root : {std::string_view("/var/log/ostrel"), std::string_view("/etc/ostrel")}) {
        if (path == root || (path.starts_with(root) && path[root.size()] == '/')) {
            return path.find("/..") == std::string_view::npos;
        }
    }
    return false;
}

}  // namespace program
