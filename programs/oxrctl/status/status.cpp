#include <fmt/format.h>

#include <algorithm>
#include <mutex>

#include "common/file_reader.h"
#include "common/log_place.h"
#include "configuration/logs_path_rule.h"
#include "oxrctl/commands.h"
#include "oxrctl/status/fleet.h"
#include "oxrctl/status/log_sources.h"
#include "oxrctl/status/metrics.h"
#include "oxrctl/status/story_views.h"
#include "oxrctl/text.h"

namespace oxrctl {

namespace {

// The log of this host: where its configuration says.
std::string own_log() {
    oxr::FileReader config("/etc/ostrel/oxr.conf");
    char configured[256];
    read_logs_path(config, configured);
    return std::string(is_usable_logs_path(configured) ? configured : DEFAULT_LOG_DIR) + "/oxr.log";
}

// A version file of this host; the log doesn't tell the versions.
std::string version_in(const char* file) {
    oxr::FileReader reader(file);
    std::string_view line;
    return reader.next_line(line) ? printable(line.substr(0, line.find_first_of("\r\n"))) : "";
}

// What `status` looks at.
struct Question {
    const StatusOptions& options;
    LogSeconds now = log_seconds_now();
    bool own = false;  // this host's own log: it is being written
    std::string oxd_version{}, psp_version{};
    MetricsMemory memory{};

    // Of a copy the age is judged only on request.
    Clock clock(const Story& story) const {
        std::optional<LogSeconds> oldest = options.max_age;
        if (!oldest && own) {
            oldest = oldest_age_of(story);
        }
        return {now, oldest};
    }

    // Of a log whose counters aren't known all is counted.
    LogPosition since(const std::string& host) const {
        const auto known = memory.positions.find(host);
        return known == memory.positions.end() ? LogPosition() : known->second;
    }

    HowMuch how_much(const std::string& host) const {
        return options.metrics && since(host).time == NO_TIME ? HowMuch::all : HowMuch::end;
    }
};

Question question_of(const StatusOptions& options) {
    Question question{options};
    question.own = options.logs.empty();
    if (question.own) {
        question.oxd_version = version_in("/etc/ostrel/oxdversion.txt");
        question.psp_version = version_in("/etc/ostrel/pspversion.txt");
    }
    if (options.metrics && *options.metrics != "-") {
        question.memory = read_metrics(*options.metrics);
    }
    return question;
}

ExitCode exit_of(const Question& question, Health health, bool readable) {
    if (question.options.check) {
        return static_cast<ExitCode>(health);
    }
    return !readable ? EXIT_UNUSABLE : health == Health::well ? EXIT_FINE : EXIT_FOUND;
}

Answer metrics_answer(const Question& question, const std::vector<MetricSample>& samples, const MetricsMemory& memory) {
    const std::string page = metrics_page(samples, memory, {OXR_VERSION, question.oxd_version, question.psp_version});
    if (*question.options.metrics == "-") {
        return {page};
    }
    write_metrics(*question.options.metrics, page);
    return {};
}

// An empty log is none of another program's.
void refuse_if_foreign(const std::string& file, const Story& story) {
    if (story.messages == 0 && story.unreadable_lines > 0) {
        refuse_foreign(file);
    }
}

std::string nothing_like(const TargetFilter& filter) {
    return filter.volume.empty()
               ? fmt::format("{}: the log tells of no target at this adapter (a log with log_level=2 tells adapters)",
                             filter.adapter)
               : fmt::format("{}: the log tells of no such volume or target{}", filter.volume,
                             filter.adapter.empty() ? "" : " at this adapter");
}

// A host whose log was counted and isn't found any more is told.
void add_hosts_that_are_gone(const Question& question, Logs& logs) {
    for (const auto& [host, position] : question.memory.positions) {
        const auto is_it = [&name = host](const LogSource& source) { return source.host == name; };
        if (logs.of_hosts && std::none_of(logs.sources.begin(), logs.sources.end(), is_it)) {
            logs.sources.push_back({host, "the log of " + host});
        }
    }
}

Answer one_log(const Question& question, const LogSource& source) {
    const StatusOptions& options = question.options;
    LogReading reading =
        read_log(source.file, options.check ? HowMuch::end : HowMuch::all, {}, options.targets.naming());
    refuse_if_foreign(source.file, reading.story);
    const Surroundings around{question.clock(reading.story), question.oxd_version, question.psp_version};
    const Judgement judgement = judge(reading.story, around.clock);
    const ExitCode exit_code = exit_of(question, judgement.health, true);
    if (options.check) {
        return {plugin_line(reading.story, judgement, around.clock), exit_code};
    }
    const std::size_t all = present_targets(reading.story);
    if (!options.targets.apply(reading.story)) {
        throw Refusal(nothing_like(options.targets));
    }
    TargetView view{!options.no_group, !options.targets.volume.empty(), ""};
    if (options.targets.is_set()) {
        view.shown = fmt::format("{} of {}, {}; all else is of the whole host", present_targets(reading.story),
                                 count_of(all, "target", "targets"), printable(options.targets.text()));
    }
    return {options.json ? json_text(story_json(reading, judgement, around))
                         : without_control_characters(story_text(reading, judgement, around, view)),
            exit_code};
}

Answer many_logs(const Question& question, const std::vector<LogSource>& sources) {
    const StatusOptions& options = question.options;
    if (options.targets.is_set() || options.no_group) {
        throw Refusal("--volume, --adapter, --problems and --no-group need a single log");
    }
    std::mutex mutex;  // of what follows
    std::vector<HostRow> rows(sources.size());
    std::vector<MetricSample> samples;
    MetricsMemory memory = question.memory;
    for_each_side_by_side(sources.size(), [&](std::size_t i) {
        const auto& [host, file] = sources[i];
        std::vector<MetricSample> of_host;
        LogPosition position = question.since(host);
        try {
            const LogReading reading = read_log(file, question.how_much(host), position);
            refuse_if_foreign(file, reading.story);
            const Clock clock = question.clock(reading.story);
            const Judgement judgement = judge(reading.story, clock);
            rows[i] = host_row(host, reading.story, judgement, clock);
            position = reading.story.counted;
            if (options.metrics) {
                of_host = metrics_of(host, reading.story, judgement, options.per_volume);
            }
        } catch (const Refusal& refusal) {
            rows[i] = unread_host(host, refusal.what());
            of_host = metrics_of_unread(host, rows[i].judgement);
        }
        const std::lock_guard lock(mutex);
        samples.insert(samples.end(), of_host.begin(), of_host.end());
        memory.positions[host] = position;
    });
    sort_rows(rows);
    const bool readable = std::all_of(rows.begin(), rows.end(), [](const HostRow& row) { return row.problem.empty(); });
    const ExitCode exit_code = exit_of(question, rows.front().judgement.health, readable);
    if (options.metrics) {
        return metrics_answer(question, samples, memory);
    }
    if (options.check) {
        return {fleet_line(rows), exit_code};
    }
    return {options.json ? json_text(fleet_json(rows)) : without_control_characters(fleet_text(rows)), exit_code};
}

}  // namespace

Answer status(const StatusOptions& options) {
    try {
        const Question question = question_of(options);
        Logs logs = question.own ? Logs{{{"", own_log()}}} : find_logs(options.logs);
        add_hosts_that_are_gone(question, logs);
        return logs.of_hosts || options.metrics ? many_logs(question, logs.sources)
                                                : one_log(question, logs.sources.front());
    } catch (const Refusal& refusal) {
        if (!options.check) {
            throw;
        }
        return {fmt::format("OSTREL {} - {}\n", plugin_word(Health::unknown), plugin_text(refusal.what())),
                static_cast<ExitCode>(Health::unknown)};
    }
}

}  // namespace oxrctl
