#include "support/site.h"

#include <algorithm>

#include "OstrelConnections/polling_pass.h"
#include "OstrelProvider/log.h"

namespace testing_support {

using simhost::Host;

std::unique_ptr<Host> make_host(simhost::HostOptions options) {
    auto host = std::make_unique<Host>(std::move(options));
    log_level = 1;
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

std::vector<std::string> add_volumes(Host& host, int count, int connections) {
    std::vector<std::string> iqns;
    for (int v = 0; v < count; ++v) {
        simhost::VolumeSpec volume;
        volume.eui = "vol-" + std::to_string(v);
        volume.group = "g";
        host.add_volume(volume);
        iqns.push_back(host.iqn_of(volume.eui));
        if (connections > 0) {
            host.connect(iqns.back(), connections);
        }
    }
    return iqns;
}

std::unique_ptr<Host> make_unbalanced_site(simhost::GroupMode now) {
    auto host = make_site(2);
    const auto iqns = add_volumes(*host, 2, 0);
    host->connect(iqns[0], 4);
    host->connect(iqns[1], 11);
    host->add_group_scoped_target({"iqn.gst", "g", {"a1"}, {}});
    simhost::VolumeSpec volume;
    volume.eui = "pe";
    volume.group = "g";
    volume.group_scoped_target = "iqn.gst";
    host->add_volume(volume);
    host->connect("iqn.gst", 4);
    const bool to_dynamic = now == simhost::GroupMode::dynamic_discovery;
    host->add_group({"m",
                     to_dynamic ? simhost::GroupMode::static_discovery : simhost::GroupMode::dynamic_discovery,
                     "10.0.8.100",
                     {{"m1", {"10.0.8.1"}}, {"m2", {"10.0.8.2"}}}});
    volume = {};
    volume.eui = "switched";
    volume.group = "m";
    host->add_volume(volume);
    host->connect(host->iqn_of("switched"), to_dynamic ? 0 : 8);
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

}  // namespace testing_support
