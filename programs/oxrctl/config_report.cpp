#include "oxrctl/config_report.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dtl/dtl.hpp>
#include <map>
#include <sstream>

#include "common/blank.h"
#include "common/file_reader.h"
#include "common/text.h"
#include "configuration/config_judge.h"
#include "configuration/config_text.h"
#include "configuration/logs_path_rule.h"
#include "oxrctl/hidden_characters.h"
#include "oxrctl/text.h"
#include "shared/config_file.h"
#include "shared/nearest.h"

namespace oxrctl {

namespace {

constexpr off_t LARGEST_FILE_BYTES = 1 << 20;

using shared::trimmed;

void refuse_what_is_no_file(const std::string& file) {
    struct stat status {};
    if (::stat(file.c_str(), &status) != 0) {
        throw Refusal(fmt::format("{}: {}", file, std::strerror(errno)));
    }
    if (!S_ISREG(status.st_mode)) {
        throw Refusal(fmt::format("{}: not a regular file", file));
    }
    if (status.st_size > LARGEST_FILE_BYTES) {
        throw Refusal(fmt::format("{}: larger than {} MiB: not a configuration file", file, LARGEST_FILE_BYTES >> 20));
    }
}

// The lines as the service sees them: of longer ones the first 255 characters.
std::vector<std::string> read_lines(const std::string& file) {
    refuse_what_is_no_file(file);
    oxr::FileReader reader(file.c_str());
    std::vector<std::string> lines;
    std::string_view line;
    while (reader.next_line(line)) {
        if (line.find('\0') != std::string_view::npos) {
            throw Refusal(
                fmt::format("{}: line {} holds a NUL byte: not a configuration file", file, lines.size() + 1));
        }
        lines.emplace_back(line);
    }
    if (reader.error() != 0) {
        throw Refusal(fmt::format("{}: {}", file, std::strerror(reader.error())));
    }
    return lines;
}

std::string without_line_end(std::string line) {
    if (line.ends_with('\n')) {
        line.pop_back();
    }
    return line;
}

std::string range_text(const ConfigKey& key) {
    return fmt::format("{} to {}", key.low, key.high);
}

// Collects what the judge notices about the line it is given.
class Collector final : public ConfigObserver {
public:
    explicit Collector(ConfigReport& report, bool converting) : report_(report), converting_(converting) {
        for (const ConfigKey& key : config_keys) {
            report.values.emplace_back().key = key.name;
        }
    }

    void begin_line(int number, std::string text) {
        number_ = number;
        text_ = std::move(text);
    }

    void value_read(const ConfigKey& key, std::uint32_t found, std::uint32_t used, bool accepted) override {
        ConfigReport::KeyValue& value = enter(key.name);
        value.corrected = trimmed(value.in_file) != std::to_string(used);
        const bool given_up = converting_ && !key.in_old_format;
        if (given_up) {
            value.why = "given up with the old format; the default";
        } else if (accepted) {
            value.why = value.corrected ? fmt::format("read as {}", used) : "";
        } else {
            const bool is_number = trimmed(value.in_file) == std::to_string(static_cast<std::int32_t>(found));
            value.why = fmt::format("{}not {}; the default",
                                    is_number ? "" : fmt::format("read as {}, ", static_cast<std::int32_t>(found)),
                                    range_text(key));
        }
        if (!accepted && !given_up && key.rewrites) {
            report_.rewrite_reasons.push_back(fmt::format("{} is out of range", key.name));
        }
    }

    void line_ignored(std::string_view name, bool has_delimiter) override {
        if (trimmed(text_).empty()) {
            return;
        }
        report_.ignored.push_back({number_, text_, has_delimiter ? why_unknown(name) : why_no_key()});
    }

    void minimum_above_maximum(const ConfigValues& values, std::uint32_t default_minimum) override {
        correct("min_vol_sessions", default_minimum,
                fmt::format("above max_vol_sessions = {}; the default", values.max_vol_sessions));
        report_.rewrite_reasons.emplace_back("min_vol_sessions is above max_vol_sessions");
    }

    void vol_sessions_outside(const ConfigValues& values) override {
        correct("vol_sessions", values.min_vol_sessions,
                fmt::format("not between min_vol_sessions = {} and max_vol_sessions = {}; the minimum",
                            values.min_vol_sessions, values.max_vol_sessions));
        report_.rewrite_reasons.emplace_back("vol_sessions is outside the limits");
    }

    void key_missing(std::string_view name) override {
        report_.rewrite_reasons.push_back(fmt::format("there is no line {}{}...", name, converting_ ? ':' : '='));
    }

    // A line with the key of the logs path, in any spelling; `usable`: the reader takes its value.
    void logs_path_line(bool usable) {
        if (usable) {
            enter(LOGS_PATH_KEY);
        } else {
            report_.ignored.push_back(
                {number_, text_,
                 converting_ ? "given up with the old format" : "this key must be in lower case and have a path"});
        }
    }

private:
    ConfigReport::KeyValue& value_of(std::string_view key) {
        return *std::find_if(report_.values.begin(), report_.values.end(),
                             [key](const ConfigReport::KeyValue& value) { return value.key == key; });
    }

    ConfigReport::KeyValue& enter(std::string_view key) {
        ConfigReport::KeyValue& value = value_of(key);
        value.lines.push_back(number_);
        value.in_file = text_.substr(text_.find(converting_ ? ':' : '=') + 1);
        return value;
    }

    void correct(std::string_view key, std::uint32_t used, const std::string& why) {
        ConfigReport::KeyValue& value = value_of(key);
        value.in_force = std::to_string(used);
        value.why = why;
        value.corrected = true;
    }

    std::string why_unknown(std::string_view name) const {
        const std::string_view plain = trimmed(name);
        if (find_config_key(plain) != nullptr) {
            return name.front() != plain.front() ? "the key must begin the line"
                                                 : fmt::format("no blanks between the key and \"{}\"", delimiter());
        }
        std::vector<std::string_view> keys;
        std::transform(std::begin(config_keys), std::end(config_keys), std::back_inserter(keys),
                       [](const ConfigKey& key) { return key.name; });
        const std::string near = shared::nearest(plain, keys);
        return near.empty() ? "unknown key" : fmt::format("unknown key; did you mean {}?", near);
    }

    std::string why_no_key() const { return fmt::format("no \"{}\" in it", delimiter()); }

    char delimiter() const { return converting_ ? ':' : '='; }

    ConfigReport& report_;
    const bool converting_;
    int number_ = 0;
    std::string text_;
};

void take_lines(const std::vector<std::string>& lines, ConfigJudge& judge, Collector* collector, char delimiter) {
    int number = 0;
    for (const std::string& line : lines) {
        if (collector != nullptr) {
            collector->begin_line(++number, without_line_end(line));
            const std::string_view name = std::string_view(line).substr(0, line.find(delimiter));
            std::string_view ignored;
            if (name.size() < line.size() && oxr::equal_ignoring_case(name, LOGS_PATH_KEY) &&
                !oxr::is_comment_line(line)) {
                collector->logs_path_line(logs_path_value(line, ignored));
            }
        }
        judge.take_line(line);
    }
}

bool is_old_format(const std::vector<std::string>& lines) {
    shared::NoObserver observer;
    ConfigJudge judge(false, observer);
    take_lines(lines, judge, nullptr, '=');
    return judge.fitness() == ConfigFitness::not_converted;
}

std::string why_no_logs_path(const std::string& path) {
    if (path.size() > MAX_LOGS_PATH) {
        return fmt::format("longer than {} characters; the default", MAX_LOGS_PATH);
    }
    return fmt::format("{}no such folder on this host; the default",
                       !path.empty() && oxr::is_blank(path.back()) ? "ends with a blank; " : "");
}

// The last logs-path line's value, put into `values` when this host has that folder.
void judge_logs_path(const std::vector<std::string>& lines, ConfigValues& values, ConfigReport& report) {
    std::string_view value;
    std::string found;
    for (const std::string& line : lines) {
        if (logs_path_value(line, value)) {
            found = value;
        }
    }
    ConfigReport::KeyValue& entry = report.values.back();
    if (is_usable_logs_path(found.c_str())) {
        oxr::copy_text(values.ostrel_logs_path, found);
    } else if (!entry.lines.empty() && found != values.ostrel_logs_path) {
        entry.why = why_no_logs_path(found);
        entry.corrected = true;
    }
}

void enter_values(const ConfigValues& values, ConfigReport& report) {
    for (ConfigReport::KeyValue& entry : report.values) {
        entry.in_force = shared::value_text(*find_config_key(entry.key), values);
        if (entry.lines.empty() && entry.why.empty()) {
            entry.why = "the default";
        }
    }
}

std::string rewritten_text(const ConfigValues& values) {
    char text[CONFIG_TEXT_SIZE];
    return {text, compose_config(text, ConfigForm::rewritten, values)};
}

std::string diff_text(const std::vector<std::string>& lines, const std::string& rewritten) {
    std::vector<std::string> before;
    std::transform(lines.begin(), lines.end(), std::back_inserter(before), without_line_end);
    std::vector<std::string> after;
    std::istringstream text(rewritten);
    for (std::string line; std::getline(text, line);) {
        after.push_back(line);
    }
    dtl::Diff<std::string> diff(before, after);
    diff.onHuge();
    diff.compose();
    diff.composeUnifiedHunks();
    std::ostringstream printed;
    diff.printUnifiedFormat(printed);
    return printed.str();
}

// The file read as one of the current or of the old format, which the service converts.
ConfigReport read_as(const std::vector<std::string>& lines, bool converting) {
    ConfigReport report;
    Collector collector(report, converting);
    ConfigJudge judge(converting, collector);
    take_lines(lines, judge, &collector, converting ? ':' : '=');
    judge.finish();
    ConfigValues values = judge.values();
    if (judge.has_logs_path()) {
        judge_logs_path(lines, values, report);
    }
    enter_values(values, report);
    if (converting) {
        report.rewrite_reasons.insert(report.rewrite_reasons.begin(), "it is in the old format");
    }
    if (lines.empty()) {
        report.rewrite_reasons.clear();  // what it held isn't known
    } else if (judge.wants_rewrite()) {
        report.rewritten = rewritten_text(values);
    }
    return report;
}

void enter_start(const ConfigReport& at_start, ConfigReport& report) {
    for (std::size_t i = 0; i < report.values.size(); ++i) {
        report.values[i].at_start = at_start.values[i].in_force;
    }
    report.start.rewritten = at_start.rewritten;
}

// --- notes -------------------------------------------------------------------------------------------------

void note_the_form(const std::vector<std::string>& lines, ConfigReport& report) {
    if (report.old_format) {
        report.notes.emplace_back(
            "The file is in the old format. The service converts it when it starts; a running one leaves it alone and "
            "keeps the values it has.");
    } else if (lines.empty()) {
        report.notes.emplace_back(
            "The file is empty. The service leaves it alone: a running one keeps the values it has, one that starts "
            "uses the defaults. Write it anew, or delete it and restart the service, which creates one.");
    } else if (report.readings_differ()) {
        report.notes.push_back(fmt::format(
            "The file has no comment line. A service that starts takes it for the old format and puts the values "
            "\"at a start\" into it.{} Add a line that begins with \"#\".",
            report.running.rewritten.empty()
                ? ""
                : " One that runs rewrites it at its next reading, with comment lines, and a start is harmless then."));
    }
}

void note_repeated_keys(ConfigReport& report) {
    for (const ConfigReport::KeyValue& value : report.values) {
        if (value.lines.size() > 1) {
            report.notes.push_back(fmt::format("{} is in lines {}: line {} is in force.", value.key,
                                               fmt::join(value.lines, ", "), value.lines.back()));
        }
    }
}

void note_hidden_characters(ConfigReport& report) {
    std::vector<std::pair<std::string, std::vector<int>>> kinds;
    for (const ConfigReport::HiddenCharacter& hidden : report.hidden) {
        const auto known =
            std::find_if(kinds.begin(), kinds.end(), [&](const auto& kind) { return kind.first == hidden.what; });
        auto& lines = known != kinds.end() ? known->second : kinds.emplace_back(hidden.what, std::vector<int>{}).second;
        lines.push_back(hidden.line);
    }
    for (const auto& [what, lines] : kinds) {
        report.notes.push_back(fmt::format("{} {} {}.", line_numbers(lines), lines.size() == 1 ? "has" : "have", what));
    }
}

void note_what_is_cut(const std::vector<std::string>& lines, ConfigReport& report) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].size() == oxr::FileReader::line_capacity && !lines[i].ends_with('\n')) {
            report.notes.push_back(fmt::format("Line {} is longer than 255 characters; the rest is not read.", i + 1));
        }
    }
    if (!lines.empty() && !lines.back().ends_with('\n') && lines.back().size() < oxr::FileReader::line_capacity) {
        report.notes.emplace_back("The last line has no line end: the file may have been cut off.");
    }
}

}  // namespace

bool ConfigReport::is_clean() const {
    return ignored.empty() && notes.empty() && rewrite_reasons.empty() &&
           std::none_of(values.begin(), values.end(), [](const KeyValue& value) { return value.corrected; });
}

bool ConfigReport::readings_differ() const {
    return running.refuses || start.refuses || running.rewritten != start.rewritten;
}

ConfigReport judge_config_file(const std::string& file) {
    const std::vector<std::string> lines = read_lines(file);
    const bool has_comment = std::any_of(lines.begin(), lines.end(), oxr::is_comment_line);
    const bool old_format = is_old_format(lines);
    ConfigReport report = read_as(lines, old_format);
    report.old_format = old_format;
    report.running = {old_format || lines.empty(), old_format ? "" : report.rewritten};
    report.start.refuses = lines.empty();
    enter_start(has_comment || lines.empty() ? report : read_as(lines, true), report);
    if (!report.rewritten.empty()) {
        report.diff = diff_text(lines, report.rewritten);
    }
    report.hidden = hidden_characters(lines);
    note_the_form(lines, report);
    note_repeated_keys(report);
    note_hidden_characters(report);
    note_what_is_cut(lines, report);
    return report;
}

}  // namespace oxrctl
