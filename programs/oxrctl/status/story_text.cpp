#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "oxrctl/catalogue.h"
#include "oxrctl/status/story_views.h"
#include "oxrctl/text.h"
#include "shared/name_list.h"
#include "simhost/limits.h"

namespace oxrctl {

namespace {

constexpr std::size_t MOST_CHANGES = 10;
constexpr std::size_t MOST_TROUBLES = 15;

std::string worker_text(const Story& story) {
    switch (story.worker) {
        case Story::Worker::unknown:
            return "not seen in this log";
        case Story::Worker::sleeping:
            return fmt::format("sleeping between two passes since {}", story.worker_since);
        case Story::Worker::in_pass:
            return fmt::format("in a pass since {}; the log ends inside it", story.worker_since);
        case Story::Worker::held_off:
            return fmt::format("held off by worker_stop since {}", story.worker_since);
        case Story::Worker::held_off_by_renewal:
            return fmt::format("held off by a renewal since {}", story.worker_since);
        case Story::Worker::stopped:
            return fmt::format("stopped at {}", story.worker_since);
    }
    return "";
}

std::string renewal_text(const Story& story) {
    if (story.renewal_under_way) {
        return fmt::format("under way since {}{}", story.renewal_since,
                           story.renewal_target.empty() ? "" : ", at " + story.renewal_target);
    }
    if (story.last_renewal.empty()) {
        return "none in this log";
    }
    return fmt::format(
        "the last one ended at {} with status {}{}", story.last_renewal, story.last_renewal_status,
        story.last_renewal_status == 0 ? "" : fmt::format(" (oxrctl explain \"OXD {}\")", story.last_renewal_status));
}

// "KEY=VALUE ...", as many in a line as fit.
std::vector<std::string> value_lines(const Story& story) {
    constexpr std::size_t label = 16, least = 40;
    const std::size_t widest = std::max(line_width(), label + least) - label;
    std::vector<std::string> lines;
    for (const auto& [key, value] : story.values) {
        const std::string text = key + "=" + value;
        if (lines.empty() || lines.back().size() + 1 + text.size() > widest) {
            lines.push_back(text);
        } else {
            lines.back() += " " + text;
        }
    }
    return lines.empty() ? std::vector<std::string>{"not in this log"} : lines;
}

std::string age_phrase(LogSeconds age) {
    return age < 0 ? age_text(-age) + " ahead of this clock" : age_text(age) + " ago";
}

std::string log_text(const Story& story, const Clock& clock) {
    if (story.messages == 0) {
        return "no messages";
    }
    return fmt::format("{} to {}, {}{}", story.first_time, story.last_time,
                       count_of(story.messages, "message", "messages"),
                       clock.oldest_age ? ", the last one " + age_phrase(clock.now - story.last.time) : "");
}

std::string head_text(const LogReading& reading, const Judgement& judgement, const Surroundings& around,
                      const std::string& shown) {
    const Story& story = reading.story;
    Columns rows("", "");
    std::string health(health_word(judgement.health));
    for (const Reason& reason : judgement.reasons) {
        rows.add({health, fmt::format("{} ({})", reason.text, reason.name)});
        health.clear();
    }
    if (judgement.reasons.empty()) {
        rows.add({health, "the last pass ended without a warning or an error"});
    }
    rows.add({"log", log_text(story, around.clock)});
    for (const std::string& note : reading.notes) {
        rows.add({"", note});
    }
    rows.add({"worker", worker_text(story)});
    rows.add({"last pass", story.last_pass.empty() ? "none in this log" : story.last_pass});
    rows.add({"last good pass", story.last_good_pass.empty() ? "none in this log" : story.last_good_pass});
    rows.add({"renewal", renewal_text(story)});
    std::string label = "values";
    for (const std::string& line : value_lines(story)) {
        rows.add({std::exchange(label, ""), line});
    }
    rows.add({"versions", around.oxd_version.empty() && around.psp_version.empty()
                              ? "not in a log"
                              : fmt::format("oxd:{} psp:{}", around.oxd_version.empty() ? "-" : around.oxd_version,
                                            around.psp_version.empty() ? "-" : around.psp_version)});
    rows.add({"host", fmt::format("{} {}, {} of {} sessions, {} of {} paths", number_or_dash(story.volumes),
                                  story.volumes == 1 ? "volume" : "volumes", number_or_dash(story.sessions),
                                  simhost::MAX_SESSIONS, number_or_dash(story.paths), simhost::MAX_PATHS)});
    if (!shown.empty()) {
        rows.add({"shown", shown});
    }
    if (story.unreadable_lines > 0) {
        rows.add({"", fmt::format("{} not of a message", count_of(story.unreadable_lines, "line", "lines"))});
    }
    return rows.text();
}

std::string target_name(const TargetStory& target) {
    if (target.group_scoped) {
        return fmt::format("{} ({} behind it)", target.iqn, count_of(target.devices.size(), "volume", "volumes"));
    }
    return fmt::format("{}", fmt::join(target.devices, ", "));
}

std::string remark(const Story& story, const TargetStory& target) {
    std::vector<std::string> parts;
    if (target.mode_changed) {
        parts.emplace_back("mode switch under way");
    }
    if (target.static_mode) {
        parts.emplace_back("static mode, not balanced");
    }
    if (target.unread) {
        parts.emplace_back("its sessions could not be read");
    }
    if (target.cut_short) {
        parts.emplace_back("cut short by the host's limit of sessions");
    }
    if (target.pending > 0) {
        parts.push_back(fmt::format("{} logging in", target.pending));
    }
    if (target.in_use > 0) {
        parts.push_back(fmt::format("{} more than required, they carry active paths", target.in_use));
    }
    if (target.added > 0) {
        parts.push_back(fmt::format("{} added", target.added));
    }
    if (target.removed > 0) {
        parts.push_back(fmt::format("{} removed", target.removed));
    }
    if (const int missing = missing_sessions(story, target); missing > 0) {
        parts.push_back(fmt::format("{} short after the pass", missing));
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

// What is told about a target, without its name: alike ones share a row.
std::vector<std::string> target_cells(const Story& story, const TargetStory& target) {
    return {target.static_mode ? "static" : "dynamic",
            number_or_dash(target.nics),
            number_or_dash(target.arrays),
            number_or_dash(target.required),
            number_or_dash(sessions_of(story, target)),
            number_or_dash(target.paths),
            remark(story, target)};
}

// Those with a problem first.
std::string targets_text(const Story& story, bool grouped) {
    std::vector<TargetStory> targets = story.targets;
    std::stable_partition(targets.begin(), targets.end(),
                          [&story](const TargetStory& target) { return has_problem(story, target); });
    std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> alike;
    for (const TargetStory& target : targets) {
        std::vector<std::string> cells = target_cells(story, target);
        const auto place =
            std::find_if(alike.begin(), alike.end(), [&](const auto& each) { return each.first == cells; });
        if (place != alike.end() && grouped && !target.group_scoped) {
            place->second.push_back(target_name(target));
        } else {
            alike.push_back({std::move(cells), {target_name(target)}});
        }
    }
    Columns rows("llrrrrrl");
    rows.add({"target", "mode", "NICs", "arrays", "required", "sessions", "paths", ""});
    for (const auto& [cells, names] : alike) {
        std::vector<std::string> row = {shared::name_list(names)};
        row.insert(row.end(), cells.begin(), cells.end());
        rows.add(std::move(row));
    }
    return rows.text();
}

// Of volumes that only earlier passes told of, those that may be there yet.
std::string untold_text(const Story& story) {
    Columns rows;
    for (const TargetStory& target : story.gone) {
        if (target.untold) {
            rows.add({target_name(target), "as last told at " + plain_time(target.seen)});
        }
    }
    const std::string text = rows.text();
    return text.empty() ? "" : "\nNot told by the last pass:\n" + text;
}

// Changes of one pass, those of alike size together.
std::string changes_text(const Story& story) {
    struct PassChange {
        std::string time;
        int pass = 0, added = 0, removed = 0;
        std::vector<std::string> targets;
    };
    std::vector<PassChange> passes;
    for (const ChangeStory& change : story.changes) {
        if (passes.empty() || passes.back().pass != change.pass) {
            passes.push_back({change.time, change.pass, 0, 0, {}});
        }
        passes.back().added += change.added;
        passes.back().removed += change.removed;
        std::string name = change.target.substr(change.target.rfind(':') + 1);
        if (std::find(passes.back().targets.begin(), passes.back().targets.end(), name) ==
            passes.back().targets.end()) {
            passes.back().targets.push_back(std::move(name));
        }
    }
    Columns rows("lrrl");
    rows.add({"time", "added", "removed", "at"});
    const std::size_t first = passes.size() > MOST_CHANGES ? passes.size() - MOST_CHANGES : 0;
    for (std::size_t i = passes.size(); i > first; --i) {
        const PassChange& pass = passes[i - 1];
        rows.add(
            {pass.time, std::to_string(pass.added), std::to_string(pass.removed), shared::name_list(pass.targets)});
    }
    if (first > 0) {
        rows.add({fmt::format("and {} earlier", count_of(first, "pass", "passes"))});
    }
    return rows.text();
}

std::string trouble_text(const Story& story) {
    std::string text;
    std::size_t shown = 0;
    for (const TroubleStory& trouble : story.trouble) {
        if (shown++ == MOST_TROUBLES) {
            text += fmt::format("  and {} more kinds\n", story.trouble.size() - MOST_TROUBLES);
            break;
        }
        text += wrapped(
            "  ", fmt::format("{} x {} {}, last at {}", trouble.times, trouble.level, trouble.place, trouble.last));
        text += fmt::format("      {}\n", printable(trouble.text, 200));
        if (const MessageEntry* const entry = find_message(trouble.text, trouble.level);
            entry != nullptr && !entry->action.empty()) {
            text += wrapped("      -> ", entry->action);
        }
    }
    return text;
}

}  // namespace

std::string number_or_dash(int value) {
    return value == TargetStory::unknown ? "-" : std::to_string(value);
}

std::string story_text(const LogReading& reading, const Judgement& judgement, const Surroundings& around,
                       TargetView view) {
    const Story& story = reading.story;
    std::string text = head_text(reading, judgement, around, view.shown);
    for (const LogFile& file : reading.files) {
        text += file.problem.empty() ? "" : fmt::format("not read        {}: {}\n", file.name, file.problem);
    }
    if (!story.targets.empty()) {
        text += "\nTargets as last looked at:\n" + targets_text(story, view.grouped);
    }
    if (view.detailed) {
        return text + details_text(story);
    }
    text += untold_text(story);
    if (!story.changes.empty()) {
        text += "\nSessions added and removed, the latest pass first:\n" + changes_text(story);
    }
    const std::string since = story.last_good_pass.empty() ? "in this log" : "since the last good pass";
    text += story.trouble.empty() ? "\nNo warnings or errors " + since + ".\n"
                                  : "\nWarnings and errors " + since + ":\n" + trouble_text(story);
    return text;
}

}  // namespace oxrctl
