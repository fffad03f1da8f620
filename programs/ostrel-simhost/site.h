// Puts a scenario onto a simulated host and keeps what the host doesn't tell: the names a person gave.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "record.h"
#include "scenario.h"
#include "simhost/host.h"

namespace ostrel_simhost {

// Called after an action on the thread that ran it, with the host's lock held: what was done, and the host's
// refusal or an empty text.
using ActionDone = std::function<void(const TimedAction& action, const std::string& refusal)>;

class Site {
public:
    explicit Site(const Scenario& scenario) : scenario_(scenario) {}

    // Describes the site to the host, makes the first connections and writes the files. Throws
    // std::invalid_argument for what the host refuses.
    void build(simhost::Host& host);

    // Enters the time line, or one action more.
    void schedule(simhost::Host& host, const ActionDone& done);
    void schedule(simhost::Host& host, const TimedAction& timed, const ActionDone& done);

    // The rows of the table as the host stands. Call with the host's lock held, or when nothing runs.
    std::vector<TargetRow> rows(const simhost::Host& host, const ConfigValues& config) const;

    // What actions do; a target by the name that the scenario gave it, which throws when it isn't on the host.
    void add_volume(simhost::Host& host, const VolumeEntry& volume);
    void add_sessions(simhost::Host& host, const SessionEntry& entry);
    std::string iqn_of(const std::string& name) const;

private:
    void connect(simhost::Host& host, const std::string& iqn, int sessions) const;
    TargetRow row_of(const simhost::Host& host, const simhost::TargetView& target, const std::string& device,
                     const std::vector<simhost::SessionView>& sessions, const std::vector<Address>& addresses,
                     const ConfigValues& config) const;

    const Scenario& scenario_;
    std::map<std::string, std::string> iqns_;                // name to IQN
    std::map<std::string, std::string> group_scoped_names_;  // IQN to name
};

// A host as the scenario describes it, on the instant clock.
simhost::HostOptions host_options(const Scenario& scenario);

// All paths of the volumes that the path-selection plug-in reports as supported, standby ones too: the number that the
// connection manager compares with its limit.
int balanced_paths(const simhost::Host& host);

}  // namespace ostrel_simhost
