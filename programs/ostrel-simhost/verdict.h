// The judgement at the end of a run.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "record.h"

namespace ostrel_simhost {

struct RunOutcome {
    PassRecord last_pass;         // number 0: no pass was completed
    std::vector<TargetRow> rows;  // as the host stands at the end
    std::vector<Address> addresses;
    simhost::Totals totals;
    int paths = 0;  // all of them, standby ones too
    double ended_at = 0;
    int passes_after_last_action = 0;
    double last_action_at = -1;  // < 0: there was none
    double next_action_at = -1;  // of an action that the run was too short for; < 0: there is none
    int most_sessions = 0;
    int most_paths = 0;
    std::vector<std::string> violations;  // broken invariants, leftovers after the end among them
    std::map<std::string, std::uint64_t, std::less<>> let_pass;  // hazards whose broken invariants are, and how often
    std::vector<std::string> undone;                             // what options asked for and the scenario took back
    bool interrupted = false;
    bool stalled = false;  // the connection manager made no progress for a real minute
    std::string root;
};

struct Verdict {
    bool settled = false;
    bool settled_so_far = false;              // or would be, were it not for events that the run was too short for
    std::string headline;                     // "settled", "settled, session limit reached", "not settled"
    std::vector<std::string> reasons;         // one line per cause; why it isn't settled or what holds it back
    std::vector<std::string> reasons_so_far;  // the same of settled_so_far
    std::vector<std::string> notes;           // what else is worth knowing, such as targets that are not balanced
    int worst_spread = 0;
    std::string worst_spread_target;  // empty: no target is balanced
    int exit_code = 0;                // 1: an invariant was broken or the connection manager stalled
};

Verdict judge(const RunOutcome& outcome);

}  // namespace ostrel_simhost
