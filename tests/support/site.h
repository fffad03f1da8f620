// Hosts for tests, built in a few lines, and the acts that many tests share.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OstrelProvider/config.h"
#include "simhost/host.h"

namespace testing_support {

// A host with the folders that a running service has, on the instant clock; the log's level is the service's default.
std::unique_ptr<simhost::Host> make_host(simhost::HostOptions options = {});

// Two adapters (vmhba64, vmhba65), each with two NICs, and the group "g" of `num_arrays` arrays (a1, a2, ...)
// with one data address each.
std::unique_ptr<simhost::Host> make_site(int num_arrays = 1,
                                         simhost::GroupMode mode = simhost::GroupMode::dynamic_discovery,
                                         simhost::HostOptions options = {});

// Adds a volume with sessions (none are made when `connections` is below 0; 0 makes those of a static group), behind a
// group-scoped target when one is named; returns its IQN.
std::string add_volume(simhost::Host& host, const std::string& eui, int connections,
                       const std::vector<std::string>& adapters = {}, const std::string& group = "g",
                       const std::string& group_scoped_target = "");

// Adds a group-scoped target of the group "g" with sessions and volumes.
void add_target(simhost::Host& host, const std::string& iqn, const std::vector<std::string>& active_arrays,
                int connections, int volumes = 1);

// Adds `count` volumes vol-0, vol-1, ... of the group "g", each with `connections` sessions; returns their IQNs.
std::vector<std::string> add_volumes(simhost::Host& host, int count, int connections);

// A site that calls for every kind of change: of the two-array group "g" vol-0 lacks sessions, vol-1 has too many and
// the group-scoped target "iqn.gst" lacks some; the volume "switched" of the group "m" was switched to `now`.
std::unique_ptr<simhost::Host> make_unbalanced_site(simhost::GroupMode now);

// One polling pass with these values; the result of the pass.
int run_pass(const ConfigValues& values = {});

// Sessions of a target in this state of this kind of first and current address.
int count_sessions(const simhost::Host& host, const std::string& iqn);
int count_dynamic(const simhost::Host& host, const std::string& iqn);
int count_static(const simhost::Host& host, const std::string& iqn);

// The target's adapters that have no session of it.
std::vector<std::string> bare_adapters(const simhost::Host& host, const simhost::TargetView& target);

}  // namespace testing_support
