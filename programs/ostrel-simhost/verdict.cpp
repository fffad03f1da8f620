#include "verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "shared/duration.h"
#include "shared/name_list.h"

namespace ostrel_simhost {

namespace {

// A group-scoped target is balanced by its sessions alone; of its paths only those to the arrays that serve it
// actively are active.
bool is_satisfied(const TargetRow& row) {
    return row.dynamic_sessions == row.required && row.static_sessions == 0 &&
           (row.group_scoped || row.active_paths == row.required);
}

bool waits_for_a_pass(const RunOutcome& outcome) {
    return outcome.last_action_at >= 0 && outcome.passes_after_last_action == 0;
}

// Why a target has not what it needs. The limits of the whole host come first.
std::string cause_of(const TargetRow& row, const RunOutcome& outcome) {
    if (outcome.last_pass.config.worker_stop != 0) {
        return "worker_stop is set, passes are skipped";
    }
    if (outcome.paths >= simhost::MAX_PATHS) {
        return fmt::format("{}-path limit, nothing is balanced", simhost::MAX_PATHS);
    }
    if (row.nics == 0) {
        return "no NIC is counted, the target has no path";
    }
    if (row.pending_sessions + row.broken_sessions > 0) {
        return "sessions are not logged in (logins pending or failing)";
    }
    if (row.bare_adapters > 0) {
        return "the session inventory fails, one of the target's adapters has no session of it";
    }
    if (row.dynamic_sessions == 0) {
        return "no dynamic session is there to be duplicated";
    }
    if (row.mode_changed || row.static_sessions > 0) {
        return "the switch of the group's mode is not complete, static sessions remain";
    }
    if (std::any_of(outcome.rows.begin(), outcome.rows.end(),
                    [&](const TargetRow& other) { return other.iqn == row.iqn && other.required != row.required; })) {
        return "another volume on the same target wants another number of sessions";
    }
    if (row.dynamic_sessions < row.required && outcome.totals.sessions >= simhost::MAX_SESSIONS) {
        return fmt::format("session limit reached, {} sessions on the host", outcome.totals.sessions);
    }
    if (waits_for_a_pass(outcome)) {
        return "no pass has looked at them since the event";
    }
    if (row.dynamic_sessions > row.required && row.group_scoped) {
        return "sessions that carry active paths are not removed";
    }
    if (row.dynamic_sessions == row.required) {
        return "sessions and paths differ, not all paths are claimed";
    }
    if (!row.group_scoped && row.active_paths == row.required) {
        return "the number of paths is right, so the sessions are not looked at";
    }
    return "sessions are missing or too many";
}

bool is_session_limit(const std::string& cause) {
    return cause.starts_with("session limit reached");
}

bool is_cut_off(const std::string& reason) {
    return reason.starts_with("the run ended before the event");
}

void add_pass_reasons(const RunOutcome& outcome, Verdict& verdict) {
    const PassRecord& pass = outcome.last_pass;
    if (outcome.stalled) {
        verdict.reasons.push_back("the connection manager made no progress for a minute of real time");
    }
    if (outcome.interrupted) {
        verdict.reasons.push_back(fmt::format("the run was interrupted at {}", shared::clock_text(outcome.ended_at)));
    }
    if (pass.number == 0) {
        verdict.reasons.push_back("no pass was completed");
        return;
    }
    if (outcome.next_action_at >= 0) {
        verdict.reasons.push_back(fmt::format("the run ended before the event at {}, run it longer (--for)",
                                              shared::clock_text(outcome.next_action_at)));
    }
    if (waits_for_a_pass(outcome)) {
        verdict.reasons.push_back(
            fmt::format("no pass came after the event at {}, the interval of {} is too long for the run (--for)",
                        shared::clock_text(outcome.last_action_at), shared::duration_text(pass.config.interval)));
    }
    if (pass.added + pass.removed + pass.static_targets_removed > 0 || !pass.rediscovered.empty()) {
        verdict.reasons.push_back(fmt::format("the last pass still changed something ({} added, {} removed)",
                                              pass.added, pass.removed + pass.static_targets_removed));
    }
}

void add_target_reasons(const RunOutcome& outcome, Verdict& verdict) {
    std::vector<std::pair<std::string, std::vector<const TargetRow*>>> causes;
    std::vector<std::string> without_path;
    for (const TargetRow& row : outcome.rows) {
        if (!row.is_balanced() || is_satisfied(row)) {
            if (row.devices > 0 && row.active_paths == 0) {
                without_path.push_back(row.name);
            }
            continue;
        }
        const std::string cause = cause_of(row, outcome);
        auto place = std::find_if(causes.begin(), causes.end(), [&](const auto& c) { return c.first == cause; });
        if (place == causes.end()) {
            place = causes.insert(causes.end(), {cause, {}});
        }
        place->second.push_back(&row);
    }
    if (!without_path.empty()) {
        verdict.reasons.push_back("no active path: " + shared::name_list(without_path));
    }
    for (const auto& [cause, rows] : causes) {
        std::vector<std::string> names;
        int lacking = 0;
        int too_many = 0;
        for (const TargetRow* row : rows) {
            names.push_back(row->name);
            lacking += row->short_by();
            too_many += std::max(0, row->dynamic_sessions - row->required);
        }
        std::string text = fmt::format("{}: {}", cause, shared::name_list(names));
        if (lacking > 0) {
            text += fmt::format(", {} session{} short", lacking, lacking == 1 ? "" : "s");
        }
        if (too_many > 0) {
            text += fmt::format(", {} session{} too many", too_many, too_many == 1 ? "" : "s");
        }
        verdict.reasons.push_back(std::move(text));
    }
}

void add_errors(const PassRecord& pass, std::vector<std::string>& reasons) {
    int shown = 0;
    for (const FoldedLogLine& line : pass.log) {
        if (line.level == "ERROR" && ++shown <= 3) {
            reasons.push_back(fmt::format("error in the last pass: {}", line.text));
        }
    }
}

void add_notes(const RunOutcome& outcome, Verdict& verdict) {
    const auto names_of = [&](auto&& wanted) {
        std::vector<std::string> names;
        for (const TargetRow& row : outcome.rows) {
            if (wanted(row)) {
                names.push_back(row.name);
            }
        }
        return names;
    };
    const auto note = [&](std::string_view what, const std::vector<std::string>& names) {
        if (!names.empty()) {
            verdict.notes.push_back(fmt::format("{}: {}", what, shared::name_list(names)));
        }
    };
    note("static mode, not balanced", names_of([](const TargetRow& row) { return row.static_mode; }));
    note("unsupported array, not balanced",
         names_of([](const TargetRow& row) { return !row.static_mode && !row.supported; }));
    note("NICs are up that carry no path, they are not counted", names_of([&](const TargetRow& row) {
             return row.is_balanced() && outcome.last_pass.config.vmknic_count == 0 && row.nics < row.nics_up;
         }));
    note("dead paths remain", names_of([](const TargetRow& row) { return row.dead_paths > 0; }));
    if (outcome.last_pass.config.worker_stop != 0) {
        verdict.notes.push_back("worker_stop is set");
    }
    verdict.notes.insert(verdict.notes.end(), outcome.undone.begin(), outcome.undone.end());
}

// The largest difference, over a target's addresses that are up, between the numbers of its sessions.
void find_worst_spread(const RunOutcome& outcome, Verdict& verdict) {
    for (const TargetRow& row : outcome.rows) {
        int least = simhost::MAX_SESSIONS;
        int most = 0;
        for (std::size_t i = 0; i < row.per_address.size() && i < outcome.addresses.size(); ++i) {
            if (row.per_address[i] >= 0 && outcome.addresses[i].up) {
                least = std::min(least, row.per_address[i]);
                most = std::max(most, row.per_address[i]);
            }
        }
        if (row.is_balanced() && most > 0 &&
            (verdict.worst_spread_target.empty() || most - least > verdict.worst_spread)) {
            verdict.worst_spread = most - least;
            verdict.worst_spread_target = row.name;
        }
    }
}

}  // namespace

Verdict judge(const RunOutcome& outcome) {
    Verdict verdict;
    add_pass_reasons(outcome, verdict);
    const bool passes_quiet = verdict.reasons.empty();
    if (outcome.last_pass.number > 0) {
        add_target_reasons(outcome, verdict);
    }
    add_notes(outcome, verdict);
    find_worst_spread(outcome, verdict);

    const bool only_session_limit = std::all_of(verdict.reasons.begin(), verdict.reasons.end(), is_session_limit);
    verdict.settled = passes_quiet && only_session_limit;
    verdict.settled_so_far = std::all_of(verdict.reasons.begin(), verdict.reasons.end(), [](const std::string& reason) {
        return is_session_limit(reason) || is_cut_off(reason);
    });
    verdict.headline = !verdict.settled          ? "not settled"
                       : verdict.reasons.empty() ? "settled"
                                                 : "settled, session limit reached";
    std::remove_copy_if(verdict.reasons.begin(), verdict.reasons.end(), std::back_inserter(verdict.reasons_so_far),
                        is_cut_off);
    if (!verdict.settled) {
        add_errors(outcome.last_pass, verdict.reasons);
    }
    if (!verdict.settled_so_far) {
        add_errors(outcome.last_pass, verdict.reasons_so_far);
    }
    verdict.exit_code = !outcome.violations.empty() || outcome.stalled ? 1 : 0;
    return verdict;
}

}  // namespace ostrel_simhost
