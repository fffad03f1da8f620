#include "site.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <set>
#include <stdexcept>
#include <tuple>

#include "shared/needs.h"

namespace ostrel_simhost {

namespace {

// The kinds of sessions as the connection manager tells them apart.
void count_session(TargetRow& row, const simhost::SessionView& session) {
    const bool logging_in = session.state == simhost::XPT_WAIT || session.state == simhost::IN_LOGIN;
    if (session.first_remote_ip != session.current_remote_ip) {
        ++row.dynamic_sessions;
    } else if (logging_in) {
        ++row.pending_sessions;
    } else {
        ++row.static_sessions;
    }
    if (session.state != simhost::LOGGED_IN && !logging_in) {
        ++row.broken_sessions;
    }
}

}  // namespace

void Site::build(simhost::Host& host) {
    for (const std::string& hazard : scenario_.allowed_hazards) {
        host.allow(hazard);
    }
    for (const AdapterEntry& adapter : scenario_.adapters) {
        host.add_adapter(adapter.name, adapter.nics);
    }
    for (const simhost::GroupSpec& group : scenario_.groups) {
        host.add_group(group);
    }
    for (const GroupScopedTargetEntry& target : scenario_.group_scoped_targets) {
        host.add_group_scoped_target(target.spec);
        iqns_[target.name] = target.spec.iqn;
        group_scoped_names_[target.spec.iqn] = target.name;
    }
    for (const VolumeEntry& volume : scenario_.volumes) {
        add_volume(host, volume);
    }
    for (const ScenarioStaticTarget& entry : scenario_.static_targets) {
        simhost::StaticTargetView target = entry.spec;
        target.target_iqn = iqn_of(entry.target);
        host.add_static_target(target);
    }
    for (const GroupScopedTargetEntry& target : scenario_.group_scoped_targets) {
        connect(host, target.spec.iqn, target.sessions);
    }
    for (const SessionEntry& session : scenario_.sessions) {
        add_sessions(host, session);
    }
    host.claim_paths();

    if (scenario_.config_text) {
        host.write_file(CONFIG_FILE, *scenario_.config_text);
        for (const std::string& path : logs_paths_of(*scenario_.config_text)) {
            host.write_file(path + "/.folder", "");
        }
    }
    if (!scenario_.oxd_version.empty()) {
        host.write_file("/etc/ostrel/oxdversion.txt", scenario_.oxd_version + "\n");
    }
    if (!scenario_.psp_version.empty()) {
        host.write_file("/etc/ostrel/pspversion.txt", scenario_.psp_version + "\n");
    }
}

void Site::add_volume(simhost::Host& host, const VolumeEntry& volume) {
    simhost::VolumeSpec spec = volume.spec;
    if (!spec.group_scoped_target.empty()) {
        spec.group_scoped_target = iqn_of(spec.group_scoped_target);
    }
    host.add_volume(spec);
    const std::string iqn = host.iqn_of(spec.eui);
    const bool shares = std::any_of(iqns_.begin(), iqns_.end(), [&](const auto& each) { return each.second == iqn; });
    iqns_[spec.eui] = iqn;
    if (spec.group_scoped_target.empty() && !(shares && volume.sessions == USUAL_SESSIONS)) {
        connect(host, iqn, volume.sessions);
    }
}

void Site::connect(simhost::Host& host, const std::string& iqn, int sessions) const {
    if (sessions == USUAL_SESSIONS) {
        const simhost::TargetView target = host.target(iqn);
        // In a static group the host takes 0 for one session to each portal.
        host.connect(iqn, target.mode == simhost::GroupMode::static_discovery ? 0 : target.nics);
    } else if (sessions > 0) {
        host.connect(iqn, sessions);
    }
}

void Site::add_sessions(simhost::Host& host, const SessionEntry& entry) {
    simhost::SessionView session = entry.spec;
    session.target_iqn = iqn_of(entry.target);
    for (int i = 0; i < entry.count; ++i) {
        host.add_session(session);
    }
}

std::string Site::iqn_of(const std::string& name) const {
    const auto place = iqns_.find(name);
    if (place == iqns_.end()) {
        throw std::invalid_argument(fmt::format("{} isn't on the host", name));
    }
    return place->second;
}

void Site::schedule(simhost::Host& host, const ActionDone& done) {
    for (const TimedAction& timed : scenario_.actions) {
        schedule(host, timed, done);
    }
}

void Site::schedule(simhost::Host& host, const TimedAction& timed, const ActionDone& done) {
    host.at(timed.at_seconds, timed.action.text, [this, timed, done](simhost::Host& running) {
        std::string refusal;
        try {
            timed.action.act(*this, running);
        } catch (const std::exception& exception) {
            refusal = exception.what();
        }
        done(timed, refusal);
    });
}

// The row of a volume, or with an empty `device` that of a group-scoped target.
TargetRow Site::row_of(const simhost::Host& host, const simhost::TargetView& target, const std::string& device,
                       const std::vector<simhost::SessionView>& sessions, const std::vector<Address>& addresses,
                       const ConfigValues& config) const {
    TargetRow row;
    row.iqn = target.iqn;
    row.group_scoped = target.group_scoped;
    row.static_mode = target.mode == simhost::GroupMode::static_discovery;
    row.mode_changed = target.mode_changed;
    row.nics_up = target.nics;
    for (const simhost::SessionView& session : sessions) {
        count_session(row, session);
    }
    std::set<std::string> path_addresses;
    const std::string& looked_at = device.empty() && !target.devices.empty() ? target.devices.front() : device;
    for (const simhost::PathView& path : looked_at.empty() ? std::vector<simhost::PathView>{} : host.paths(looked_at)) {
        path_addresses.insert(path.local_ip);
        ++(path.active ? row.active_paths : row.dead_paths);
    }
    row.nics = static_cast<int>(config.vmknic_count > 0 ? config.vmknic_count : path_addresses.size());
    if (target.group_scoped) {
        const auto name = group_scoped_names_.find(target.iqn);
        row.name = name != group_scoped_names_.end() ? name->second : target.iqn;
        row.devices = static_cast<int>(target.devices.size());
        row.arrays = target.arrays;
        row.total_arrays = target.total_arrays;
        row.active_paths = target.active_paths;
        row.dead_paths = target.dead_paths;
        row.required = shared::required_for_group_scoped_target(config, row.nics, row.arrays, row.total_arrays);
    } else {
        const simhost::VolumeView volume = host.volume(device);
        row.name = device;
        row.supported = volume.supported;
        row.arrays = volume.arrays;
        row.total_arrays = volume.total_arrays;
        row.required = shared::required_for_volume(config, row.nics, row.arrays);
    }
    for (const Address& address : addresses) {
        const bool ours =
            std::find(target.adapters.begin(), target.adapters.end(), address.adapter) != target.adapters.end();
        const auto count = std::count_if(sessions.begin(), sessions.end(),
                                         [&](const auto& session) { return session.local_ip == address.ip; });
        row.per_address.push_back(ours || count > 0 ? static_cast<int>(count) : -1);
    }
    for (const std::string& adapter : target.adapters) {
        row.bare_adapters += std::none_of(sessions.begin(), sessions.end(),
                                          [&](const auto& session) { return session.adapter == adapter; });
    }
    return row;
}

std::vector<TargetRow> Site::rows(const simhost::Host& host, const ConfigValues& config) const {
    std::map<std::string, std::vector<simhost::SessionView>> sessions;
    for (simhost::SessionView& session : host.sessions()) {
        std::string iqn = session.target_iqn;
        sessions[std::move(iqn)].push_back(std::move(session));
    }
    const std::vector<Address> addresses = host.nics();
    std::vector<TargetRow> rows;
    for (const simhost::TargetView& target : host.targets()) {
        if (target.group_scoped) {
            rows.push_back(row_of(host, target, "", sessions[target.iqn], addresses, config));
            continue;
        }
        for (const std::string& device : target.devices) {
            rows.push_back(row_of(host, target, device, sessions[target.iqn], addresses, config));
        }
    }
    return rows;
}

simhost::HostOptions host_options(const Scenario& scenario) {
    simhost::HostOptions options;
    options.start_time = scenario.start_time;
    options.login_seconds = scenario.login_seconds;
    options.claim_seconds = scenario.claim_seconds;
    options.discovery_seconds = scenario.discovery_seconds;
    return options;
}

int balanced_paths(const simhost::Host& host) {
    std::size_t count = 0;
    for (const simhost::TargetView& target : host.targets()) {
        for (const std::string& device : target.devices) {
            count += host.volume(device).supported ? host.paths(device).size() : 0;
        }
    }
    return static_cast<int>(count);
}

bool TargetRow::same_state(const TargetRow& other) const {
    const auto tied = [](const TargetRow& row) {
        return std::tie(row.group_scoped, row.static_mode, row.mode_changed, row.supported, row.devices, row.nics,
                        row.nics_up, row.arrays, row.total_arrays, row.required, row.dynamic_sessions,
                        row.static_sessions, row.pending_sessions, row.broken_sessions, row.active_paths,
                        row.dead_paths, row.per_address);
    };
    return tied(*this) == tied(other);
}

}  // namespace ostrel_simhost
