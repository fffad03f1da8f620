#include "oxrctl/status/metrics.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

#include "oxrctl/catalogue.h"
#include "oxrctl/command.h"
#include "oxrctl/text.h"
#include "simhost/limits.h"

namespace oxrctl {

struct MetricFamily {
    std::string_view name;
    std::string_view help;
    bool is_counter = false;
    std::optional<std::int64_t> (*value)(const Story&) = nullptr;  // of a family with one sample a host
};

namespace {

constexpr std::string_view FIRST_LINE = "# Made by oxrctl status --metrics.";
constexpr std::string_view COUNTED_UNTIL = "# counted until ";

using Value = std::optional<std::int64_t>;

Value known(int number) {
    return number == TargetStory::unknown ? Value() : Value(number);
}

Value time_value(LogSeconds time) {
    return time == NO_TIME ? Value() : Value(unix_time(time));
}

Value required_sessions(const Story& story) {
    std::int64_t sum = 0;
    for (const TargetStory& target : story.targets) {
        sum += std::max(target.required, 0);
    }
    return knows_targets(story) ? Value(sum) : Value();
}

Value worker_stop(const Story& story) {
    const std::string value = value_of(story, "worker_stop");
    return value.empty() ? Value() : Value(value == "0" ? 0 : 1);
}

// One sample a host.
const MetricFamily families[] = {
    {"ostrel_last_message_timestamp_seconds", "Time of the log's last message.", false,
     [](const Story& story) { return time_value(story.last.time); }},
    {"ostrel_last_pass_timestamp_seconds", "When the last pass that ended began.", false,
     [](const Story& story) { return time_value(story.last_pass_began); }},
    {"ostrel_last_good_pass_timestamp_seconds", "When the last pass without a warning or an error began.", false,
     [](const Story& story) { return time_value(story.last_good_pass_began); }},
    {"ostrel_last_pass_duration_seconds", "How long the last cycle with a pass took.", false,
     [](const Story& story) { return known(story.pass_seconds); }},
    {"ostrel_interval_seconds", "Pause between two cycles, as configured.", false,
     [](const Story& story) { return known(story.interval); }},
    {"ostrel_worker_stop", "1 while worker_stop is set.", false, worker_stop},
    {"ostrel_volumes", "Volumes that the last pass found.", false,
     [](const Story& story) { return known(story.volumes); }},
    {"ostrel_targets_short", "Targets with fewer sessions than required after the last pass.", false,
     [](const Story& story) { return known(short_targets(story)); }},
    {"ostrel_sessions", "iSCSI sessions of the host.", false, [](const Story& story) { return known(story.sessions); }},
    {"ostrel_sessions_required", "Sessions that the targets of the last pass require.", false, required_sessions},
    {"ostrel_sessions_limit", "Sessions beyond which the service adds none.", false,
     [](const Story&) { return Value(simhost::MAX_SESSIONS); }},
    {"ostrel_paths", "Paths of all volumes, dead ones included.", false,
     [](const Story& story) { return known(story.paths); }},
    {"ostrel_paths_limit", "Paths from which on nothing is balanced.", false,
     [](const Story&) { return Value(simhost::MAX_PATHS); }},
    {"ostrel_dead_paths", "Dead paths, where the log tells those of every target (log_level=2).", false,
     [](const Story& story) { return known(dead_paths(story)); }},
    {"ostrel_passes_total", "Passes that ended.", true, [](const Story& story) { return Value(story.totals.passes); }},
    {"ostrel_good_passes_total", "Passes without a warning or an error.", true,
     [](const Story& story) { return Value(story.totals.good_passes); }},
    {"ostrel_sessions_added_total", "Sessions that passes added.", true,
     [](const Story& story) { return Value(story.totals.added); }},
    {"ostrel_sessions_removed_total", "Sessions that passes removed.", true,
     [](const Story& story) { return Value(story.totals.removed); }},
};

// Several samples a host.
const MetricFamily up = {
    "ostrel_up",
    "1 if the service works: its log is read and, where age is judged, fresh, and its worker has not stopped."};
const MetricFamily health = {"ostrel_health", "1 at the state of the host."};
const MetricFamily reason = {"ostrel_health_reason", "1 at each reason for the state of the host."};
const MetricFamily messages = {"ostrel_messages_total", "Warnings and errors, by the catalogue's subjects.", true};
const MetricFamily volume_required = {"ostrel_volume_sessions_required", "Sessions that the target requires."};
const MetricFamily volume_sessions = {"ostrel_volume_sessions", "Sessions of the target at the last pass."};
const MetricFamily volume_paths = {"ostrel_volume_paths", "Active paths of the target at the last pass."};
const MetricFamily build = {"ostrel_build_info", "Versions; the value is always 1."};

bool is_utf8(const std::string& text) {
    try {
        (void)Json(text).dump();
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

// Bytes that are no letters of UTF-8 would spoil the whole page.
std::string escaped(std::string text) {
    if (!is_utf8(text)) {
        std::replace_if(
            text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; }, '?');
    }
    std::string result;
    for (const char c : printable(text, 400)) {
        result += c == '\\' ? "\\\\" : c == '"' ? "\\\"" : std::string(1, c);
    }
    return result;
}

using Labels = std::vector<std::pair<std::string_view, std::string_view>>;

std::string labels_text(const Labels& labels) {
    std::string text;
    for (const auto& [name, value] : labels) {
        if (!value.empty()) {
            text += fmt::format("{}{}=\"{}\"", text.empty() ? "{" : ",", name, escaped(std::string(value)));
        }
    }
    return text.empty() ? text : text + "}";
}

void add_judgement(const std::string& host, const Judgement& judgement, std::vector<MetricSample>& samples) {
    for (const Health each : {Health::well, Health::warning, Health::critical, Health::unknown}) {
        samples.push_back(
            {&health, labels_text({{"host", host}, {"state", health_word(each)}}), judgement.health == each ? 1 : 0});
    }
    const auto is_told = [&judgement](std::string_view name) {
        return std::any_of(judgement.reasons.begin(), judgement.reasons.end(),
                           [name](const Reason& each) { return each.name == name; });
    };
    for (const ReasonEntry& each : catalogue().reasons) {
        samples.push_back({&reason, labels_text({{"host", host}, {"reason", each.name}}), is_told(each.name) ? 1 : 0});
    }
    const bool works = !is_told("silent") && !is_told("stopped") && !is_told("no_messages") && !is_told("not_read");
    samples.push_back({&up, labels_text({{"host", host}}), works ? 1 : 0});
}

// A message that comes for the first time must raise a counter that is there: each kind has one from the start.
void add_messages(const std::string& host, const Story& story, std::vector<MetricSample>& samples) {
    auto numbers = story.totals.messages;
    for (const std::string level : {"ERROR", "WARN"}) {
        numbers[{level, "Other"}] += 0;
        for (const MessageEntry& entry : catalogue().messages) {
            if (entry.level == level) {
                numbers[{level, entry.subject}] += 0;
            }
        }
    }
    for (const auto& [kind, number] : numbers) {
        samples.push_back(
            {&messages, labels_text({{"host", host}, {"level", kind.first}, {"subject", kind.second}}), number});
    }
}

void add_volumes(const std::string& host, const Story& story, std::vector<MetricSample>& samples) {
    for (const TargetStory& target : story.targets) {
        const std::string labels = labels_text(
            {{"host", host}, {"volume", target.group_scoped ? "" : target.devices.front()}, {"target", target.iqn}});
        const auto add = [&](const MetricFamily& family, int value) {
            if (value != TargetStory::unknown) {
                samples.push_back({&family, labels, value});
            }
        };
        add(volume_required, target.required);
        add(volume_sessions, sessions_of(story, target));
        add(volume_paths, target.paths);
    }
}

}  // namespace

MetricsMemory read_metrics(const std::string& file) {
    MetricsMemory memory;
    std::ifstream stream(file);
    std::string line;
    if (!stream) {
        return memory;
    }
    if (std::getline(stream, line) && line != FIRST_LINE) {
        throw Refusal(fmt::format("{}: not written by oxrctl status --metrics; it is left alone", file));
    }
    while (std::getline(stream, line)) {
        if (line.starts_with(COUNTED_UNTIL)) {
            std::istringstream fields(line.substr(COUNTED_UNTIL.size()));
            LogPosition position;
            std::string of, host;
            fields >> position.time >> position.messages >> of;
            std::getline(fields >> std::ws, host);
            memory.positions[host] = position;
        } else if (const std::size_t blank = line.rfind(' ');
                   blank != std::string::npos && line.substr(0, line.find_first_of("{ ")).ends_with("_total")) {
            memory.counters[line.substr(0, blank)] = std::strtoll(line.c_str() + blank, nullptr, 10);
        }
    }
    return memory;
}

std::vector<MetricSample> metrics_of(const std::string& host, const Story& story, const Judgement& judgement,
                                     bool per_volume) {
    std::vector<MetricSample> samples;
    add_judgement(host, judgement, samples);
    for (const MetricFamily& family : families) {
        if (const Value value = family.value(story)) {
            samples.push_back({&family, labels_text({{"host", host}}), *value});
        }
    }
    add_messages(host, story, samples);
    if (per_volume) {
        add_volumes(host, story, samples);
    }
    return samples;
}

std::vector<MetricSample> metrics_of_unread(const std::string& host, const Judgement& judgement) {
    std::vector<MetricSample> samples;
    add_judgement(host, judgement, samples);
    return samples;
}

std::string metrics_page(const std::vector<MetricSample>& samples, const MetricsMemory& memory,
                         const VersionLabels& versions) {
    std::map<std::string_view, std::pair<const MetricFamily*, std::map<std::string, std::int64_t>>> page;
    const auto add = [&page](const MetricFamily& family, const std::string& labels, std::int64_t value) {
        page[family.name].first = &family;
        page[family.name].second[labels] += value;
    };
    for (const MetricSample& sample : samples) {
        add(*sample.family, sample.labels, sample.value);
    }
    for (const auto& [series, counted] : memory.counters) {
        const std::string name = series.substr(0, series.find('{'));
        const std::string labels = series.substr(name.size());
        if (name == messages.name) {
            add(messages, labels, counted);
        } else if (const auto family = std::find_if(std::begin(families), std::end(families),
                                                    [&name](const MetricFamily& each) { return each.name == name; });
                   family != std::end(families)) {
            add(*family, labels, counted);
        }
    }
    add(build, labels_text({{"oxrctl", versions.oxrctl}, {"oxd", versions.oxd}, {"psp", versions.psp}}), 1);
    std::string text = fmt::format("{}\n", FIRST_LINE);
    for (const auto& [host, position] : memory.positions) {
        text += fmt::format("{}{} {} host {}\n", COUNTED_UNTIL, position.time, position.messages, host);
    }
    for (const auto& [name, family_and_values] : page) {
        const auto& [family, values] = family_and_values;
        text += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, family->help, name,
                            family->is_counter ? "counter" : "gauge");
        for (const auto& [labels, value] : values) {
            text += fmt::format("{}{} {}\n", name, labels, value);
        }
    }
    return text;
}

void write_metrics(const std::string& file, const std::string& page) {
    const std::string unfinished = fmt::format("{}.{}.tmp", file, ::getpid());
    std::ofstream stream(unfinished, std::ios::binary);
    stream << page;
    stream.close();
    if (!stream || ::rename(unfinished.c_str(), file.c_str()) != 0) {
        const int error = errno;
        (void)::unlink(unfinished.c_str());
        throw Refusal(fmt::format("{}: {}", file, std::strerror(error)));
    }
}

}  // namespace oxrctl
