#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "oxrctl/status/story_views.h"
#include "oxrctl/text.h"
#include "simhost/limits.h"

namespace oxrctl {

namespace {

std::string figures(const Story& story, const Clock& clock) {
    std::string text;
    const auto add = [&text](std::string_view label, int value, std::string_view rest = "") {
        text += value == TargetStory::unknown ? "" : fmt::format(" {}={}{}", label, value, rest);
    };
    if (clock.now != NO_TIME && story.last.time != NO_TIME) {
        text += fmt::format(" age={}s", clock.now - story.last.time);
    }
    add("pass_time", story.pass_seconds, "s");
    add("volumes", story.volumes);
    add("short", short_targets(story));
    add("sessions", story.sessions, fmt::format(";;;0;{}", simhost::MAX_SESSIONS));
    add("paths", story.paths, fmt::format(";;{};0", simhost::MAX_PATHS));
    add("dead_paths", dead_paths(story));
    return text;
}

}  // namespace

std::string_view plugin_word(Health health) {
    static constexpr std::array<std::string_view, 4> words = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
    return words[static_cast<std::size_t>(health)];
}

std::string plugin_text(std::string text) {
    std::replace(text.begin(), text.end(), '|', '/');
    return printable(text, 400);
}

std::string plugin_line(const Story& story, const Judgement& judgement, const Clock& clock) {
    const std::string reason =
        judgement.reasons.empty() ? "last good pass " + story.last_good_pass : reason_line(judgement);
    const std::string numbers = figures(story, clock);
    return fmt::format("OSTREL {} - {}{}{}\n", plugin_word(judgement.health), plugin_text(reason),
                       numbers.empty() ? "" : " |", numbers);
}

}  // namespace oxrctl
