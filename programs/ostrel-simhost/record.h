// What a run shows: the state of each target after a pass, what the pass did, and what happened in between.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "config_file.h"
#include "simhost/host.h"

namespace program {

struct TargetRow {
    std::string name;
    std::string iqn;
    bool group_scoped = false;
    bool static_mode = false;
    bool mode_changed = false;
    bool supported = true;
    int devices = 1;
    int nics = 0;  // as the connection manager counts them: the distinct addresses of the paths
    int nics_up = 0;
    int arrays = 0;  // member arrays up; of a group-scoped target the active ones
    int total_arrays = 0;
    int required = 0;
    int dynamic_sessions = 0;
    int static_sessions = 0;
    int pending_sessions = 0;
    int broken_sessions = 0;  // of all, those that are neither logged in nor logging in
    int active_paths = 0;
    int dead_paths = 0;
    int bare_adapters = 0;         // of the target's adapters, those without a session
    std::vector<int> per_address;  // sessions on each address of the site; -1: not one of the target's adapters

    bool same_state(const TargetRow& other) const;  // everything but the names
    int sessions() const { return dynamic_sessions + static_sessions + pending_sessions; }
    bool is_balanced() const { return !static_mode && supported; }
    // Sessions that it lacks; one that is logging in is not lacking.
    int short_by() const { return is_balanced() && sessions() < required ? required - sessions() : 0; }
};

using Address = simhost::NicView;

// A line of the connection manager's log, repeated ones folded.
struct LogLine {
    std::string level;
    std::string function;
    std::string text;
    std::string key;  // lines with the same key are folded, and are nothing new in a later pass
    int times = 1;
};

struct Happening {
    enum class Kind { action, sessions_made, sessions_lost, fault, violation, configuration, failure };
    double time = 0;
    Kind kind = Kind::action;
    std::string text;
};

// How the targets stand between passes, for views that draw their course.
struct StateRecord {
    double time = 0;
    std::vector<TargetRow> rows;
};

struct PassRecord {
    int number = 0;
    double began = 0;
    double ended = 0;
    bool skipped = false;  // worker_stop was set
    ConfigValues config;   // in force during the pass
    int added = 0;
    int removed = 0;
    int lost = 0;  // without being removed: those of removed static targets, or by something that happened
    int paths_claimed = 0;
    int dead_paths_deleted = 0;
    int static_targets_removed = 0;
    std::vector<std::string> rescanned;
    std::vector<std::string> dead_paths_requested;
    std::vector<std::string> rediscovered;
    std::vector<LogLine> log;
    std::vector<TargetRow> rows;
    std::vector<Address> addresses;
    simhost::Totals totals;
    int paths = 0;  // all of them, standby ones too

    bool changed_something() const {
        return added + removed + dead_paths_deleted + static_targets_removed > 0 || !rescanned.empty() ||
               !dead_paths_requested.empty() || !rediscovered.empty();
    }
};

}  // namespace program
