// One plan, or two side by side: what belongs together, so that every view of them shows the same.
#pragma once

#include <string>
#include <vector>

#include "oxrctl/plan_story.h"

namespace oxrctl {

struct PlanSubject {
    std::string label;                   // as a person names it: "demo.toml with vol_sessions=4"
    std::vector<std::string> overrides;  // KEY=VALUE
    Plan plan;
    std::string read = {};                  // of a log, that the scenario rests on; empty: it is none of a log
    std::vector<std::string> guesses = {};  // what was made up or left out of the scenario
};

// Targets with the same states in both plans. Null: that plan has none of them.
struct TargetPair {
    std::vector<std::string> names;
    const PlanTarget* a = nullptr;
    const PlanTarget* b = nullptr;

    bool differ() const { return a == nullptr || b == nullptr || !a->same_state(*b); }
    const PlanTarget& any() const { return a != nullptr ? *a : *b; }
};

struct PhasePair {
    const PlanPhase* a = nullptr;
    const PlanPhase* b = nullptr;

    const PlanPhase& any() const { return a != nullptr ? *a : *b; }
};

// In the order of the scenarios; a single plan is paired with itself.
std::vector<TargetPair> target_pairs(const Plan& a, const Plan& b);
std::vector<PhasePair> phase_pairs(const Plan& a, const Plan& b);

// "db-01 .. db-08 by 2 sessions": the targets with less than they need, those that lack the same together.
struct CutShort {
    int by = 0;
    std::vector<std::string> names;
};
std::vector<CutShort> cut_short(const Plan& plan);

// The broken invariants, those of one known hazard or with the same words together.
std::vector<std::string> broken_invariants(const Plan& plan);

// What else is to be known: events that were not looked at any more, and what ostrel-simhost notes.
std::vector<std::string> notes_of(const Plan& plan);

// The values that the service doesn't take because of the second plan's overrides.
std::vector<shared::ValueNotTaken> values_refused(const std::vector<PlanSubject>& subjects);

Json not_taken_json(const std::vector<shared::ValueNotTaken>& values);

std::string plan_text(const std::vector<PlanSubject>& subjects);
Json plan_json(const std::vector<PlanSubject>& subjects);

}  // namespace oxrctl
