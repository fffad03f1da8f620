#include "support/site.h"

#include <algorithm>

#include "OstrelConnections/polling_pass.h"
#include "OstrelProvider/log_level.h"
#include "oxd_ima_utility/oid_cache.h"

namespace testing_support {

using simhost::Host;

std::unique_ptr<Host> make_host(simhost::HostOptions options) {
    auto host = std::make_unique<Host>(std::move(options));
    log_level = 1;
    refresh_target_oids_table();
    host->write_file("/var/log/ostrel/oxr.log", "");
    host->write_file("/etc/ostrel/oxdversion.txt", "3.5.0\n");
    host->write_file("/etc/ostrel/pspversion.txt", "1.7.2\n");
    return host;
}

std::unique_ptr<Host> make_site(int num_arrays, simhost::GroupMode mode, simhost::HostOptions options) {
    auto host = make_host(std::move(options));
    host->add_adapter("vmhba64", {"10.0.1.1", "10.0.1.2"});
    host->add_adapter("vmhba65", {"10.0.2.1", "10.0.2.2"});
    simhost::GroupSpec group;
    group.name = "g";
    group.mode = mode;
    group.discovery_ip = "10.0.9.100";
    for (int a = 1; a <= num_arrays; ++a) {
        group.arrays.push_back({"a" + std::to_string(a), {"10.0.9." + std::to_string(a)}});
    }
    host->add_group(group);
    return host;
}

std::string add_volume(Host& host, const std::string& eui, int connections, const std::vector<std::string>& adapters,
                       const std::string& group, const std::string& group_scoped_target) {
    simhost::VolumeSpec volume;
    volume.eui = eui;
    volume.group = group;
    volume.adapters = adapters;
    volume.group_scoped_target = group_scoped_target;
    volume.protocol_endpoint = !group_scoped_target.empty();
    host.add_volume(volume);
    if (connections >= 0) {
        host.connect(host.iqn_of(eui), connections);
    }
    return host.iqn_of(eui);
}

std::vector<std::string> add_volumes(Host& host, int count, int connections) {
    std::vector<std::string> iqns;
    for (int v = 0; v < count; ++v) {
        iqns.push_back(add_volume(host, "vol-" + std::to_string(v), connections > 0 ? connections : -1));
    }
    return iqns;
}

void add_target(Host& host, const std::string& iqn, const std::vector<std::string>& active_arrays, int connections,
                int volumes) {
    host.add_group_scoped_target({iqn, "g", active_arrays, {}});
    for (int v = 0; v < volumes; ++v) {
        add_volume(host, "pe-" + std::to_string(v) + iqn.substr(iqn.rfind('.')), -1, {}, "g", iqn);
    }
    host.connect(iqn, connections);
}

std::unique_ptr<simhost::Host> make_unbalanced_site(simhost::GroupMode now) {
    auto host = make_site(2);
    add_volume(*host, "vol-0", 4);
    add_volume(*host, "vol-1", 11);
    add_target(*host, "iqn.gst", {"a1"}, 4);
    const bool to_dynamic = now == simhost::GroupMode::dynamic_discovery;
    host->add_group({"m",
                     to_dynamic ? simhost::GroupMode::static_discovery : simhost::GroupMode::dynamic_discovery,
                     "10.0.8.100",
                     {{"m1", {"10.0.8.1"}}, {"m2", {"10.0.8.2"}}}});
    add_volume(*host, "switched", to_dynamic ? 0 : 8, {}, "m");
    host->switch_mode("m", now);
    return host;
}

int run_pass(const ConfigValues& values) {
    return handle_ostrel_connections(values);
}

int count_sessions(const Host& host, const std::string& iqn) {
    return static_cast<int>(host.sessions(iqn).size());
}

int count_dynamic(const Host& host, const std::string& iqn) {
    const auto sessions = host.sessions(iqn);
    return static_cast<int>(
        std::count_if(sessions.begin(), sessions.end(), [](const simhost::SessionView& s) { return s.made_dynamic; }));
}

int count_static(const Host& host, const std::string& iqn) {
    return count_sessions(host, iqn) - count_dynamic(host, iqn);
}

std::vector<std::string> bare_adapters(const Host& host, const simhost::TargetView& target) {
    std::vector<std::string> bare = target.adapters;
    for (const simhost::SessionView& session : host.sessions(target.iqn)) {
        std::erase(bare, session.adapter);
    }
    return bare;
}

}  // namespace testing_support
