// A host made by chance: a scenario, to which everything that happens is added.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "programs/ostrel-simhost/scenario.h"
#include "programs/ostrel-simhost/site.h"
#include "simhost/host.h"
#include "soak/dice.h"

namespace soak {

inline constexpr char DEEP_LOGS[] = "/var/log/ostrel/deep";

using Tally = std::map<std::string, std::uint64_t>;

class RandomSite {
public:
    explicit RandomSite(std::uint64_t seed);

    Dice dice;
    Tally counts;  // of all that was done and found
    const bool large;
    const bool has_deep_logs;

    simhost::Host& host() const { return *host_; }
    const ostrel_simhost::Scenario& scenario() const { return scenario_; }
    std::vector<ostrel_simhost::TargetRow> rows(const ConfigValues& values) const { return site_.rows(*host_, values); }

    // What events are made of: the table of a new volume, or of a device behind a group-scoped target; none when there
    // is no room.
    std::vector<std::string> new_volume();
    std::vector<std::string> new_device();

    // Makes an event happen: the keys of an [[event]], without its moment.
    void happen(const std::string& event);
    // A line for the reader of the scenario: what was done through the library.
    void remark(const std::string& text);
    // The scenario up to this moment, but for how long it runs.
    const std::string& text() const { return text_; }

private:
    int next_volume_ = 0;
    std::string text_;
    ostrel_simhost::Scenario scenario_;
    ostrel_simhost::Site site_{scenario_};
    std::unique_ptr<simhost::Host> host_;

    bool is_full() const { return next_volume_ >= static_cast<int>(ostrel_simhost::MOST_VOLUMES); }
    std::string volume_of(const simhost::GroupSpec& group, const std::string& more);
    std::string device_of(const std::string& group, const std::string& target);
    std::string describe_host();
    std::string describe_volumes();
    void read();
};

// "name" and "data_ips" of an array of the group, which has as many arrays then.
std::string array_keys(std::string_view group, std::size_t number);

}  // namespace soak
