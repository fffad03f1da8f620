// Scenario files of any bytes: read without an exception, with complaints that name a line of the text and what was
// expected; what is read without a complaint stands as a site on a host, and its time line runs.
#include <algorithm>
#include <stdexcept>

#include "programs/ostrel-simhost/scenario.h"
#include "programs/ostrel-simhost/site.h"
#include "support/host.h"

namespace {

using fuzz::require;
using namespace ostrel_simhost;

void require_complaints(const std::vector<Problem>& problems, std::string_view text) {
    const auto lines = static_cast<int>(std::count(text.begin(), text.end(), '\n')) + 1;
    for (const Problem& each : problems) {
        require(each.line >= 1 && each.line <= lines, "a complaint about no line", std::to_string(each.line));
        require(!each.expected.empty(), "a complaint that says nothing", each.key);
    }
    const bool sorted = std::is_sorted(problems.begin(), problems.end(),
                                       [](const Problem& a, const Problem& b) { return a.line < b.line; });
    require(sorted, "complaints out of order");
    require(problems_text(problems, "f").starts_with("f:"), "complaints without their file");
}

// A scenario that takes longer than the rest together teaches nothing more.
bool is_small(const Scenario& scenario) {
    constexpr double longest = 100'000;
    return scenario.volumes.size() <= 8 && scenario.group_scoped_targets.size() <= 4 && scenario.actions.size() <= 8 &&
           scenario.sessions.size() <= 8 && scenario.run_for_seconds <= longest;
}

void build(const Scenario& scenario) {
    const auto host = fuzz::make_host(host_options(scenario));
    Site site(scenario);
    try {
        site.build(*host);
    } catch (const std::invalid_argument& refused) {
        require(false, "the host refuses what was read without a complaint", refused.what());
    }
    site.schedule(*host, [](const TimedAction& action, const std::string&) {
        require(!action.action.text.empty(), "an action without a text");
    });
    host->advance(scenario.run_for_seconds);
    require(site.rows(*host, ConfigValues()).size() <= scenario.volumes.size() + 64, "rows of no target");
    fuzz::require_nothing_held(*host);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const ScenarioOrProblems read = read_scenario(text);
    if (!read.problems.empty()) {
        require_complaints(read.problems, text);
    } else if (is_small(read.scenario)) {
        build(read.scenario);
    }
    return 0;
}
