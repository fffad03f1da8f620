#include "oxrctl/catalogue.h"
#include "oxrctl/status/story_views.h"

namespace oxrctl {

namespace {

std::string_view worker_word(Story::Worker worker) {
    switch (worker) {
        case Story::Worker::unknown:
            return "unknown";
        case Story::Worker::sleeping:
            return "sleeping";
        case Story::Worker::in_pass:
            return "in_pass";
        case Story::Worker::held_off:
            return "held_off";
        case Story::Worker::held_off_by_renewal:
            return "held_off_by_renewal";
        case Story::Worker::stopped:
            return "stopped";
    }
    return "";
}

bool is_off(const Story& story, const TargetStory& target) {
    return !target.static_mode && sessions_of(story, target) != target.required;
}

Json text_or_null(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

}  // namespace

Json number_or_null(int value) {
    return value == TargetStory::unknown ? Json() : Json(value);
}

Json reasons_json(const Judgement& judgement) {
    Json reasons = Json::array();
    for (const Reason& reason : judgement.reasons) {
        reasons.push_back({{"name", reason.name}, {"health", health_word(reason.health)}, {"text", reason.text}});
    }
    return reasons;
}

Json age_json(const Story& story, const Clock& clock) {
    return story.last.time == NO_TIME ? Json() : Json(clock.now - story.last.time);
}

Json sessions_json(const TargetStory& target) {
    Json sessions = Json::array();
    for (const SessionStory& session : target.sessions_seen) {
        sessions.push_back({{"isid", session.isid},
                            {"local_address", text_or_null(session.local_address)},
                            {"remote_address", text_or_null(session.remote_address)},
                            {"adapter", text_or_null(session.adapter)},
                            {"state", session.state}});
    }
    return sessions;
}

Json story_json(const LogReading& reading, const Judgement& judgement, const Surroundings& around) {
    const Story& story = reading.story;
    Json names = Json::array();
    for (const LogFile& file : reading.files) {
        names.push_back({{"name", file.name}, {"problem", file.problem.empty() ? Json() : Json(file.problem)}});
    }
    Json values = Json::object();
    for (const auto& [key, value] : story.values) {
        values[key] = value;
    }
    Json targets = Json::array();
    for (const TargetStory& target : story.targets) {
        targets.push_back({{"iqn", target.iqn},
                           {"devices", target.devices},
                           {"group_scoped", target.group_scoped},
                           {"mode", target.static_mode ? "static" : "dynamic"},
                           {"mode_changed", target.mode_changed},
                           {"nics", number_or_null(target.nics)},
                           {"arrays", number_or_null(target.arrays)},
                           {"required", number_or_null(target.required)},
                           {"sessions", number_or_null(sessions_of(story, target))},
                           {"pending", number_or_null(target.pending)},
                           {"paths", number_or_null(target.paths)},
                           {"adapters", target.adapters},
                           {"sessions_seen", sessions_json(target)},
                           {"dead_paths", number_or_null(target.dead_paths)},
                           {"in_use", target.in_use},
                           {"added", target.added},
                           {"removed", target.removed},
                           {"cut_short", target.cut_short},
                           {"unread", target.unread},
                           {"as_required", !is_off(story, target)},
                           {"short_by", missing_sessions(story, target)}});
    }
    Json gone = Json::array();
    for (const TargetStory& target : story.gone) {
        gone.push_back({{"iqn", target.iqn},
                        {"devices", target.devices},
                        {"last_seen", plain_time(target.seen)},
                        {"untold", target.untold}});
    }
    Json changes = Json::array();
    for (const ChangeStory& change : story.changes) {
        changes.push_back({{"time", change.time},
                           {"target", change.target},
                           {"added", change.added},
                           {"removed", change.removed},
                           {"over", change.over}});
    }
    Json trouble = Json::array();
    for (const TroubleStory& each : story.trouble) {
        const MessageEntry* const entry = find_message(each.text, each.level);
        trouble.push_back({{"level", each.level},
                           {"place", each.place},
                           {"text", each.text},
                           {"times", each.times},
                           {"first", each.first},
                           {"last", each.last},
                           {"action", entry != nullptr ? Json(entry->action) : Json()}});
    }
    Json flapping = Json::array();
    for (const FlappingStory& each : story.flapping) {
        flapping.push_back({{"target", each.iqn}, {"devices", each.devices}, {"turns", each.turns}});
    }
    return {{"version", JSON_VERSION},
            {"health", health_word(judgement.health)},
            {"reasons", reasons_json(judgement)},
            {"age_seconds", age_json(story, around.clock)},
            {"files", std::move(names)},
            {"notes", reading.notes},
            {"first", text_or_null(story.first_time)},
            {"last", text_or_null(story.last_time)},
            {"messages", story.messages},
            {"unreadable_lines", story.unreadable_lines},
            {"worker", worker_word(story.worker)},
            {"worker_since", text_or_null(story.worker_since)},
            {"passes", story.passes},
            {"last_pass", text_or_null(story.last_pass)},
            {"last_good_pass", text_or_null(story.last_good_pass)},
            {"pass_seconds", number_or_null(story.pass_seconds)},
            {"renewal_under_way", story.renewal_under_way},
            {"renewal_since", text_or_null(story.renewal_since)},
            {"renewal_target", text_or_null(story.renewal_target)},
            {"last_renewal", text_or_null(story.last_renewal)},
            {"last_renewal_status", number_or_null(story.last_renewal_status)},
            {"values", std::move(values)},
            {"versions", {{"oxd", text_or_null(around.oxd_version)}, {"psp", text_or_null(around.psp_version)}}},
            {"volumes", number_or_null(story.volumes)},
            {"sessions", number_or_null(story.sessions)},
            {"paths", number_or_null(story.paths)},
            {"path_limit", story.path_limit},
            {"targets", std::move(targets)},
            {"gone", std::move(gone)},
            {"changes", std::move(changes)},
            {"flapping", std::move(flapping)},
            {"trouble", std::move(trouble)}};
}

}  // namespace oxrctl
