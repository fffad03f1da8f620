#include "soak/settled.h"

#include <algorithm>
#include <map>
#include <set>

namespace soak {

using simhost::GroupMode;
using simhost::SessionView;
using simhost::TargetView;

namespace {

constexpr int session_ceiling = 2040;
constexpr int path_ceiling = 2048;

// A target as the checks see it.
struct Seen {
    const TargetView& target;
    std::vector<SessionView> sessions;
    std::vector<std::vector<simhost::PathView>> paths;  // of each device
    int dynamic = 0;

    Seen(const Site& site, const TargetView& of) : target(of), sessions(site.host->sessions(of.iqn)) {
        for (const std::string& eui : of.devices) {
            paths.push_back(site.host->paths(eui));
        }
        dynamic = static_cast<int>(std::count_if(sessions.begin(), sessions.end(), [](const SessionView& each) {
            return each.first_remote_ip != each.current_remote_ip;
        }));
    }

    // What the manager counts: local addresses of the first device's paths, dead ones too.
    int nics() const {
        std::set<std::string> addresses;
        for (const simhost::PathView& each : paths.front()) {
            addresses.insert(each.local_ip);
        }
        return addresses.empty() ? target.nics : static_cast<int>(addresses.size());
    }
    bool counts_lost_nic() const {
        return std::any_of(paths.begin(), paths.end(), [&](const auto& device) {
            return std::any_of(device.begin(), device.end(), [&](const simhost::PathView& path) {
                return std::none_of(sessions.begin(), sessions.end(),
                                    [&](const SessionView& each) { return each.local_ip == path.local_ip; });
            });
        });
    }
    int active_paths() const {
        return static_cast<int>(
            std::count_if(paths.front().begin(), paths.front().end(), [](const auto& each) { return each.active; }));
    }
    // An adapter in the PSP's sight without a session: the target's sessions can't be read as a whole.
    bool has_empty_adapter(const Site& site) const {
        return std::any_of(site.adapters.begin(), site.adapters.end(), [&](const Adapter& adapter) {
            const auto on_it = [&](const auto& each) { return each.adapter == adapter.name; };
            if (std::find(target.adapters.begin(), target.adapters.end(), adapter.name) == target.adapters.end() ||
                std::any_of(sessions.begin(), sessions.end(), on_it)) {
                return false;
            }
            return std::any_of(adapter.nics.begin(), adapter.nics.end(),
                               [&](const std::string& nic) { return !site.nics_down.contains(nic); }) ||
                   std::any_of(paths.begin(), paths.end(),
                               [&](const auto& each) { return std::any_of(each.begin(), each.end(), on_it); });
        });
    }
    // Behind a group-scoped target a session to an address with an active path is protected from removal.
    bool has_unprotected_session() const {
        return std::any_of(sessions.begin(), sessions.end(), [&](const SessionView& session) {
            return session.first_remote_ip != session.current_remote_ip &&
                   std::none_of(paths.begin(), paths.end(), [&](const auto& device) {
                       return std::any_of(device.begin(), device.end(), [&](const auto& path) {
                           return path.active && path.remote_ip == session.current_remote_ip;
                       });
                   });
        });
    }
};

int required_of(const Seen& seen, const ConfigValues& values) {
    const int nics = values.vmknic_count != 0 ? static_cast<int>(values.vmknic_count) : seen.nics();
    const TargetView& target = seen.target;
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

bool at_a_ceiling(const Site& site, int wanted) {
    const simhost::Totals totals = site.host->totals();
    const int paths = totals.active_paths + totals.dead_paths;
    return totals.sessions + wanted > session_ceiling || paths + wanted >= path_ceiling;
}

bool is_reported(const Site& site, const TargetView& target) {
    return std::any_of(target.devices.begin(), target.devices.end(), [&](const std::string& eui) {
        return std::find(site.unsupported.begin(), site.unsupported.end(), eui) == site.unsupported.end();
    });
}

std::string described(const Seen& seen, int required) {
    return seen.target.iqn + " of " + seen.target.group + " has " + std::to_string(seen.dynamic) +
           " dynamic sessions of " + std::to_string(seen.sessions.size()) + " and " +
           std::to_string(seen.active_paths()) + " active paths, required " + std::to_string(required);
}

// What keeps the target from its number; none: nothing does.
Reason reason_of(const Site& site, const Seen& seen, int required) {
    if (seen.has_empty_adapter(site)) {
        return unreadable;
    }
    if (seen.dynamic == 0) {
        return no_dynamic;
    }
    if (seen.target.group_scoped && seen.dynamic > required && !seen.has_unprotected_session()) {
        return all_protected;
    }
    return at_a_ceiling(site, required) ? ceiling : num_reasons;
}

void judge_number(const Site& site, const ConfigValues& values, const Seen& seen, Verdict& verdict) {
    ++verdict.targets;
    const int required = required_of(seen, values);
    // A volume whose paths are right isn't looked at.
    if (seen.dynamic == required || (!seen.target.group_scoped && seen.active_paths() == required)) {
        return;
    }
    const Reason reason = reason_of(site, seen, required);
    if (reason == num_reasons) {
        verdict.wrong.push_back(described(seen, required));
    } else {
        ++verdict.kept[reason];
    }
}

}  // namespace

bool is_readable(const Site& site, const std::string& iqn) {
    const TargetView target = site.host->target(iqn);
    return !Seen(site, target).has_empty_adapter(site);
}

std::set<std::string> counting_lost_nics(const Site& site) {
    std::set<std::string> found;
    for (const TargetView& target : site.host->targets()) {
        if (Seen(site, target).counts_lost_nic()) {
            found.insert(target.iqn);
        }
    }
    return found;
}

Verdict judge(const Site& site, const ConfigValues& values) {
    Verdict verdict;
    // By mode: one target that can't be read holds up the switches of all.
    std::map<GroupMode, std::vector<std::string>> switched;
    std::set<GroupMode> held_up;
    for (const TargetView& target : site.host->targets()) {
        if (!is_reported(site, target)) {
            continue;
        }
        const Seen seen(site, target);
        if (target.mode_changed) {
            switched[target.mode].push_back(target.iqn);
            if (seen.has_empty_adapter(site)) {
                held_up.insert(target.mode);
            }
        } else if (target.mode == GroupMode::dynamic_discovery) {
            judge_number(site, values, seen, verdict);
        }
    }
    for (const auto& [mode, targets] : switched) {
        if (held_up.contains(mode) || at_a_ceiling(site, 64)) {
            verdict.kept[switch_held_up] += targets.size();
            continue;
        }
        for (const std::string& iqn : targets) {
            verdict.wrong.push_back("the mode change of " + iqn + " isn't finished");
        }
    }
    return verdict;
}

}  // namespace soak
