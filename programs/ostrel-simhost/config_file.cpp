#include "config_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>

#include "common/blank.h"
#include "common/file_reader.h"
#include "common/text.h"
#include "configuration/config_judge.h"
#include "configuration/logs_path_rule.h"
#include "shared/config_file.h"

namespace ostrel_simhost {

namespace {

// Why a number isn't the one in the file.
class CorrectionObserver final : public ConfigObserver {
public:
    explicit CorrectionObserver(bool converting) : converting_(converting) {}

    void value_read(const ConfigKey& key, std::uint32_t, std::uint32_t used, bool accepted) override {
        const bool given_up = converting_ && !key.in_old_format;
        why_[key.name] = given_up   ? "given up with the old format; the default"
                         : accepted ? fmt::format("read as {}", used)
                                    : fmt::format("not {} to {}; the default", key.low, key.high);
    }
    void minimum_above_maximum(const ConfigValues& values, std::uint32_t) override {
        why_["min_vol_sessions"] = fmt::format("above max_vol_sessions = {}; the default", values.max_vol_sessions);
    }
    void vol_sessions_outside(const ConfigValues& values) override {
        why_["vol_sessions"] = fmt::format("not between min_vol_sessions = {} and max_vol_sessions = {}; the minimum",
                                           values.min_vol_sessions, values.max_vol_sessions);
    }
    const std::string& why(std::string_view key) { return why_[key]; }

private:
    const bool converting_;
    std::map<std::string_view, std::string> why_;
};

// The judge's values, and the logs path when the host has the folder; none: the text isn't taken.
std::optional<ConfigValues> judge(const simhost::Host& host, const std::string& text, bool converting,
                                  ConfigObserver& observer) {
    ConfigJudge judge(converting, observer);
    for (const std::string_view line : shared::config_lines(text)) {
        judge.take_line(line);
    }
    if (judge.fitness() != ConfigFitness::fit) {
        return std::nullopt;
    }
    judge.finish();
    ConfigValues values = judge.values();
    const std::string path = shared::last_logs_path(text);
    if (!path.empty() && path.size() <= MAX_LOGS_PATH && host.exists(path)) {
        oxr::copy_text(values.ostrel_logs_path, path);
    }
    return values;
}

// Both spellings of a key give the one that a rewrite uses.
std::string canonical_key(std::string_view name) {
    if (const ConfigKey* const key = find_config_key(name)) {
        return std::string(key->name);
    }
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(), oxr::to_lower);
    return lower;
}

char delimiter_of(std::string_view text) {
    return is_old_format(text) && !text.empty() ? ':' : '=';
}

struct ConfigEntry {
    std::string key;
    std::string_view value;
    std::size_t begin;  // of its line
};

std::vector<ConfigEntry> entries_of(std::string_view text) {
    std::vector<ConfigEntry> entries;
    const char delimiter = delimiter_of(text);
    for (const std::string_view line : shared::config_lines(text)) {
        const std::size_t split = line.find(delimiter);
        if (!oxr::is_comment_line(line) && split != std::string_view::npos && split > 0) {
            entries.push_back({canonical_key(line.substr(0, split)), shared::trimmed(line.substr(split + 1)),
                               static_cast<std::size_t>(line.data() - text.data())});
        }
    }
    return entries;
}

// Of several lines with one key the last counts.
ConfigChanges values_of(std::string_view text) {
    ConfigChanges values;
    for (const ConfigEntry& entry : entries_of(text)) {
        std::string key(shared::trimmed(entry.key));
        const auto same =
            std::find_if(values.begin(), values.end(), [&](const auto& each) { return each.first == key; });
        if (same != values.end()) {
            same->second = entry.value;
        } else {
            values.emplace_back(std::move(key), entry.value);
        }
    }
    return values;
}

}  // namespace

ConfigValues config_at_start(const simhost::Host& host) {
    const std::string text = host.read_file(CONFIG_FILE);
    shared::NoObserver observer;
    return judge(host, text, is_old_format(text), observer).value_or(ConfigValues());
}

std::vector<shared::ValueNotTaken> values_not_taken_at_start(const simhost::Host& host) {
    const std::string text = host.read_file(CONFIG_FILE);
    CorrectionObserver observer(is_old_format(text));
    const auto values = judge(host, text, is_old_format(text), observer).value_or(ConfigValues());
    std::vector<shared::ValueNotTaken> found;
    for (const auto& [name, written] : values_of(text)) {
        const ConfigKey* const key = find_config_key(name);
        const std::string in_force = key == nullptr ? written : shared::value_text(*key, values);
        if (in_force != written) {
            const bool is_path = key->number == nullptr;
            found.push_back({name, written, in_force,
                             is_path ? fmt::format("not a folder of the host with at most {} characters; the default",
                                                   MAX_LOGS_PATH)
                                     : observer.why(key->name)});
        }
    }
    return found;
}

std::optional<ConfigValues> config_at_cycle(const simhost::Host& host) {
    const std::string text = host.read_file(CONFIG_FILE);
    shared::NoObserver observer;
    return text.empty() ? std::nullopt : judge(host, text, false, observer);
}

bool is_old_format(std::string_view text) {
    const auto lines = shared::config_lines(text);
    return std::none_of(lines.begin(), lines.end(), oxr::is_comment_line);
}

std::string config_file_text(const ConfigChanges& changes) {
    std::string text = "# Configuration of the scenario\n";
    for (const ConfigKey& key : config_keys) {
        text += fmt::format("{}={}\n", key.name, shared::value_text(key, {}));
    }
    for (const auto& [key, value] : changes) {
        text = with_config_value(text, key, value);
    }
    return text;
}

std::string with_config_value(std::string_view text, std::string_view key, std::string_view value) {
    std::string result(text);
    const std::string wanted = canonical_key(key);
    const std::string replacement = fmt::format("{}{}{}", wanted, delimiter_of(text), value);
    const auto entries = entries_of(text);
    const auto last =
        std::find_if(entries.rbegin(), entries.rend(), [&](const ConfigEntry& e) { return e.key == wanted; });
    if (last != entries.rend()) {
        const std::size_t end = std::min(text.find('\n', last->begin), text.size());
        return result.replace(last->begin, end - last->begin, replacement);
    }
    if (!result.empty() && result.back() != '\n') {
        result += '\n';
    }
    return result + replacement + '\n';
}

ConfigChanges config_line_values(std::string_view line) {
    return values_of(fmt::format("#\n{}", line));
}

ConfigChanges config_file_values(std::string_view text) {
    return text.empty() ? ConfigChanges() : values_of(config_file_text({}) + std::string(text));
}

std::vector<std::string> config_differences(std::string_view before, std::string_view after) {
    std::vector<std::string> differences;
    const ConfigChanges old_values = values_of(before);
    const ConfigChanges new_values = values_of(after);
    const auto find = [](const ConfigChanges& values, const std::string& key) {
        return std::find_if(values.begin(), values.end(), [&](const auto& each) { return each.first == key; });
    };
    for (const auto& [key, value] : new_values) {
        const auto old = find(old_values, key);
        if (old == old_values.end()) {
            differences.push_back(fmt::format("{} = {} (new)", key, value));
        } else if (old->second != value) {
            differences.push_back(
                fmt::format("{} {} -> {}", key, old->second.empty() ? "(empty)" : old->second, value));
        }
    }
    for (const auto& [key, value] : old_values) {
        if (find(new_values, key) == new_values.end()) {
            differences.push_back(fmt::format("{} = {} (gone)", key, value));
        }
    }
    return differences;
}

std::vector<std::string> logs_paths_of(std::string_view text) {
    std::vector<std::string> paths;
    std::string_view path;
    for (const std::string_view line : shared::config_lines(text)) {
        if (logs_path_value(line, path)) {
            paths.emplace_back(path);
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

}  // namespace ostrel_simhost
