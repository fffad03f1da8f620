// A scenario: a site and a time line of events, read from a TOML text.
//
//   title = "..."                 one line for the head of the output
//   run_for = "1h"                simulated time that a run lasts
//   allow = ["..."]               hazards whose broken invariants are let pass
//   config_file = """..."""       the configuration file as it stands at the start, in either format; or
//   [config]                      a complete file with the defaults, these keys changed; neither: no file
//   [host]                        login_seconds, claim_seconds, discovery_seconds, start_time, oxd_version, psp_version
//   [[adapter]]                   name, nics
//   [[group]]                     name, mode, discovery_ip, arrays = [{ name, data_ips }]
//   [[group_scoped_target]]       name, group, iqn, active_arrays, adapters, sessions
//   [[volumes]]                   name ("db-##" with count and first), group, iqn, arrays, adapters, behind,
//                                 protocol_endpoint, supported, sessions; volumes with the same iqn share a target
//   [[static_target]]             target, adapter, portal_ip, port, chap, by_host_name
//   [[session]]                   target, adapter, local_ip, remote_ip, kind, state, count
//   [[event]]                     at, note, and one action (events.cpp)
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config_file.h"
#include "fields.h"
#include "simhost/host.h"

namespace ostrel_simhost {

class Site;
struct Names;

inline constexpr std::size_t MOST_VOLUMES = 256;  // what the path-selection plug-in reports
inline constexpr std::size_t MOST_GROUP_SCOPED_TARGETS = 32;
inline constexpr int MOST_SESSIONS_PER_TARGET = 32;

struct AdapterEntry {
    std::string name;
    std::vector<std::string> nics;
};

// First connections that nobody gave a number for: one over each NIC in a dynamic group, one to each portal in
// a static one, as the host itself would make them.
inline constexpr int USUAL_SESSIONS = -1;

// The name a person gave the target, and what the host is told.
struct VolumeEntry {
    simhost::VolumeSpec spec;  // spec.eui is the name; spec.group_scoped_target is the target's name
    int sessions = USUAL_SESSIONS;
};

struct GroupScopedTargetEntry {
    std::string name;
    simhost::GroupScopedTargetSpec spec;
    int sessions = USUAL_SESSIONS;
};

struct ScenarioStaticTarget {
    std::string target;  // name of a volume
    simhost::StaticTargetView spec;
};

struct SessionEntry {
    std::string target;  // name of a volume or group-scoped target
    simhost::SessionView spec;
    int count = 1;
};

// What an event does; in a few words, for the output; and on a site. It throws what the host refuses.
struct Action {
    std::string text;
    std::function<void(Site& site, simhost::Host& host)> act;
    // What it sets to which state; a state lasts until the next event that sets another.
    std::vector<std::pair<std::string, std::string>> sets = {};
};

struct TimedAction {
    double at_seconds = 0;
    std::string note;  // shown beside the action; may be empty
    Action action;
    bool by_option = false;  // not of the scenario's text
};

struct Scenario {
    std::string title;
    double run_for_seconds = 3600;
    double login_seconds = 0;
    double claim_seconds = 30;
    double discovery_seconds = 0;
    std::int64_t start_time = 1700000000;
    std::string oxd_version = "2.0.1";  // empty: there is no version file
    std::string psp_version = "2.0.1";
    std::vector<std::string> allowed_hazards;
    std::optional<std::string> config_text;
    std::vector<AdapterEntry> adapters;
    std::vector<simhost::GroupSpec> groups;
    std::vector<GroupScopedTargetEntry> group_scoped_targets;
    std::vector<VolumeEntry> volumes;
    std::vector<ScenarioStaticTarget> static_targets;
    std::vector<SessionEntry> sessions;
    std::vector<TimedAction> actions;                   // in the order of their times
    std::map<std::string, std::string> set_by_options;  // as the sets of an action, from the start
    std::shared_ptr<Names> names;                       // all that an event may refer to
};

struct ScenarioOrProblems {
    Scenario scenario;              // usable only when there are no problems
    std::vector<Problem> problems;  // in the order of their lines
};

// Reads a scenario from its text, with these "KEY=VALUE" in force (overrides.h). Never throws on account of the text.
ScenarioOrProblems read_scenario(std::string_view text, const std::vector<std::string>& overrides = {});

// Reads one more event of a scenario that runs: a line with the keys of an [[event]] but `at`, whose time stays 0.
// Empty for a blank line and a comment, and with `problems` filled for what is no event.
std::optional<TimedAction> read_event(std::string_view line, const Scenario& scenario, std::vector<Problem>& problems);

// "FILE:LINE: KEY: expected ..., found ...", one line each, with the option in place of the line where one is to blame;
// at most `most` of them, then how many more.
std::string problems_text(const std::vector<Problem>& problems, std::string_view file, std::size_t most = 20);

}  // namespace ostrel_simhost
