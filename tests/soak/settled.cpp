#include "soak/settled.h"

#include <fmt/format.h>

#include <algorithm>

namespace soak {

using simhost::GroupMode;
using simhost::Host;
using simhost::SessionView;
using simhost::TargetView;

namespace {

// A target as the checks see it.
struct Seen {
    const TargetView& target;
    std::vector<SessionView> sessions;
    std::vector<std::vector<simhost::PathView>> paths;  // of each device
    int dynamic = 0;

    Seen(const Host& host, const TargetView& of) : target(of), sessions(host.sessions(of.iqn)) {
        for (const std::string& eui : of.devices) {
            paths.push_back(host.paths(eui));
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
    bool has_empty_adapter(const Host& host) const {
        const auto nics = host.nics();
        return std::any_of(target.adapters.begin(), target.adapters.end(), [&](const std::string& adapter) {
            const auto on_it = [&](const auto& each) { return each.adapter == adapter; };
            return std::none_of(sessions.begin(), sessions.end(), on_it) &&
                   (std::any_of(nics.begin(), nics.end(), [&](const auto& nic) { return nic.up && on_it(nic); }) ||
                    std::any_of(paths.begin(), paths.end(),
                                [&](const auto& device) { return std::any_of(device.begin(), device.end(), on_it); }));
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

bool at_a_ceiling(const Host& host, int wanted) {
    const simhost::Totals totals = host.totals();
    const int paths = totals.active_paths + totals.dead_paths;
    return totals.sessions + wanted > simhost::MAX_SESSIONS || paths + wanted >= simhost::MAX_PATHS;
}

bool is_reported(const Host& host, const TargetView& target) {
    return std::any_of(target.devices.begin(), target.devices.end(),
                       [&](const std::string& eui) { return host.volume(eui).supported; });
}

std::string described(const Seen& seen, int required) {
    return fmt::format("{} of {} has {} dynamic sessions of {} and {} active paths, required {}", seen.target.iqn,
                       seen.target.group, seen.dynamic, seen.sessions.size(), seen.active_paths(), required);
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
    if (seen.dynamic == required || (!seen.target.group_scoped && seen.active_paths() == required)) {
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
