// A simulated host behind the CIM server, for tests with WBEM clients: prints where it is, then makes happen what
// the lines of its standard input say, each answered by "done", and ends with them.
//
//   login fail | ok                 sessions to come: stay in login, or log in
//   digests on | off                what the adapters give to sessions to come
//   state EUI                       the volume's first session is no longer logged in
//   drop EUI                        the volume keeps its first session only
//   fail OPERATION STATUS           every call of an operation from now on
//   heal                            none fails any more
//   count EUI                       answers "done SESSIONS DIGESTS", the volume's sessions and those with digests
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <sstream>
#include <string>

#include "cimserver/server.h"
#include "simhost/host.h"

namespace {

// 4 volumes: "ok" over two NICs, "single" and "down" to be spoilt, "one-nic"
// with two sessions over one address.
void build(simhost::Host& host) {
    host.write_file("/etc/ostrel/oxdversion.txt", "2.0.1\n");
    host.write_file("/etc/ostrel/pspversion.txt", "1.4.0\n");
    host.add_adapter("vmhba64", {"10.0.1.1", "10.0.1.2"});
    simhost::GroupSpec group;
    group.name = "g";
    group.discovery_ip = "10.0.9.100";
    group.arrays = {{"a1", {"10.0.9.1"}}, {"a2", {"10.0.9.2"}}};
    host.add_group(group);
    const auto add = [&](const std::string& eui, int sessions) {
        simhost::VolumeSpec volume;
        volume.eui = eui;
        volume.iqn = "iqn.2012-07.com.ostrel:" + eui;
        volume.group = "g";
        host.add_volume(volume);
        host.connect(volume.iqn, sessions);
        return volume.iqn;
    };
    add("ok", 4);
    add("down", 4);
    add("single", 4);
    simhost::SessionView session;
    session.target_iqn = add("one-nic", 0);
    session.adapter = "vmhba64";
    session.local_ip = "10.0.1.1";
    for (const char* const array : {"10.0.9.1", "10.0.9.2"}) {
        session.current_remote_ip = array;
        session.first_remote_ip = group.discovery_ip;
        session.isid.clear();
        (void)host.add_session(session);
    }
    host.claim_paths();
}

std::string act(simhost::Host& host, const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    std::string what;
    words >> verb >> what;
    if (verb == "login") {
        host.fail_logins(what == "fail");
    } else if (verb == "digests") {
        host.set_digests("vmhba64", what == "on");
    } else if (verb == "state") {
        host.set_state(host.sessions(host.iqn_of(what)).front().oid, simhost::IN_LOGIN);
    } else if (verb == "drop") {
        const std::string iqn = host.iqn_of(what);
        host.drop_sessions(iqn, static_cast<int>(host.sessions(iqn).size()) - 1);
    } else if (verb == "fail") {
        simhost::Fault fault;
        fault.operation = what;
        fault.persistent = true;
        words >> fault.status;
        host.fail(fault);
    } else if (verb == "heal") {
        host.clear_faults();
    } else if (verb == "count") {
        const auto sessions = host.sessions(host.iqn_of(what));
        const auto digests = std::count_if(sessions.begin(), sessions.end(), [](const simhost::SessionView& session) {
            return session.header_digest && session.data_digest;
        });
        return "done " + std::to_string(sessions.size()) + " " + std::to_string(digests);
    } else {
        return "what?";
    }
    return "done";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: cim_host LIBRARY FACTOR\n";
        return 2;
    }
    simhost::HostOptions options;
    options.clock = simhost::ClockMode::scaled;
    options.factor = std::stod(argv[2]);
    simhost::Host host(options);
    build(host);
    cimserver::ServerOptions server_options;
    server_options.port = 0;
    server_options.library_path = argv[1];
    cimserver::Server server(server_options);
    if (std::string error; !server.start(error)) {
        std::cerr << "cim_host: " << error << '\n';
        return 1;
    }
    std::cout << server.port() << ' ' << host.root() << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << act(host, line) << std::endl;
    }
    server.stop();
    for (const std::string& violation : host.violations()) {
        std::cerr << "cim_host: " << violation << '\n';
    }
    return host.violations().empty() ? 0 : 1;
}
