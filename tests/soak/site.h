// A host made by chance, and what of it the time line and the checks must know beyond what it shows.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "simhost/host.h"
#include "soak/dice.h"

namespace soak {

struct Adapter {
    std::string name;
    std::vector<std::string> nics;
};

struct Group {
    std::string name;
    int number = 0;
    int num_arrays = 0;  // a1, a2, ...
    simhost::GroupMode mode = simhost::GroupMode::dynamic_discovery;
};

struct Site {
    std::unique_ptr<simhost::Host> host;
    bool large = false;
    double login_seconds = 0;
    double discovery_seconds = 0;
    double claim_seconds = 0;
    std::vector<Adapter> adapters;
    std::vector<Group> groups;
    std::vector<std::string> volumes;  // their euis
    std::vector<std::string> unsupported;
    std::set<std::string> nics_down;
    std::set<std::pair<std::string, std::string>> arrays_down;  // group, array
    int next_volume = 0;
    int next_group_scoped_target = 0;

    std::vector<std::string> all_nics() const;
    Group& group(const std::string& name);
    bool arrays_up(const Group& of) const;  // all of them
};

Site make_site(Dice& dice);

// The parts of a site, made while it is built or later.
void add_group(Site& site, Dice& dice);
void add_array(Site& site, Group& group);
void add_group_scoped_target(Site& site, Dice& dice);
// Without sessions: the host logs in by itself. Returns the target's name.
std::string add_volume(Site& site, Dice& dice, const Group& group);

}  // namespace soak
