// Runs ostrel-simhost on scenarios and reads what it tells.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "oxrctl/plan_story.h"

namespace oxrctl {

struct PlanRun {
    std::string scenario;                // a file or the name of a shipped one; with a text, what it is called
    std::vector<std::string> overrides;  // KEY=VALUE
    std::string run_for;                 // empty: the scenario's own time
    std::string text = {};               // of a scenario that is in no file
};

// The plans of these runs, which go on at the same time. Throws a Refusal: with the mistakes of what was given as
// ostrel-simhost tells them, or when it can't be run.
std::vector<Plan> run_plans(const std::vector<PlanRun>& runs);

// A file that isn't there yet. Throws a Refusal when it is, or can't be written.
void write_file(const std::string& file, std::string_view text);

}  // namespace oxrctl
