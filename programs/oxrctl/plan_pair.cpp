#include "oxrctl/plan_pair.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "shared/duration.h"

namespace oxrctl {

namespace {

bool same_state(const PlanTarget* a, const PlanTarget* b) {
    return a == b || (a != nullptr && b != nullptr && a->same_state(*b));
}

// "db-" of "db-01": what alike targets must have in common for a line of their own.
std::string_view stem_of(std::string_view name) {
    return name.substr(0, name.find_last_not_of("0123456789") + 1);
}

void add_target(std::vector<TargetPair>& pairs, const PlanTarget* a, const PlanTarget* b) {
    const std::string& name = a != nullptr ? a->name : b->name;
    auto alike = std::find_if(pairs.begin(), pairs.end(), [&](const TargetPair& pair) {
        return stem_of(pair.names.front()) == stem_of(name) && same_state(pair.a, a) && same_state(pair.b, b);
    });
    if (alike == pairs.end()) {
        alike = pairs.insert(pairs.end(), {{}, a, b});
    }
    alike->names.push_back(name);
}

std::map<std::string_view, const PlanTarget*> by_name(const Plan& plan) {
    std::map<std::string_view, const PlanTarget*> targets;
    for (const PlanTarget& target : plan.targets) {
        targets.emplace(target.name, &target);
    }
    return targets;
}

const PlanPhase* phase_like(const Plan& plan, const PlanPhase& wanted) {
    const auto found = std::find_if(plan.phases.begin(), plan.phases.end(), [&](const PlanPhase& phase) {
        return phase.began == wanted.began && (phase.began == 0 || phase.events == wanted.events);
    });
    return found == plan.phases.end() ? nullptr : &*found;
}

}  // namespace

std::vector<TargetPair> target_pairs(const Plan& a, const Plan& b) {
    std::vector<TargetPair> pairs;
    const auto of_a = by_name(a);
    const auto of_b = by_name(b);
    for (const PlanTarget& target : a.targets) {
        const auto other = of_b.find(target.name);
        add_target(pairs, &target, other == of_b.end() ? nullptr : other->second);
    }
    for (const PlanTarget& target : b.targets) {
        if (!of_a.contains(target.name)) {
            add_target(pairs, nullptr, &target);
        }
    }
    return pairs;
}

std::vector<PhasePair> phase_pairs(const Plan& a, const Plan& b) {
    std::vector<PhasePair> pairs;
    for (const PlanPhase& phase : a.phases) {
        pairs.push_back({&phase, phase_like(b, phase)});
    }
    for (const PlanPhase& phase : b.phases) {
        if (phase_like(a, phase) == nullptr) {
            pairs.push_back({nullptr, &phase});
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(),
                     [](const PhasePair& x, const PhasePair& y) { return x.any().began < y.any().began; });
    return pairs;
}

std::vector<CutShort> cut_short(const Plan& plan) {
    std::vector<CutShort> all;
    for (const PlanTarget* target : plan.short_targets()) {
        auto alike =
            std::find_if(all.begin(), all.end(), [&](const CutShort& each) { return each.by == target->short_by; });
        if (alike == all.end()) {
            alike = all.insert(all.end(), {target->short_by, {}});
        }
        alike->names.push_back(target->name);
    }
    return all;
}

std::vector<std::string> broken_invariants(const Plan& plan) {
    // "TIME s: TEXT (known hazard: NAME)"
    const auto kind_of = [](const std::string& violation) {
        const std::size_t hazard = violation.find(" (known hazard: ");
        const std::size_t behind_time = violation.find(": ");
        return violation.substr(hazard != std::string::npos        ? hazard
                                : behind_time != std::string::npos ? behind_time
                                                                   : 0);
    };
    std::map<std::string, std::size_t> times;
    for (const std::string& violation : plan.violations) {
        ++times[kind_of(violation)];
    }
    std::vector<std::string> all;
    for (const std::string& violation : plan.violations) {
        if (const std::size_t number = std::exchange(times[kind_of(violation)], 0); number > 0) {
            all.push_back(number == 1 ? violation : fmt::format("{}, and {} more like it", violation, number - 1));
        }
    }
    return all;
}

std::vector<shared::ValueNotTaken> values_refused(const std::vector<PlanSubject>& subjects) {
    if (subjects.back().overrides.empty()) {
        return {};
    }
    std::vector<shared::ValueNotTaken> values = subjects.back().plan.not_taken;
    std::erase_if(values, [&](const shared::ValueNotTaken& value) {
        const auto& before = subjects.front().plan.not_taken;
        return std::any_of(before.begin(), before.end(), [&](const shared::ValueNotTaken& other) {
            return other.key == value.key && other.written == value.written && other.in_force == value.in_force;
        });
    });
    return values;
}

std::vector<std::string> notes_of(const Plan& plan) {
    std::vector<std::string> notes;
    if (plan.next_event >= 0) {
        notes.push_back(
            fmt::format("the scenario goes on, its next event is at {}", shared::clock_text(plan.next_event)));
    }
    notes.insert(notes.end(), plan.notes.begin(), plan.notes.end());
    return notes;
}

}  // namespace oxrctl
