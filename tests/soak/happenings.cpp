#include "soak/happenings.h"

#include <algorithm>
#include <cerrno>

namespace soak {

using simhost::GroupMode;

namespace {

struct Chance {
    Kind kind;
    int weight;
};

constexpr Chance chances[] = {{nic_lost, 8},
                              {nic_back, 9},
                              {array_lost, 5},
                              {array_back, 7},
                              {array_added, 1},
                              {group_added, 1},
                              {volume_added, 3},
                              {volume_removed, 2},
                              {group_scoped_target_added, 1},
                              {sessions_dropped, 12},
                              {all_sessions_dropped, 3},
                              {session_flaps, 8},
                              {logins_fail, 3},
                              {login_time_changed, 3},
                              {discovery_fails, 2},
                              {mode_switched, 6},
                              {digest_setting_changed, 2},
                              {file_edited, 6},
                              {file_damaged, 4},
                              {file_removed, 1},
                              {worker_held_off, 2},
                              {fault_set, 10}};

// Calls that are made to fail. Threads of the worker's own stop and start are not among them.
const std::vector<std::string>& failing_operations() {
    static const std::vector<std::string> all{"IMA_GetLhbaOidList",
                                              "IMA_GetPhbaOidList",
                                              "IMA_VMW_GetLhbaOidList",
                                              "IMA_VMW_GetLhbaProperties",
                                              "IMA_GetTargetOidList",
                                              "IMA_GetTargetProperties",
                                              "IMA_GetSessionOidList",
                                              "IMA_GetSessionProperties",
                                              "IMA_GetConnectionOidList",
                                              "IMA_GetConnectionProperties",
                                              "IMA_VMW_GetConnectionStatus",
                                              "IMA_VMW_AddSession",
                                              "IMA_VMW_RemoveSession",
                                              "IMA_VMW_Rediscover",
                                              "IMA_VMW_GetDiscoveryStatus",
                                              "IMA_VMW_GetNicOidList",
                                              "IMA_VMW_GetStaticDiscoveryTargetOidList",
                                              "IMA_VMW_GetStaticDiscoveryTargetProperties",
                                              "IMA_VMW_GetInitiatorAuthParms",
                                              "IMA_RemoveStaticDiscoveryTarget",
                                              "IMA_FreeMemory",
                                              "psp.0",
                                              "psp.1",
                                              "psp.4",
                                              "psp.3",
                                              "psp.5",
                                              "psp.6",
                                              "psp.7",
                                              "psp.open",
                                              "psp.close",
                                              "open",
                                              "read",
                                              "write",
                                              "close",
                                              "stat",
                                              "access",
                                              "unlink",
                                              "new",
                                              "pthread_create"};
    return all;
}

constexpr int most_sites_parts = 6;  // groups, and group-scoped targets that are added

}  // namespace

void Happenings::later(double seconds, const char* name, std::function<void()> act) {
    host().at(host().now() + seconds, name, [this, act = std::move(act), planned_in = round_](simhost::Host&) {
        if (planned_in == round_) {
            act();
        }
    });
}

void Happenings::plan(int count, double seconds) {
    for (int i = 0; i < count; ++i) {
        later(dice_.seconds(seconds), "something", [this] { happen(); });
    }
}

void Happenings::in_pass() {
    if (!dice_.one_in(6)) {
        return;
    }
    const double moment = dice_.seconds(dice_.one_in(2) ? 2.5 : 12);
    if (dice_.one_in(3)) {
        later(moment, name_of(mode_switched_in_pass), [this] { happen(mode_switched_in_pass); });
    } else {
        later(moment, "something in a pass", [this] { happen(); });
    }
}

void Happenings::happen() {
    int total = 0;
    for (const Chance& each : chances) {
        total += each.weight;
    }
    int left = dice_.any(1, total);
    for (const Chance& each : chances) {
        left -= each.weight;
        if (left <= 0) {
            return happen(each.kind);
        }
    }
}

void Happenings::happen(Kind kind) {
    ++tally_.happened[kind];
    switch (kind) {
        case nic_lost:
            return lose_nic();
        case nic_back:
            return nic_returns();
        case array_lost:
            return lose_array();
        case array_back:
            return array_returns();
        case array_added: {
            Group& group =
                site_.groups[static_cast<std::size_t>(dice_.any(0, static_cast<int>(site_.groups.size()) - 1))];
            return group.num_arrays < 4 ? add_array(site_, group) : void();
        }
        case group_added:
            return static_cast<int>(site_.groups.size()) < most_sites_parts ? add_group(site_, dice_) : void();
        case volume_added:
            return site_.volumes.size() < 250 ? void(add_volume(site_, dice_, dice_.pick(site_.groups))) : void();
        case volume_removed:
            return remove_volume();
        case group_scoped_target_added:
            return site_.next_group_scoped_target < most_sites_parts ? add_group_scoped_target(site_, dice_) : void();
        case sessions_dropped:
            return drop(false);
        case all_sessions_dropped:
            return drop(true);
        case session_flaps:
            return flap();
        case logins_fail:
            return fail_logins();
        case login_time_changed:
            return host().set_login_seconds(dice_.one_in(3) ? 0 : dice_.seconds(40));
        case discovery_fails:
            return fail_discovery();
        case mode_switched:
        case mode_switched_in_pass:
            return switch_mode(dice_.pick(site_.groups));
        case digest_setting_changed:
            return host().set_digests(dice_.pick(site_.adapters).name, dice_.one_in(2));
        case file_edited:
            return operator_.edit();
        case file_damaged:
            return operator_.damage();
        case file_removed:
            return operator_.remove();
        case worker_held_off:
            return hold_off_worker();
        case fault_set:
            return set_fault();
        default:
            return;  // an act of the one who drives the library
    }
}

void Happenings::lose_nic() {
    const std::string nic = dice_.pick(site_.all_nics());
    site_.nics_down.insert(nic);
    host().nic_down(nic);
}

void Happenings::nic_returns() {
    if (!site_.nics_down.empty()) {
        host().nic_up(*site_.nics_down.begin());
        site_.nics_down.erase(site_.nics_down.begin());
    }
}

void Happenings::lose_array() {
    const Group& group = dice_.pick(site_.groups);
    const std::string array = "a" + std::to_string(dice_.any(1, group.num_arrays));
    site_.arrays_down.emplace(group.name, array);
    host().array_down(group.name, array);
}

void Happenings::array_returns() {
    if (!site_.arrays_down.empty()) {
        host().array_up(site_.arrays_down.begin()->first, site_.arrays_down.begin()->second);
        site_.arrays_down.erase(site_.arrays_down.begin());
    }
}

void Happenings::drop(bool all) {
    const auto targets = host().targets();
    if (!targets.empty()) {
        const std::string& iqn = dice_.pick(targets).iqn;
        const int sessions = static_cast<int>(host().sessions(iqn).size());
        host().drop_sessions(iqn, all ? sessions : dice_.any(1, 3));
    }
}

// A session fails and comes back, or fails for good.
void Happenings::flap() {
    const auto sessions = host().sessions();
    if (sessions.empty()) {
        return;
    }
    const simhost::SessionView& session = dice_.pick(sessions);
    const std::vector<std::uint32_t> states{simhost::XPT_WAIT, simhost::XPT_UP, simhost::IN_LOGIN, simhost::IN_LOGOUT,
                                            simhost::CLEANUP_WAIT};
    host().set_state(session.oid, dice_.pick(states));
    flapping_.insert(session.oid);
    const bool for_good = dice_.one_in(4);
    later(dice_.seconds(200), "end of a flap", [this, oid = session.oid, for_good] { end_flap(oid, for_good); });
}

void Happenings::end_flap(std::uint64_t oid, bool for_good) {
    flapping_.erase(oid);
    const auto sessions = host().sessions();
    const auto found =
        std::find_if(sessions.begin(), sessions.end(), [&](const auto& each) { return each.oid == oid; });
    if (found == sessions.end() || found->state == simhost::LOGGED_IN) {
        return;
    }
    if (for_good || !site_.arrays_up(site_.group(host().target(found->target_iqn).group))) {
        host().drop_session(oid);
    } else {
        host().set_state(oid, simhost::LOGGED_IN);
    }
}

void Happenings::remove_volume() {
    if (site_.volumes.size() > 1) {
        const auto at = site_.volumes.begin() + dice_.any(0, static_cast<int>(site_.volumes.size()) - 1);
        host().remove_volume(*at);
        site_.volumes.erase(at);
    }
}

void Happenings::fail_logins() {
    host().fail_logins(true);
    later(dice_.seconds(600), "logins work", [this] { host().fail_logins(false); });
}

void Happenings::fail_discovery() {
    const std::string adapter = dice_.pick(site_.adapters).name;
    host().set_discovery_outcome(adapter, static_cast<std::uint32_t>(dice_.any(0, 5)));
    later(dice_.seconds(900), "discovery works", [this, adapter] { host().set_discovery_outcome(adapter, 2); });
}

void Happenings::switch_mode(const Group& of) {
    Group& group = site_.group(of.name);
    group.mode = group.mode == GroupMode::static_discovery ? GroupMode::dynamic_discovery : GroupMode::static_discovery;
    host().switch_mode(group.name, group.mode);
}

void Happenings::hold_off_worker() {
    operator_.edit(true);
    later(dice_.seconds(600), "worker let go", [this] { operator_.edit(); });
}

void Happenings::set_fault() {
    simhost::Fault fault;
    fault.operation = dice_.pick(failing_operations());
    fault.nth = static_cast<std::uint64_t>(dice_.one_in(2) ? dice_.any(1, 5) : dice_.any(1, 150));
    fault.persistent = dice_.one_in(4);
    if (fault.operation.starts_with("psp.") && !dice_.one_in(2)) {
        fault.status = static_cast<std::uint32_t>(dice_.any(1, 7));
    } else if (!fault.operation.starts_with("IMA_")) {
        const std::vector<int> errors{EIO, ENOSPC, EACCES, EAGAIN};
        fault.error = dice_.pick(errors);
    }
    if (fault.operation == "write" && dice_.one_in(2)) {
        fault.short_by = static_cast<std::size_t>(dice_.any(1, 60));
        fault.error = 0;
    }
    host().fail(fault);
    if (fault.persistent) {
        later(dice_.seconds(400), "calls work", [this] { host().clear_faults(); });
    }
}

void Happenings::end() {
    ++round_;
    host().clear_faults();
    host().fail_logins(false);
    host().set_login_seconds(site_.login_seconds);
    for (const Adapter& each : site_.adapters) {
        host().set_discovery_outcome(each.name, 2);
    }
    // Every group has an array; some parts stay lost.
    const bool all = !dice_.one_in(4);
    for (int n = static_cast<int>(site_.nics_down.size()); n > 0 && (all || dice_.one_in(2)); --n) {
        nic_returns();
    }
    while (!site_.arrays_down.empty()) {
        array_returns();
    }
    // A switch that came back in mid-pass can have cost static target entries: the administrator's script once more.
    for (const Group& each : site_.groups) {
        if (each.mode == GroupMode::static_discovery) {
            host().switch_mode(each.name, each.mode);
        }
    }
    while (!flapping_.empty()) {
        end_flap(*flapping_.begin(), dice_.one_in(2));
    }
}

double Happenings::recovery_seconds() const {
    constexpr double longest_login = 40;  // that a session was begun with
    constexpr double relogin = 15;
    return 2 * relogin + longest_login + site_.login_seconds + site_.claim_seconds + 5;
}

}  // namespace soak
