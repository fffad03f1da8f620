#include <array>

#include "oxrctl/plan_pair.h"

namespace oxrctl {

namespace {

std::string_view end_word(PlanPhase::End end) {
    switch (end) {
        case PlanPhase::End::settled:
            return "settled";
        case PlanPhase::End::unsettled:
            return "unsettled";
        case PlanPhase::End::changing:
            return "changing";
        case PlanPhase::End::skipped:
            return "skipped";
        case PlanPhase::End::no_pass:
            return "no pass";
    }
    return "other";
}

Json of_target(const PlanTarget& target) {
    return {{"name", target.name},         {"group_scoped", target.group_scoped},
            {"mode", target.mode},         {"supported", target.supported},
            {"volumes", target.volumes},   {"required", target.required},
            {"sessions", target.sessions}, {"active_paths", target.active_paths},
            {"short_by", target.short_by}, {"sessions_by_address", target.by_address}};
}

Json of_phase(const PlanPhase& phase) {
    return {{"time", phase.began},    {"events", phase.events},   {"end", end_word(phase.end)},
            {"passes", phase.passes}, {"seconds", phase.seconds}, {"all_passes", phase.all_passes}};
}

Json of_limit(int at_end, int at_worst, int limit) {
    return {{"at_end", at_end},
            {"at_worst", at_worst},
            {"limit", limit},
            {"room_at_end", limit - at_end},
            {"room_at_worst", limit - at_worst}};
}

Json of_subject(const PlanSubject& subject) {
    const Plan& plan = subject.plan;
    Json targets = Json::array();
    for (const PlanTarget& target : plan.targets) {
        targets.push_back(of_target(target));
    }
    Json phases = Json::array();
    for (const PlanPhase& phase : plan.phases) {
        phases.push_back(of_phase(phase));
    }
    return {{"scenario", plan.scenario},
            {"title", plan.title},
            {"what_if", subject.overrides},
            {"not_taken", not_taken_json(plan.not_taken)},
            {"seconds", plan.seconds},
            {"passes", plan.passes},
            {"skipped_passes", plan.skipped_passes},
            {"fine", plan.fine()},
            {"settled", plan.settled},
            {"reasons", plan.reasons},
            {"read", subject.read.empty() ? Json() : Json(subject.read)},
            {"guesses", subject.guesses},
            {"notes", notes_of(plan)},
            {"violations", plan.violations},
            {"sessions", of_limit(plan.sessions, plan.most_sessions, plan.session_limit)},
            {"paths", of_limit(plan.paths, plan.most_paths, plan.path_limit)},
            {"phases", std::move(phases)},
            {"targets", std::move(targets)}};
}

Json or_null(const PlanTarget* target) {
    return target == nullptr ? Json() : of_target(*target);
}

Json or_null(const PlanPhase* phase) {
    return phase == nullptr ? Json() : of_phase(*phase);
}

bool same_course(const PhasePair& pair) {
    return pair.a != nullptr && pair.b != nullptr && pair.a->end == pair.b->end && pair.a->passes == pair.b->passes &&
           pair.a->seconds == pair.b->seconds;
}

// Pairs of what differs: of the first plan and of the second, null where it has nothing of the kind.
Json differences(const Plan& a, const Plan& b) {
    Json targets = Json::array();
    for (const TargetPair& pair : target_pairs(a, b)) {
        if (pair.differ()) {
            targets.push_back({{"names", pair.names}, {"states", Json::array({or_null(pair.a), or_null(pair.b)})}});
        }
    }
    Json phases = Json::array();
    for (const PhasePair& pair : phase_pairs(a, b)) {
        if (!same_course(pair)) {
            phases.push_back(Json::array({or_null(pair.a), or_null(pair.b)}));
        }
    }
    return {{"targets", std::move(targets)},
            {"phases", std::move(phases)},
            {"passes", std::array{a.passes, b.passes}},
            {"sessions_at_end", std::array{a.sessions, b.sessions}},
            {"sessions_at_worst", std::array{a.most_sessions, b.most_sessions}},
            {"paths_at_end", std::array{a.paths, b.paths}},
            {"paths_at_worst", std::array{a.most_paths, b.most_paths}}};
}

}  // namespace

Json not_taken_json(const std::vector<shared::ValueNotTaken>& values) {
    Json all = Json::array();
    for (const shared::ValueNotTaken& value : values) {
        all.push_back(
            {{"key", value.key}, {"written", value.written}, {"in_force", value.in_force}, {"why", value.why}});
    }
    return all;
}

Json plan_json(const std::vector<PlanSubject>& subjects) {
    Json plans = Json::array();
    for (const PlanSubject& subject : subjects) {
        plans.push_back(of_subject(subject));
    }
    Json object = {{"version", JSON_VERSION}, {"plans", std::move(plans)}};
    if (subjects.size() > 1) {
        object["differences"] = differences(subjects.front().plan, subjects.back().plan);
    }
    return object;
}

}  // namespace oxrctl
