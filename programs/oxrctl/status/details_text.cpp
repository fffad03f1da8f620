#include <fmt/format.h>

#include <map>

#include "oxrctl/status/story_views.h"
#include "oxrctl/text.h"

namespace oxrctl {

namespace {

constexpr std::size_t MOST_CHANGES_OF_A_TARGET = 10;

std::string told(int value) {
    return value == TargetStory::unknown ? "not told" : std::to_string(value);
}

// "2 logged in, 1 logging in" by place.
void add_sessions(const TargetStory& target, Columns& rows) {
    std::map<std::string, std::map<std::string, std::size_t>> places;
    for (const SessionStory& session : target.sessions_seen) {
        const std::string& address = session.local_address;
        ++places[address.empty() ? "to " + session.remote_address : fmt::format("over {} {}", address, session.adapter)]
                [session.state];
    }
    for (const auto& [place, states] : places) {
        std::vector<std::string> parts;
        for (const auto& [state, number] : states) {
            parts.push_back(fmt::format("{} {}", number, state));
        }
        rows.add({"", fmt::format("{}: {}", place, fmt::join(parts, ", "))});
    }
}

std::string paths_text(const TargetStory& target) {
    if (target.paths == TargetStory::unknown) {
        return target.group_scoped ? "not told" : "not told (log_level=2 tells them)";
    }
    return target.dead_paths == TargetStory::unknown
               ? fmt::format("{} active; log_level=2 tells dead ones", target.paths)
               : fmt::format("{} active, {} dead", target.paths, target.dead_paths);
}

// The latest first.
void add_changes(const Story& story, const TargetStory& target, Columns& rows) {
    std::string label = "changes";
    std::size_t left = MOST_CHANGES_OF_A_TARGET;
    for (auto change = story.changes.rbegin(); change != story.changes.rend() && left > 0; ++change) {
        if (change->target == target.iqn) {
            const std::string over = change->over.empty() ? "" : fmt::format(" ({})", fmt::join(change->over, ", "));
            rows.add({std::exchange(label, ""),
                      fmt::format("{}  {} added, {} removed{}", change->time, change->added, change->removed, over)});
            --left;
        }
    }
}

std::string target_text(const Story& story, const TargetStory& target, const std::string& remark = "") {
    Columns rows;
    rows.add({"volumes", fmt::format("{}", fmt::join(target.devices, ", "))});
    rows.add({"adapters", target.adapters.empty() ? "not told (log_level=2 tells them)"
                                                  : fmt::format("{}", fmt::join(target.adapters, ", "))});
    rows.add({"required",
              fmt::format("{} (NICs: {}, arrays: {})", told(target.required), told(target.nics), told(target.arrays))});
    const int sessions = sessions_of(story, target);
    rows.add({"sessions", target.pending > 0 ? fmt::format("{}, {} of them logging in", told(sessions), target.pending)
                                             : told(sessions)});
    add_sessions(target, rows);
    rows.add({"paths", paths_text(target)});
    add_changes(story, target, rows);
    const std::string mode = target.static_mode ? " (static mode, not balanced)" : "";
    return "\n" + wrapped("", target.iqn + mode + remark) + rows.text();
}

}  // namespace

std::string details_text(const Story& story) {
    std::string text;
    for (const TargetStory& target : story.targets) {
        text += target_text(story, target);
    }
    for (const TargetStory& target : story.gone) {
        text += target_text(story, target,
                            fmt::format(": {}, a pass last {} it at {}; this is as it was then",
                                        target.untold ? "not told by the last pass" : "gone",
                                        target.untold ? "told of" : "found", plain_time(target.seen)));
    }
    text += story.naming.empty() ? "\nNo warning or error names them.\n" : "\nWarnings and errors that name them:\n";
    for (const NamingMessage& message : story.naming) {
        text += fmt::format("  {} {} {}\n", message.time, message.level, printable(message.text, 200));
    }
    return text;
}

}  // namespace oxrctl
