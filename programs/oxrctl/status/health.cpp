#include "oxrctl/status/health.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "oxrctl/catalogue.h"
#include "oxrctl/command.h"
#include "oxrctl/text.h"
#include "shared/name_list.h"
#include "simhost/limits.h"

namespace oxrctl {

namespace {

constexpr LogSeconds ROOM_SECONDS = 60;
constexpr int DEFAULT_INTERVAL_SECONDS = 120;
constexpr int LONG_LOGIN_PASSES = 3;
constexpr int LONG_RENEWAL_CYCLES = 10;

std::string name_of(const TargetStory& target) {
    return target.group_scoped || target.devices.empty() ? target.iqn : target.devices.front();
}

bool carries_volumes(const TargetStory& target) {
    return !target.group_scoped || !target.devices.empty();
}

// What may be wrong with a target.
struct TargetRule {
    std::string_view name;  // of the reason
    std::string_view what;
    bool (*is_so)(const Story&, const TargetStory&);
};

constexpr TargetRule target_rules[] = {
    {"no_path", "no active path",
     [](const Story&, const TargetStory& target) { return target.paths == 0 && carries_volumes(target); }},
    {"one_path", "one active path only",
     [](const Story&, const TargetStory& target) {
         return target.paths == 1 && target.required > 1 && carries_volumes(target);
     }},
    {"unread", "sessions could not be read", [](const Story&, const TargetStory& target) { return target.unread; }},
    {"cut_short", "cut short by the host's limit of sessions",
     [](const Story&, const TargetStory& target) { return target.cut_short; }},
    {"short", "fewer sessions than required",
     [](const Story& story, const TargetStory& target) {
         return missing_sessions(story, target) > 0 && !target.cut_short;
     }},
    {"logging_in", "sessions still logging in after three passes",
     [](const Story&, const TargetStory& target) { return target.passes_logging_in >= LONG_LOGIN_PASSES; }},
    {"flapping", "sessions added and removed by turns",
     [](const Story& story, const TargetStory& target) {
         return std::any_of(story.flapping.begin(), story.flapping.end(),
                            [&target](const FlappingStory& each) { return each.iqn == target.iqn; });
     }},
};

// "WHAT: volume-1, volume-2 and so on"; empty when no target is like that.
std::string targets_that(const Story& story, std::string_view name) {
    const auto* const rule = std::find_if(std::begin(target_rules), std::end(target_rules),
                                          [name](const TargetRule& each) { return each.name == name; });
    std::vector<std::string> names;
    for (const TargetStory& target : story.targets) {
        if (rule->is_so(story, target)) {
            names.push_back(printable(name_of(target)));
        }
    }
    return names.empty() ? "" : fmt::format("{}: {}", rule->what, shared::name_list(names));
}

std::string silent(const Story& story, const Clock& clock) {
    if (story.last.time == NO_TIME || clock.now == NO_TIME || !clock.oldest_age ||
        clock.now - story.last.time <= *clock.oldest_age) {
        return "";
    }
    return fmt::format("the last message is {} old: the service is dead or stuck",
                       age_text(clock.now - story.last.time));
}

std::string clock_is_ahead(const Story& story, const Clock& clock) {
    return story.last.time == NO_TIME || clock.now == NO_TIME || !clock.oldest_age ||
                   story.last.time - clock.now <= ROOM_SECONDS
               ? ""
               : fmt::format("the last message is {} ahead of this clock: another time zone?",
                             age_text(story.last.time - clock.now));
}

std::string stopped(const Story& story, const Clock&) {
    return story.worker == Story::Worker::stopped ? "the worker stopped at " + story.worker_since : "";
}

// Volumes of which the log tells, and those of which it doesn't as all their paths are gone.
std::string no_path(const Story& story, const Clock&) {
    const std::string named = targets_that(story, "no_path");
    std::vector<std::string> parts;
    if (!named.empty()) {
        parts.push_back(named);
    }
    if (story.without_nics > 0) {
        const auto number = static_cast<std::size_t>(story.without_nics);
        const std::string names = printable(shared::name_list(story.vanished), 400);
        parts.push_back(fmt::format("{} without a path{}", count_of(number, "volume", "volumes"),
                                    story.vanished.empty()           ? ", which the log does not name"
                                    : story.vanished.size() > number ? ", among " + names
                                                                     : ": " + names));
    } else if (named.empty() && story.passes > 0 && story.volumes > 0 && story.paths == 0) {
        parts.emplace_back("the host has volumes and no path");
    }
    return fmt::format("{}", fmt::join(parts, "; "));
}

std::string no_messages(const Story& story, const Clock&) {
    return story.messages == 0 ? "the log has no message of the service" : "";
}

std::string no_pass(const Story& story, const Clock&) {
    const bool is_told =
        story.messages == 0 || story.worker == Story::Worker::stopped || story.worker == Story::Worker::held_off;
    return story.passes > 0 || is_told ? "" : "no pass ended in this log";
}

std::string held_off(const Story& story, const Clock&) {
    return story.worker == Story::Worker::held_off ? "held off by worker_stop since " + story.worker_since : "";
}

std::string long_renewal(const Story& story, const Clock&) {
    return story.worker == Story::Worker::held_off_by_renewal && story.held_off_cycles >= LONG_RENEWAL_CYCLES
               ? fmt::format("held off by a renewal for {} cycles", story.held_off_cycles)
               : "";
}

std::string path_limit(const Story& story, const Clock&) {
    return story.path_limit ? fmt::format("the host has {} paths or more: nothing is balanced", simhost::MAX_PATHS)
                            : "";
}

std::string flapping(const Story& story, const Clock&) {
    std::vector<std::string> names;
    for (const FlappingStory& each : story.flapping) {
        names.push_back(printable(
            each.devices.empty() ? each.iqn : fmt::format("{} ({})", fmt::join(each.devices, " and "), each.iqn)));
    }
    return names.empty() ? "" : "sessions added and removed by turns: " + shared::name_list(names);
}

std::string trouble(const Story& story, const Clock&) {
    if (story.trouble.empty()) {
        return "";
    }
    std::size_t times = 0;
    for (const TroubleStory& each : story.trouble) {
        times += static_cast<std::size_t>(each.times);
    }
    return fmt::format("{} {}, such as \"{}\"", count_of(times, "warning or error", "warnings and errors"),
                       story.last_good_pass.empty() ? "in this log" : "since the last good pass",
                       printable(story.trouble.front().text, 60));
}

struct Rule {
    std::string_view name;                            // in the catalogue
    std::string (*find)(const Story&, const Clock&);  // empty: there is no such reason; null: it is one of a target
};

// The weightiest first.
constexpr Rule rules[] = {
    {"silent", silent},           {"stopped", stopped},    {"no_path", no_path},   {"clock", clock_is_ahead},
    {"no_messages", no_messages}, {"no_pass", no_pass},    {"held_off", held_off}, {"long_renewal", long_renewal},
    {"path_limit", path_limit},   {"one_path", nullptr},   {"unread", nullptr},    {"cut_short", nullptr},
    {"short", nullptr},           {"logging_in", nullptr}, {"flapping", flapping}, {"trouble", trouble},
};

constexpr std::array<std::string_view, 4> health_words = {"well", "warning", "critical", "unknown"};

Reason reason_of(std::string_view name, std::string text) {
    const auto& reasons = catalogue().reasons;
    const auto entry =
        std::find_if(reasons.begin(), reasons.end(), [name](const ReasonEntry& each) { return each.name == name; });
    const auto health = std::find(health_words.begin(), health_words.end(), entry->health) - health_words.begin();
    return {entry->name, static_cast<Health>(health), std::move(text)};
}

int weight(Health health) {
    switch (health) {
        case Health::well:
            return 0;
        case Health::warning:
            return 1;
        case Health::unknown:
            return 2;
        case Health::critical:
            return 3;
    }
    return 0;
}

}  // namespace

std::string_view health_word(Health health) {
    return health_words[static_cast<std::size_t>(health)];
}

bool is_worse(Health a, Health b) {
    return weight(a) > weight(b);
}

Reason not_read(std::string text) {
    return reason_of("not_read", std::move(text));
}

LogSeconds oldest_age_of(const Story& story) {
    const int interval = story.interval > 0 ? story.interval : DEFAULT_INTERVAL_SECONDS;
    return interval + LogSeconds{2} * story.longest_pass + ROOM_SECONDS;
}

bool has_problem(const Story& story, const TargetStory& target) {
    return std::any_of(std::begin(target_rules), std::end(target_rules),
                       [&](const TargetRule& rule) { return rule.is_so(story, target); });
}

Judgement judge(const Story& story, const Clock& clock) {
    Judgement judgement;
    for (const Rule& rule : rules) {
        std::string text = rule.find == nullptr ? targets_that(story, rule.name) : rule.find(story, clock);
        if (!text.empty()) {
            judgement.reasons.push_back(reason_of(rule.name, std::move(text)));
        }
    }
    std::stable_sort(judgement.reasons.begin(), judgement.reasons.end(),
                     [](const Reason& a, const Reason& b) { return is_worse(a.health, b.health); });
    if (!judgement.reasons.empty()) {
        judgement.health = judgement.reasons.front().health;
    }
    return judgement;
}

std::string reason_line(const Judgement& judgement) {
    if (judgement.reasons.empty()) {
        return "";
    }
    const std::size_t others = judgement.reasons.size() - 1;
    return judgement.reasons.front().text +
           (others == 0 ? "" : fmt::format(" (and {})", count_of(others, "other reason", "other reasons")));
}

std::string age_text(LogSeconds seconds) {
    constexpr LogSeconds minute = 60, hour = 3600, day = 86400;
    if (seconds < 0) {
        return "-" + age_text(-seconds);
    }
    if (seconds < minute) {
        return fmt::format("{} s", seconds);
    }
    if (seconds < hour) {
        return fmt::format("{} min", seconds / minute);
    }
    if (seconds < 2 * day) {
        return fmt::format("{} h {} min", seconds / hour, seconds % hour / minute);
    }
    return fmt::format("{} d", seconds / day);
}

}  // namespace oxrctl
