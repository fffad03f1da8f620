#include "site.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <set>
#include <stdexcept>
#include <tuple>

#include "needs.h"

namespace program {

namespace {

template <class... Functions>
struct Overloaded : Functions... {
    using Functions::operator()...;
};
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

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
        for (const std::string& ip : adapter.nics) {
            addresses_.push_back({ip, adapter.name, true});
        }
    }
    for (const simhost::GroupSpec& group : scenario_.groups) {
        host.add_group(group);
        for (const simhost::ArraySpec& array : group.arrays) {
            arrays_[group.name].push_back({array.name});
        }
    }
    for (const GroupScopedTargetEntry& target : scenario_.group_scoped_targets) {
        host.add_group_scoped_target(target.spec);
        iqns_[target.name] = target.spec.iqn;
        group_scoped_names_[target.spec.iqn] = target.name;
    }
    for (const VolumeEntry& volume : scenario_.volumes) {
        add_volume(host, volume);
    }
    for (const StaticTargetEntry& entry : scenario_.static_targets) {
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
    volumes_[spec.eui] = volume.spec;
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

void Site::set_nic(const std::string& ip, bool up) {
    for (Address& address : addresses_) {
        if (address.ip == ip) {
            address.up = up;
        }
    }
}

void Site::set_array(const std::string& group, const std::string& name, bool up) {
    for (Array& array : arrays_[group]) {
        if (array.name == name) {
            array.up = up;
        }
    }
}

void Site::set_states(simhost::Host& host, const SetState& change) {
    int left = change.count;
    for (const simhost::SessionView& session : host.sessions(iqn_of(change.target))) {
        if (left > 0 && session.state != change.state &&
            (change.local_ip.empty() || change.local_ip == session.local_ip)) {
            host.set_state(session.oid, change.state);
            --left;
        }
    }
}

void Site::run(simhost::Host& host, const Action& action) {
    std::visit(Overloaded{
                   [&](const NicDown& a) {
                       set_nic(a.ip, false);
                       host.nic_down(a.ip);
                   },
                   [&](const NicUp& a) {
                       set_nic(a.ip, true);
                       host.nic_up(a.ip);
                   },
                   [&](const ArrayDown& a) {
                       set_array(a.group, a.array, false);
                       host.array_down(a.group, a.array);
                   },
                   [&](const ArrayUp& a) {
                       set_array(a.group, a.array, true);
                       host.array_up(a.group, a.array);
                   },
                   [&](const AddArray& a) {
                       host.add_array(a.group, a.array);
                       arrays_[a.group].push_back({a.array.name, true, true});
                   },
                   [&](const SwitchMode& a) { host.switch_mode(a.group, a.mode); },
                   [&](const DropSessions& a) { host.drop_sessions(iqn_of(a.target), a.count); },
                   [&](const SetState& a) { set_states(host, a); },
                   [&](const AddSession& a) { add_sessions(host, a.session); },
                   [&](const FailLogins& a) { host.fail_logins(a.failing); },
                   [&](const LoginSeconds& a) { host.set_login_seconds(a.seconds); },
                   [&](const Digests& a) { host.set_digests(a.adapter, a.on); },
                   [&](const DiscoveryOutcome& a) { host.set_discovery_outcome(a.adapter, a.status); },
                   [&](const AddVolumes& a) {
                       for (const VolumeEntry& volume : a.volumes) {
                           add_volume(host, volume);
                       }
                   },
                   [&](const RemoveVolume& a) { host.remove_volume(a.name); },
                   [&](const WriteConfig& a) {
                       std::string text = host.read_file(CONFIG_FILE);
                       if (text.empty()) {
                           text = config_file_text({});
                       }
                       for (const auto& [key, value] : a.changes) {
                           text = with_config_value(text, key, value);
                           if (key == LOGS_PATH_KEY) {
                               host.write_file(value + "/.folder", "");
                           }
                       }
                       host.write_file(CONFIG_FILE, text);
                   },
                   [&](const WriteConfigLine& a) {
                       std::string text = host.read_file(CONFIG_FILE);
                       if (!text.empty() && text.back() != '\n') {
                           text += '\n';
                       }
                       host.write_file(CONFIG_FILE, text + a.line + "\n");
                   },
                   [&](const WriteConfigFile& a) { host.write_file(CONFIG_FILE, a.text); },
                   [&](const RemoveConfig&) { host.remove_file(CONFIG_FILE); },
                   [&](const InjectFault& a) { host.fail(a.fault); },
                   [&](const ClearFaults&) { host.clear_faults(); },
               },
               action);
}

void Site::schedule(simhost::Host& host, const ActionDone& done) {
    for (const TimedAction& timed : scenario_.actions) {
        schedule(host, timed, done);
    }
}

void Site::schedule(simhost::Host& host, const TimedAction& timed, const ActionDone& done) {
    host.at(timed.at_seconds, action_text(timed.action), [this, timed, done](simhost::Host& running) {
        std::string refusal;
        try {
            run(running, timed.action);
        } catch (const std::exception& exception) {
            refusal = exception.what();
        }
        done(timed, refusal);
    });
}

void Site::count_arrays(TargetRow& row, const std::string& volume) const {
    const auto place = volumes_.find(volume);
    const auto arrays = place == volumes_.end() ? arrays_.end() : arrays_.find(place->second.group);
    if (arrays == arrays_.end()) {
        return;
    }
    const simhost::VolumeSpec& spec = place->second;
    row.supported = spec.supported || spec.protocol_endpoint;
    for (const Array& array : arrays->second) {
        const bool member = spec.arrays.empty() || array.added ||
                            std::find(spec.arrays.begin(), spec.arrays.end(), array.name) != spec.arrays.end();
        row.total_arrays += member;
        row.arrays += member && array.up;
    }
}

// The row of a volume, or with an empty `device` that of a group-scoped target.
TargetRow Site::row_of(const simhost::Host& host, const simhost::TargetView& target, const std::string& device,
                       const std::vector<simhost::SessionView>& sessions, const ConfigValues& config) const {
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
        row.required = required_for_group_scoped_target(config, row.nics, row.arrays, row.total_arrays);
    } else {
        row.name = device;
        count_arrays(row, device);
        row.required = required_for_volume(config, row.nics, row.arrays);
    }
    for (const Address& address : addresses_) {
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
    std::vector<TargetRow> rows;
    for (const simhost::TargetView& target : host.targets()) {
        if (target.group_scoped) {
            rows.push_back(row_of(host, target, "", sessions[target.iqn], config));
            continue;
        }
        for (const std::string& device : target.devices) {
            rows.push_back(row_of(host, target, device, sessions[target.iqn], config));
        }
    }
    return rows;
}

int Site::paths(const simhost::Host& host) const {
    std::size_t count = 0;
    for (const simhost::TargetView& target : host.targets()) {
        for (const std::string& device : target.devices) {
            const auto volume = volumes_.find(device);
            if (volume == volumes_.end() || volume->second.supported || volume->second.protocol_endpoint) {
                count += host.paths(device).size();
            }
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

}  // namespace program
