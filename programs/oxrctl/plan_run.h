// Runs ostrel-simhost on scenarios and reads what it tells.
#pragma once

#include <string>
#include <vector>

#include "oxrctl/plan_story.h"

namespace oxrctl {

struct PlanRun {
    std::string scenario;                // a file or the name of a shipped one
    std::vector<std::string> overrides;  // KEY=VALUE
    std::string run_for;                 // empty: the scenario's own time
};

// The plans of these runs, which go on at the same time. Throws a Refusal: with the mistakes of what was given as
// ostrel-simhost tells them, or when it can't be run.
std::vector<Plan> run_plans(const std::vector<PlanRun>& runs);

}  // namespace oxrctl
