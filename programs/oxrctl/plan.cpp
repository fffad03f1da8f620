#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "oxrctl/commands.h"
#include "oxrctl/plan_from_log.h"
#include "oxrctl/plan_pair.h"
#include "oxrctl/plan_run.h"

namespace oxrctl {

namespace {

std::optional<ScenarioFromLog> made_scenario(const PlanOptions& options) {
    if (options.from_log.empty()) {
        return std::nullopt;
    }
    return scenario_from_log(options.from_log, options.config);
}

std::vector<PlanRun> runs_of(const PlanOptions& options, const ScenarioFromLog* made) {
    std::vector<PlanRun> runs;
    for (const std::string& scenario : options.scenarios) {
        runs.push_back({scenario, {}, options.run_for});
    }
    if (made != nullptr) {
        runs.push_back({options.write.empty() ? made->log : options.write, {}, options.run_for, made->text});
    }
    if (options.what_if.empty()) {
        return runs;
    }
    if (runs.size() > 1) {
        throw Refusal("--what-if: expected one scenario, which is compared with itself, found two");
    }
    runs.push_back(runs.front());
    runs.back().overrides = options.what_if;
    return runs;
}

std::vector<PlanSubject> subjects_of(const std::vector<PlanRun>& runs, std::vector<Plan> plans) {
    std::vector<PlanSubject> subjects;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        std::string label = plans[i].scenario;
        if (!runs[i].overrides.empty()) {
            label += fmt::format(" with {}", fmt::join(runs[i].overrides, ", "));
        } else if (runs.size() > 1 && !plans[i].title.empty()) {
            label += ": " + plans[i].title;
        }
        subjects.push_back({std::move(label), runs[i].overrides, std::move(plans[i])});
    }
    return subjects;
}

// What is in force instead is told before anybody plans with it by mistake.
Answer refuse_values(const std::vector<shared::ValueNotTaken>& values, bool json) {
    std::string complaint;
    for (const shared::ValueNotTaken& value : values) {
        complaint += (complaint.empty() ? "--what-if: " : "; ") + not_taken_text(value);
    }
    return {json ? json_text({{"version", JSON_VERSION}, {"not_taken", not_taken_json(values)}}) : "", EXIT_UNUSABLE,
            complaint + " (--as-written plans with that)"};
}

}  // namespace

Answer plan(const PlanOptions& options) {
    if (access(options.write.c_str(), F_OK) == 0) {  // ahead of the runs, whose answer would be lost
        throw Refusal(fmt::format("{}: {}", options.write, std::strerror(EEXIST)));
    }
    const auto made = made_scenario(options);
    const std::vector<PlanRun> runs = runs_of(options, made ? &*made : nullptr);
    std::vector<PlanSubject> subjects = subjects_of(runs, run_plans(runs));
    if (made) {
        for (PlanSubject& subject : subjects) {
            subject.read = made->read;
            subject.guesses = made->guesses;
        }
    }
    if (const auto refused = values_refused(subjects); !refused.empty() && !options.as_written) {
        return refuse_values(refused, options.json);
    }
    if (made && !options.write.empty()) {  // what is refused leaves no file in the way of the next try
        write_file(options.write, made->text);
    }
    const bool fine =
        std::all_of(subjects.begin(), subjects.end(), [](const PlanSubject& subject) { return subject.plan.fine(); });
    return {options.json ? json_text(plan_json(subjects)) : plan_text(subjects), fine ? EXIT_FINE : EXIT_FOUND};
}

}  // namespace oxrctl
