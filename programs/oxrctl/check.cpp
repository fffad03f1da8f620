#include <fmt/format.h>

#include <algorithm>

#include "oxrctl/commands.h"
#include "oxrctl/config_report.h"
#include "oxrctl/text.h"

namespace oxrctl {

namespace {

constexpr std::size_t MOST_IGNORED_LINES = 20;

std::string headline(const ConfigReport& report) {
    if (report.is_clean()) {
        return "the service takes it as it stands";
    }
    if (report.start.refuses) {
        return "it is empty";
    }
    const auto corrected =
        static_cast<std::size_t>(std::count_if(report.values.begin(), report.values.end(),
                                               [](const ConfigReport::KeyValue& value) { return value.corrected; }));
    std::vector<std::string> parts;
    if (corrected > 0) {
        parts.push_back("corrects " + count_of(corrected, "value", "values"));
    }
    if (!report.ignored.empty()) {
        parts.push_back("ignores " + count_of(report.ignored.size(), "line", "lines"));
    }
    if (!report.old_format && !report.running.refuses && report.readings_differ()) {
        parts.emplace_back("reads it in another way when it starts");
    }
    if (!report.rewrite_reasons.empty()) {
        parts.push_back(report.old_format ? "converts it when it starts" : "rewrites it at its next reading");
    }
    return parts.empty() ? "the service takes it, but see the notes below"
                         : fmt::format("the service {}", fmt::join(parts, ", "));
}

std::string lines_text(const std::vector<int>& lines) {
    return lines.empty() ? "-" : fmt::format("{}", fmt::join(lines, ", "));
}

// With the values of both readings where they differ.
std::string values_text(const ConfigReport& report) {
    const bool both = report.readings_differ();
    Columns columns;
    columns.add(both ? std::vector<std::string>{"key", "line", "in the file", "running", "at a start", "why"}
                     : std::vector<std::string>{"key", "line", "in the file", "in force", "why"});
    for (const ConfigReport::KeyValue& value : report.values) {
        std::vector<std::string> cells = {value.key, lines_text(value.lines),
                                          value.lines.empty() ? "-" : printable(value.in_file, 40),
                                          both && report.running.refuses ? "kept" : value.in_force};
        if (both) {
            cells.push_back(value.at_start);
        }
        cells.push_back(value.why);
        columns.add(std::move(cells));
    }
    return columns.text();
}

std::string ignored_text(const ConfigReport& report) {
    Columns columns;
    const std::size_t shown = std::min(report.ignored.size(), MOST_IGNORED_LINES);
    for (std::size_t i = 0; i < shown; ++i) {
        const ConfigReport::IgnoredLine& line = report.ignored[i];
        columns.add({fmt::format("line {}", line.line), printable(line.text, 40), line.why});
    }
    if (shown < report.ignored.size()) {
        columns.add({fmt::format("and {} more", report.ignored.size() - shown)});
    }
    return columns.text();
}

std::string report_text(const std::string& file, const ConfigReport& report) {
    std::string text = wrapped("", fmt::format("{}: {}", file, headline(report))) + "\n" + values_text(report);
    if (!report.ignored.empty()) {
        text += "\nIgnored:\n" + ignored_text(report);
    }
    for (const std::string& note : report.notes) {
        text += "\n" + wrapped("Note: ", note);
    }
    if (!report.rewrite_reasons.empty()) {
        text += "\n" + wrapped("Rewritten because ", fmt::format("{}:", fmt::join(report.rewrite_reasons, ", ")));
        text += fmt::format("--- {}\n+++ as the service writes it\n{}", file, without_control_characters(report.diff));
    }
    return text;
}

Json reading_json(const ConfigReport::Reading& reading) {
    return {{"refuses", reading.refuses}, {"rewrites", !reading.rewritten.empty()}};
}

Json report_json(const std::string& file, const ConfigReport& report) {
    Json values = Json::array();
    for (const ConfigReport::KeyValue& value : report.values) {
        values.push_back({{"key", value.key},
                          {"lines", value.lines},
                          {"line_in_force", value.lines.empty() ? Json() : Json(value.lines.back())},
                          {"in_file", value.lines.empty() ? Json() : Json(value.in_file)},
                          {"in_force", value.in_force},
                          {"running", report.running.refuses ? Json() : Json(value.in_force)},
                          {"at_start", value.at_start},
                          {"corrected", value.corrected},
                          {"why", value.why}});
    }
    Json ignored = Json::array();
    for (const ConfigReport::IgnoredLine& line : report.ignored) {
        ignored.push_back({{"line", line.line}, {"text", line.text}, {"why", line.why}});
    }
    Json hidden = Json::array();
    for (const ConfigReport::HiddenCharacter& each : report.hidden) {
        hidden.push_back({{"line", each.line}, {"what", each.what}});
    }
    return {{"version", JSON_VERSION},
            {"file", file},
            {"clean", report.is_clean()},
            {"format", report.old_format ? "old" : "current"},
            {"values", std::move(values)},
            {"ignored", std::move(ignored)},
            {"hidden", std::move(hidden)},
            {"readings_differ", report.readings_differ()},
            {"running", reading_json(report.running)},
            {"start", reading_json(report.start)},
            {"notes", report.notes},
            {"rewritten", !report.rewrite_reasons.empty()},
            {"rewrite_reasons", report.rewrite_reasons},
            {"diff", report.diff}};
}

}  // namespace

Answer check(const CheckOptions& options) {
    const ConfigReport report = judge_config_file(options.file);
    return {options.json ? json_text(report_json(options.file, report)) : report_text(options.file, report),
            report.is_clean() ? EXIT_FINE : EXIT_FOUND};
}

}  // namespace oxrctl
