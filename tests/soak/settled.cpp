#include "soak/settled.h"

#include <fmt/format.h>

#include <algorithm>

namespace soak {

using simhost::GroupMode;
using simhost::Host;
using simhost::PathView;
using simhost::SessionView;
using simhost::TargetView;

namespace {

template <typename Items, typename Condition>
bool any(const Items& items, Condition condition) {
    return std::any_of(items.begin(), items.end(), condition);
}

bool is_dynamic(const SessionView& session) {
    return session.first_remote_ip != session.current_remote_ip;
}

// A target as the checks see it.
struct Seen {
    const TargetView& target;
    std::vector<SessionView> sessions;
    std::vector<PathView> paths;  // those of the first device first
    int dynamic = 0;
    int active_paths = 0;        // of the first device
    std::set<std::string> nics;  // what the manager counts: of the first device's paths, dead ones too

    Seen(const Host& host, const TargetView& of) : target(of), sessions(host.sessions(of.iqn)) {
        dynamic = static_cast<int>(std::count_if(sessions.begin(), sessions.end(), is_dynamic));
        for (const std::string& eui : of.devices) {
            for (const PathView& each : host.paths(eui)) {
                paths.push_back(each);
                if (eui == of.devices.front()) {
                    active_paths += each.active ? 1 : 0;
                    nics.insert(each.local_ip);
                }
            }
        }
    }

    bool counts_lost_nic() const {
        return any(paths, [&](const PathView& path) {
            return !any(sessions, [&](const SessionView& each) { return each.local_ip == path.local_ip; });
        });
    }
    // An adapter in the PSP's sight without a session: the target's sessions can't be read as a whole.
    bool has_empty_adapter(const Host& host) const {
        return any(target.adapters, [&, nics_of_host = host.nics()](const std::string& adapter) {
            const auto on_it = [&](const auto& each) { return each.adapter == adapter; };
            return !any(sessions, on_it) &&
                   (any(paths, on_it) || any(nics_of_host, [&](const auto& nic) { return nic.up && on_it(nic); }));
        });
    }
    // Behind a group-scoped target a session to an address with an active path is protected from removal.
    bool has_unprotected_session() const {
        return any(sessions, [&](const SessionView& session) {
            return is_dynamic(session) && !any(paths, [&](const PathView& path) {
                       return path.active && path.remote_ip == session.current_remote_ip;
                   });
        });
    }
};

int required_of(const Seen& seen, const ConfigValues& values) {
    const TargetView& target = seen.target;
    const int nics = values.vmknic_count != 0 ? static_cast<int>(values.vmknic_count)
                     : seen.nics.empty()      ? target.nics
                                              : static_cast<int>(seen.nics.size());
    if (target.group_scoped) {
        const int required = std::max(nics, 4) * target.arrays + 2 * (target.total_arrays - target.arrays);
        const int least = static_cast<int>(values.min_pe_sessions);
        return required < least ? least : std::min(required, static_cast<int>(values.max_pe_sessions));
    }
    const int arrays = std::max(1, target.arrays);
    const int required =
        values.vol_sessions != 0 ? static_cast<int>(values.vol_sessions) : (nics == 1 ? 2 : nics) * arrays;
    return std::clamp(required, static_cast<int>(values.min_vol_sessions), static_cast<int>(values.max_vol_sessions));
}

bool at_a_ceiling(const Host& host, int wanted) {
    const simhost::Totals totals = host.totals();
    const int paths = totals.active_paths + totals.dead_paths;
    return totals.sessions + wanted > simhost::MAX_SESSIONS || paths + wanted >= simhost::MAX_PATHS;
}

bool is_reported(const Host& host, const TargetView& target) {
    return any(target.devices, [&](const std::string& eui) { return host.volume(eui).supported; });
}

std::string described(const Seen& seen, int required) {
    return fmt::format("{} of {} has {} dynamic sessions of {} and {} active paths, required {}", seen.target.iqn,
                       seen.target.group, seen.dynamic, seen.sessions.size(), seen.active_paths, required);
}

// What keeps the target from its number; null: nothing does.
const char* reason_of(const Host& host, const Seen& seen, int required) {
    const bool too_many = seen.target.group_scoped && seen.dynamic > required;
    return seen.has_empty_adapter(host)                  ? "unreadable, an adapter in sight has no session"
           : seen.dynamic == 0                           ? "no dynamic session to model another one on"
           : too_many && !seen.has_unprotected_session() ? "protected, each carries active paths"
           : at_a_ceiling(host, required)                ? "ceiling of the host's sessions or paths"
                                                         : nullptr;
}

void judge_number(const Host& host, const ConfigValues& values, const Seen& seen, Verdict& verdict) {
    ++verdict.targets;
    const int required = required_of(seen, values);
    // A volume whose paths are right isn't looked at.
    if (seen.dynamic == required || (!seen.target.group_scoped && seen.active_paths == required)) {
        return;
    }
    if (const char* const reason = reason_of(host, seen, required)) {
        ++verdict.kept[reason];
    } else {
        verdict.wrong.push_back(described(seen, required));
    }
}

}  // namespace

bool is_readable(const Host& host, const std::string& iqn) {
    const TargetView target = host.target(iqn);
    return !Seen(host, target).has_empty_adapter(host);
}

std::set<std::string> counting_lost_nics(const Host& host) {
    std::set<std::string> found;
    for (const TargetView& target : host.targets()) {
        if (Seen(host, target).counts_lost_nic()) {
            found.insert(target.iqn);
        }
    }
    return found;
}

Verdict judge(const Host& host, const ConfigValues& values) {
    Verdict verdict;
    // By mode: one target that can't be read holds up the switches of all.
    std::map<GroupMode, std::vector<std::string>> switched;
    std::set<GroupMode> held_up;
    for (const TargetView& target : host.targets()) {
        if (!is_reported(host, target)) {
            continue;
        }
        const Seen seen(host, target);
        if (target.mode_changed) {
            switched[target.mode].push_back(target.iqn);
            if (seen.has_empty_adapter(host)) {
                held_up.insert(target.mode);
            }
        } else if (target.mode == GroupMode::dynamic_discovery) {
            judge_number(host, values, seen, verdict);
        }
    }
    for (const auto& [mode, targets] : switched) {
        if (held_up.contains(mode) || at_a_ceiling(host, 64)) {
            verdict.kept[SWITCH_HELD_UP] += targets.size();
            continue;
        }
        for (const std::string& iqn : targets) {
            verdict.wrong.push_back("the mode change of " + iqn + " isn't finished");
        }
    }
    return verdict;
}

}  // namespace soak
