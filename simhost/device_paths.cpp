// Paths as the PSP knows them. A session carries one for each device of its target below its `claimed_luns`,
// so nothing is kept per path.
#include <fmt/format.h>

#include <algorithm>

#include "simhost/model.h"

namespace simhost {

std::string path_name(const Port& port, int channel, int lun) {
    return fmt::format("{}:C{}:T{}:L{}", port.adapter->name, channel, port.number, lun);
}

namespace {

int devices_below(const Target& of, int luns) {
    if (luns >= of.next_lun) {
        return static_cast<int>(of.devices.size());
    }
    return static_cast<int>(
        std::count_if(of.devices.begin(), of.devices.end(), [&](const Device* each) { return each->lun < luns; }));
}

}  // namespace

void Host::Impl::claim(Session& of) {
    const Target& to = *of.port->target;
    if (of.state != LOGGED_IN || of.claimed_luns == to.next_lun) {
        return;
    }
    const int before = of.claimed_luns;
    of.claimed_luns = to.next_lun;
    if (observers.empty()) {
        return;
    }
    const Port& port = *of.port;
    for (const Device* each : to.devices) {
        if (each->lun >= before) {
            emit(Event::Kind::path_claimed, &port, path_name(port, of.channel, each->lun));
        }
    }
}

void Host::Impl::bury(Session& of) {
    Port& port = *of.port;
    if (of.claimed_luns == 0) {
        return;
    }
    port.dead.push_back({of.channel, of.claimed_luns, of.local_ip, of.current_remote_ip});
    if (observers.empty()) {
        return;
    }
    const DeadPaths dead = port.dead.back();
    for (const Device* each : port.target->devices) {
        if (each->lun < dead.claimed_luns) {
            emit(Event::Kind::path_died, &port, path_name(port, dead.channel, each->lun));
        }
    }
}

void Host::Impl::delete_dead_paths(Adapter& on) {
    for (Port* port : on.ports) {
        const std::vector<DeadPaths> dead = std::move(port->dead);
        port->dead.clear();
        if (observers.empty()) {
            continue;
        }
        for (const DeadPaths& paths : dead) {
            for (const Device* each : port->target->devices) {
                if (each->lun < paths.claimed_luns) {
                    emit(Event::Kind::dead_path_deleted, port, path_name(*port, paths.channel, each->lun));
                }
            }
        }
    }
}

// Whether the session's paths are active ones: behind a group-scoped target only those to the arrays that serve
// it actively.
bool Host::Impl::active(const Session& of) const {
    const Target& to = *of.port->target;
    if (!to.group_scoped) {
        return true;
    }
    return of.array != nullptr && of.array->up &&
           (to.all_arrays_active || std::find(to.active.begin(), to.active.end(), of.array) != to.active.end());
}

PathCounts Host::Impl::count(const Device& of) const {
    PathCounts counts;
    for (const auto& port : of.target->ports) {
        for (const Session* each : port->sessions) {
            if (of.lun < each->claimed_luns) {
                ++(active(*each) ? counts.active : counts.standby);
            }
        }
        for (const DeadPaths& each : port->dead) {
            counts.dead += of.lun < each.claimed_luns ? 1 : 0;
        }
    }
    return counts;
}

PathCounts Host::Impl::count(const Target& of) const {
    PathCounts counts;
    for (const auto& port : of.ports) {
        for (const Session* each : port->sessions) {
            (active(*each) ? counts.active : counts.standby) += devices_below(of, each->claimed_luns);
        }
        for (const DeadPaths& each : port->dead) {
            counts.dead += devices_below(of, each.claimed_luns);
        }
    }
    return counts;
}

std::vector<PathView> Host::Impl::paths(const Device& of) const {
    std::vector<PathView> found;
    for (const auto& port : of.target->ports) {
        for (const Session* each : port->sessions) {
            if (of.lun < each->claimed_luns) {
                found.push_back({of.eui, path_name(*port, each->channel, of.lun), port->adapter->name, each->local_ip,
                                 each->current_remote_ip, active(*each)});
            }
        }
    }
    for (const auto& port : of.target->ports) {
        for (const DeadPaths& each : port->dead) {
            if (of.lun < each.claimed_luns) {
                found.push_back({of.eui, path_name(*port, each.channel, of.lun), port->adapter->name, each.local_ip,
                                 each.remote_ip, false});
            }
        }
    }
    return found;
}

}  // namespace simhost
