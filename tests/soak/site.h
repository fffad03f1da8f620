// A host made by chance: a scenario, to which everything that happens is added.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "programs/ostrel-simhost/scenario.h"
#include "programs/ostrel-simhost/site.h"
#include "simhost/host.h"
#include "soak/dice.h"

namespace soak {

inline constexpr char DEEP_LOGS[] = "/var/log/ostrel/deep";

class Site {
public:
    explicit Site(Dice& dice);

    simhost::Host& host() const { return *host_; }
    const program::Scenario& scenario() const { return scenario_; }
    bool large() const { return large_; }
    bool has_deep_logs() const { return deep_logs_; }

    // What events are made of.
    std::vector<std::string> new_ones(Dice& dice, bool behind_group_scoped_target);
    std::vector<std::string> volumes() const;
    static std::string name_of(const simhost::TargetView& target);

    // Makes an event happen: the keys of an [[event]], without its moment.
    void happen(const std::string& event);
    // A line for the reader of the scenario: what was done through the library.
    void remark(const std::string& text);
    // The scenario up to this moment; `problem` tells why it can't be read again.
    std::string written(std::string& problem) const;

private:
    bool large_;
    bool deep_logs_;
    int next_volume_ = 0;
    std::string text_;
    program::Scenario scenario_;
    program::Site site_{scenario_};
    std::unique_ptr<simhost::Host> host_;

    std::string new_volume(Dice& dice, const std::string& group, const std::string& more);
    std::string new_device(Dice& dice, const std::string& group, const std::string& target);
    std::string describe_host(Dice& dice);
    std::string describe_volumes(Dice& dice);
    void read();
};

// As a text of TOML.
std::string quoted(std::string_view text);

// "name" and "data_ips" of an array of the group, which the host shows as many arrays of before.
std::string array_keys(std::string_view group, std::size_t number);

}  // namespace soak
