#include "soak/site.h"

#include <algorithm>

#include "support/site.h"

namespace soak {

using simhost::GroupMode;

namespace {

std::string array_name(int number) {
    return "a" + std::to_string(number);
}

simhost::ArraySpec array_spec(const Group& of, int number) {
    const std::string prefix = "10.9." + std::to_string(of.number) + ".";
    simhost::ArraySpec spec{array_name(number), {prefix + std::to_string(number)}};
    if (number % 3 == 0) {
        spec.data_ips.push_back(prefix + std::to_string(100 + number));
    }
    return spec;
}

std::vector<std::string> some_adapters(const Site& site, Dice& dice) {
    std::vector<std::string> some;
    if (dice.one_in(4)) {
        for (const Adapter& each : site.adapters) {
            if (dice.one_in(2)) {
                some.push_back(each.name);
            }
        }
    }
    return some;  // empty: all
}

std::vector<std::string> some_arrays(const Group& group, Dice& dice) {
    std::vector<std::string> some;
    if (dice.one_in(3)) {
        for (int a = 1; a <= group.num_arrays; ++a) {
            if (dice.one_in(2)) {
                some.push_back(array_name(a));
            }
        }
    }
    return some;  // empty: all
}

void add_adapters(Site& site, Dice& dice) {
    const int adapters = dice.any(1, 4);
    for (int a = 0; a < adapters; ++a) {
        Adapter adapter{"vmhba" + std::to_string(64 + a), {}};
        for (int n = dice.one_in(6) ? 3 : dice.any(1, 2); n > 0; --n) {
            adapter.nics.push_back("10." + std::to_string(a) + ".1." + std::to_string(n));
        }
        site.host->add_adapter(adapter.name, adapter.nics);
        site.adapters.push_back(std::move(adapter));
    }
}

simhost::HostOptions make_options(Dice& dice) {
    simhost::HostOptions options;
    options.login_seconds = dice.one_in(3) ? 0 : dice.seconds(8);
    options.discovery_seconds = options.login_seconds + (dice.one_in(2) ? 0 : 1);
    const std::vector<double> claims{0, 5, 30, 45};
    options.claim_seconds = dice.pick(claims);
    return options;
}

// A static group's target gets a session to each portal; another one a session over each NIC, and often more.
void connect(Site& site, Dice& dice, const std::string& iqn, int most) {
    const simhost::TargetView target = site.host->target(iqn);
    const bool is_static = target.mode == GroupMode::static_discovery;
    site.host->connect(iqn, is_static ? 0 : dice.any(std::min(target.nics, most), most));
    // Now and then one that an administrator made by hand.
    if (!is_static && dice.one_in(8)) {
        simhost::SessionView made;
        made.target_iqn = iqn;
        made.made_dynamic = false;
        site.host->add_session(made);
        site.host->claim_paths();
    }
}

}  // namespace

std::vector<std::string> Site::all_nics() const {
    std::vector<std::string> all;
    for (const Adapter& each : adapters) {
        all.insert(all.end(), each.nics.begin(), each.nics.end());
    }
    return all;
}

Group& Site::group(const std::string& name) {
    return *std::find_if(groups.begin(), groups.end(), [&](const Group& each) { return each.name == name; });
}

bool Site::arrays_up(const Group& of) const {
    return std::none_of(arrays_down.begin(), arrays_down.end(),
                        [&](const auto& each) { return each.first == of.name; });
}

void add_group(Site& site, Dice& dice) {
    Group group;
    group.number = static_cast<int>(site.groups.size());
    group.name = "g" + std::to_string(group.number);
    group.mode = dice.one_in(4) ? GroupMode::static_discovery : GroupMode::dynamic_discovery;
    group.num_arrays = dice.any(1, 3);
    simhost::GroupSpec spec{group.name, group.mode, "10.9." + std::to_string(group.number) + ".200", {}};
    for (int a = 1; a <= group.num_arrays; ++a) {
        spec.arrays.push_back(array_spec(group, a));
    }
    site.host->add_group(spec);
    site.groups.push_back(std::move(group));
}

void add_array(Site& site, Group& group) {
    site.host->add_array(group.name, array_spec(group, ++group.num_arrays));
}

void add_group_scoped_target(Site& site, Dice& dice) {
    const Group& group = dice.pick(site.groups);
    const std::string iqn = "iqn.gst" + std::to_string(site.next_group_scoped_target++);
    site.host->add_group_scoped_target({iqn, group.name, some_arrays(group, dice), some_adapters(site, dice)});
    // A switch to static discovery gets stuck when several of a target's devices report it: seldom more than one.
    for (int devices = dice.one_in(4) ? dice.any(2, 3) : dice.any(0, 1); devices > 0; --devices) {
        simhost::VolumeSpec device;
        device.eui = "pe" + std::to_string(site.next_volume++);
        device.group = group.name;
        device.group_scoped_target = iqn;
        device.protocol_endpoint = dice.one_in(2);
        site.host->add_volume(device);
        site.volumes.push_back(device.eui);
    }
}

std::string add_volume(Site& site, Dice& dice, const Group& group) {
    simhost::VolumeSpec volume;
    volume.eui = "vol" + std::to_string(site.next_volume++);
    volume.group = group.name;
    volume.arrays = some_arrays(group, dice);
    volume.adapters = some_adapters(site, dice);
    volume.supported = !dice.one_in(12);
    site.host->add_volume(volume);
    site.volumes.push_back(volume.eui);
    if (!volume.supported) {
        site.unsupported.push_back(volume.eui);
    }
    return site.host->iqn_of(volume.eui);
}

Site make_site(Dice& dice) {
    Site site;
    const simhost::HostOptions options = make_options(dice);
    site.login_seconds = options.login_seconds;
    site.discovery_seconds = options.discovery_seconds;
    site.claim_seconds = options.claim_seconds;
    site.host = testing_support::make_host(options);
    site.large = dice.one_in(30);
    add_adapters(site, dice);
    for (int groups = dice.any(1, 4); groups > 0; --groups) {
        add_group(site, dice);
    }
    for (int targets = dice.any(0, 2); targets > 0; --targets) {
        add_group_scoped_target(site, dice);
    }
    const int volumes = site.large ? dice.any(170, 240) : dice.any(1, 10);
    for (int v = 0; v < volumes; ++v) {
        const Group& group = dice.pick(site.groups);
        const std::string iqn = add_volume(site, dice, group);
        const int room = 1900 - site.host->totals().sessions;
        if (room > 0) {
            connect(site, dice, iqn, std::min(room, site.large ? 8 : 12));
        }
    }
    for (const simhost::TargetView& each : site.host->targets()) {
        if (each.group_scoped) {
            connect(site, dice, each.iqn, 12);
        }
    }
    return site;
}

}  // namespace soak
