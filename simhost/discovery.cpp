// Discovery: what a rediscovery makes, and how lost sessions are tried again.
#include <algorithm>

#include "simhost/model.h"

namespace simhost {

// Whether the host may log in to one more session of the port's target by itself.
bool Host::Impl::room(const Port& port) const {
    if (sessions.size() >= MAX_SESSIONS) {
        return false;
    }
    std::size_t paths_to_come = port.target->devices.size();
    for (const auto& each : targets) {
        std::size_t count = 0;
        for (const auto& on : each->ports) {
            count += on->sessions.size();
        }
        paths_to_come += count * each->devices.size();
    }
    return paths_to_come <= MAX_PATHS;
}

void Host::Impl::rediscover(Adapter& on) {
    on.discovery_known_at = now() + options.discovery_seconds;
    emit({Event::Kind::adapter_rediscovered, now(), {}, on.name, {}});
    if (on.discovery_outcome != 2) {
        return;
    }
    for (Port* port : on.ports) {
        if (port->target->group->mode == GroupMode::static_discovery) {
            relogin(*port);
            continue;
        }
        make_discovered_entry(*port);
        for (const auto& nic : on.nics) {
            const bool there = std::any_of(port->sessions.begin(), port->sessions.end(), [&](const Session* each) {
                return each->made_dynamic && each->local_ip == nic->ip;
            });
            if (nic->up && !there && room(*port)) {
                make_session_on(*port, nic.get());
            }
        }
    }
}

void Host::Impl::arm_relogin(Port& port) {
    Timer timer;
    timer.kind = Timer::Kind::relogin;
    timer.id = port.id;
    timer.step = ++port.relogin_step;
    schedule(now() + RELOGIN_SECONDS, std::move(timer));
}

void Host::Impl::relogin(Port& port) {
    Adapter& on = *port.adapter;
    if (port.target->group->mode == GroupMode::dynamic_discovery) {
        if (port.sessions.empty()) {
            for (const auto& nic : on.nics) {
                if (nic->up && room(port)) {
                    make_session_on(port, nic.get());
                }
            }
        }
        return;
    }
    for (std::size_t i = 0; i < on.entries.size(); ++i) {
        const StaticEntry& entry = *on.entries[i];
        if (entry.port != &port || entry.discovered || entry.view.by_host_name || entry.view.port != ISCSI_PORT) {
            continue;
        }
        const Array* at = array_of(*port.target->group, entry.view.portal_ip);
        Nic* by = least_used_nic(port);
        if (at != nullptr && at->up && by != nullptr && !entry_in_use(entry) && room(port)) {
            begin_login(make_session(port, by->ip, false, entry.view.portal_ip));
        }
    }
}

void Host::Impl::nic_login(Adapter& on, Nic& nic) {
    if (!nic.up) {
        return;
    }
    for (Port* port : on.ports) {
        if (port->target->group->mode == GroupMode::static_discovery) {
            relogin(*port);
            continue;
        }
        const bool there = std::any_of(port->sessions.begin(), port->sessions.end(),
                                       [&](const Session* each) { return each->local_ip == nic.ip; });
        if (!there && room(*port)) {
            make_session_on(*port, &nic);
        }
    }
}

void Host::Impl::remove_entry(StaticEntry& entry, bool by_manager) {
    Adapter& on = *entry.adapter;
    Port* port = entry.port;
    std::vector<Session*> ending;
    if (port != nullptr && !entry.view.by_host_name && entry.view.port == ISCSI_PORT) {
        for (Session* each : port->sessions) {
            if (each->made_dynamic == entry.discovered &&
                (entry.discovered || each->first_remote_ip == entry.view.portal_ip)) {
                ending.push_back(each);
            }
        }
    }
    const StaticTargetView view = entry.view;
    const bool was_static = !entry.discovered;
    objects.erase(entry.oid);
    std::erase_if(on.entries, [&](const auto& each) { return each.get() == &entry; });
    emit({Event::Kind::static_target_removed, now(), view.target_iqn, on.name, view.portal_ip});
    if (port == nullptr) {
        return;
    }
    Target& of = *port->target;
    const bool was_logged_in = of.logged_in > 0;
    const bool mode_changed = of.mode_changed || of.group->mode == GroupMode::dynamic_discovery;
    std::string local_ip;
    for (Session* each : ending) {
        if (by_manager && was_static) {
            removing_static(of, mode_changed, isid_text(each->isid), true);
        }
        local_ip = each->local_ip;
        end_session(*each, Event::Kind::session_lost, "static target removed");
    }
    refresh_port(*port);
    if (by_manager && was_logged_in && of.logged_in == 0) {
        after_removal(of, port, local_ip, "IMA_RemoveStaticDiscoveryTarget of portal " + view.portal_ip);
    }
}

}  // namespace simhost
