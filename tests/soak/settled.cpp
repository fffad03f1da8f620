#include "soak/settled.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "support/site.h"

namespace soak {

using ostrel_simhost::TargetRow;
using simhost::Host;
using simhost::PathView;
using simhost::SessionView;

namespace {

template <typename Items, typename Condition>
bool any(const Items& items, Condition condition) {
    return std::any_of(items.begin(), items.end(), condition);
}

std::vector<PathView> paths_of(const Host& host, const std::string& iqn) {
    std::vector<PathView> all;
    for (const std::string& eui : host.target(iqn).devices) {
        const auto paths = host.paths(eui);
        all.insert(all.end(), paths.begin(), paths.end());
    }
    return all;
}

// Behind a group-scoped target a session to an address with an active path is protected from removal.
bool has_unprotected_session(const Host& host, const std::string& iqn) {
    return any(host.sessions(iqn), [paths = paths_of(host, iqn)](const SessionView& session) {
        return session.first_remote_ip != session.current_remote_ip && !any(paths, [&](const PathView& path) {
                   return path.active && path.remote_ip == session.current_remote_ip;
               });
    });
}

bool at_a_ceiling(const Host& host, int wanted) {
    const simhost::Totals totals = host.totals();
    const int paths = totals.active_paths + totals.dead_paths;
    return totals.sessions + wanted > simhost::MAX_SESSIONS || paths + wanted >= simhost::MAX_PATHS;
}

// What keeps the target from its number, each a bound of the procedures; null: nothing does.
const char* reason_of(const Host& host, const TargetRow& row) {
    const bool too_many = row.group_scoped && row.dynamic_sessions > row.required;
    return !is_readable(host, row.iqn)                           ? "unreadable, an adapter in sight has no session"
           : row.dynamic_sessions == 0                           ? "no dynamic session to model another one on"
           : too_many && !has_unprotected_session(host, row.iqn) ? "protected, each carries active paths"
           : at_a_ceiling(host, row.required)                    ? "ceiling of the host's sessions or paths"
                                                                 : nullptr;
}

// A volume whose paths are right isn't looked at.
bool has_its_number(const TargetRow& row) {
    return row.dynamic_sessions == row.required || (!row.group_scoped && row.active_paths == row.required);
}

}  // namespace

// An adapter is in sight by a path of the target or a NIC that is up.
bool is_readable(const Host& host, const std::string& iqn) {
    const auto is_bare = [bare = testing_support::bare_adapters(host, host.target(iqn))](const auto& on) {
        return std::count(bare.begin(), bare.end(), on.adapter) > 0;
    };
    return !any(paths_of(host, iqn), is_bare) &&
           !any(host.nics(), [&](const simhost::NicView& nic) { return nic.up && is_bare(nic); });
}

std::set<std::string> counting_lost_nics(const Host& host) {
    std::set<std::string> found;
    for (const simhost::TargetView& target : host.targets()) {
        const auto sessions = host.sessions(target.iqn);
        if (any(paths_of(host, target.iqn), [&](const PathView& path) {
                return !any(sessions, [&](const SessionView& each) { return each.local_ip == path.local_ip; });
            })) {
            found.insert(target.iqn);
        }
    }
    return found;
}

bool judge(RandomSite& site, Watch& watch, const ConfigValues& values) {
    const Host& host = site.host();
    // By mode: one target that can't be read holds up the switches of all.
    std::map<bool, std::vector<std::string>> switched;
    std::set<bool> held_up;
    for (const TargetRow& row : site.rows(values)) {
        if (!row.supported || row.devices == 0) {
            continue;
        }
        ++site.counts["targets looked at"];
        if (row.mode_changed) {
            switched[row.static_mode].push_back(row.iqn);
            if (!is_readable(host, row.iqn) || at_a_ceiling(host, 64)) {
                held_up.insert(row.static_mode);
            }
        } else if (row.static_mode || has_its_number(row)) {
            continue;
        } else if (const char* const reason = reason_of(host, row)) {
            ++site.counts[reason];
        } else {
            watch.report(fmt::format("{} has {} dynamic sessions of {} and {} active paths, required {}", row.iqn,
                                     row.dynamic_sessions, row.sessions(), row.active_paths, row.required));
        }
    }
    for (const auto& [mode, targets] : switched) {
        if (held_up.contains(mode)) {
            site.counts["switch held up"] += targets.size();
        } else {
            watch.report(fmt::format("the mode change of {} isn't finished", fmt::join(targets, ", ")));
        }
    }
    return !held_up.empty();
}

}  // namespace soak
