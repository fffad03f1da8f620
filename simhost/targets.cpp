// Targets as the adapters see them, and the adapters' lists of static targets.
#include <algorithm>

#include "OstrelConnections/psp/psp_records.h"
#include "simhost/model.h"

#include <fmt/format.h>

#include <stdexcept>

namespace simhost {

Target& Host::Impl::make_target(const std::string& iqn, Group& in, const std::vector<std::string>& on) {
    if (iqn.empty() || iqn.size() >= IMA_NODE_NAME_CHARACTERS) {
        throw std::invalid_argument(fmt::format("simhost: target name empty or longer than 223 characters: '{}'", iqn));
    }
    std::vector<Adapter*> seen_by;
    for (const std::string& name : on) {
        seen_by.push_back(&adapter(name));
    }
    auto made = std::make_unique<Target>();
    made->iqn = iqn;
    made->group = &in;
    made->all_adapters = on.empty();
    in.targets.push_back(made.get());
    targets_by_iqn[iqn] = made.get();
    targets.push_back(std::move(made));
    Target& of = *targets.back();
    if (of.all_adapters) {
        for (const auto& each : adapters) {
            make_port(of, *each);
        }
    }
    for (Adapter* each : seen_by) {
        make_port(of, *each);
    }
    return of;
}

Port& Host::Impl::make_port(Target& of, Adapter& on) {
    auto made = std::make_unique<Port>();
    made->target = &of;
    made->adapter = &on;
    made->id = next_number++;
    made->number = on.ports.empty() ? 0 : on.ports.back()->number + 1;
    Port& port = *made;
    on.ports.push_back(&port);
    ports_by_id[port.id] = &port;
    of.ports.push_back(std::move(made));
    if (of.group->mode == GroupMode::dynamic_discovery) {
        make_discovered_entry(port);
    }
    for (const auto& entry : on.entries) {
        if (entry->port == nullptr && entry->view.target_iqn == of.iqn) {
            entry->port = &port;
        }
    }
    refresh_port(port);
    if (started) {
        arm_relogin(port);
    }
    return port;
}

Port* Host::Impl::port_of(const Target& of, const Adapter& on) const {
    for (const auto& port : of.ports) {
        if (port->adapter == &on) {
            return port.get();
        }
    }
    return nullptr;
}

// In a dynamic group an adapter knows each of its targets always; in a static one while an entry names it or a
// session runs to it.
void Host::Impl::refresh_port(Port& port) {
    bool known = port.target->group->mode == GroupMode::dynamic_discovery || !port.sessions.empty();
    for (std::size_t i = 0; !known && i < port.adapter->entries.size(); ++i) {
        known = port.adapter->entries[i]->port == &port;
    }
    if (known && port.oid == 0) {
        port.oid = add_object(IMA_OBJECT_TYPE_TARGET, &port);
    } else if (!known && port.oid != 0) {
        objects.erase(port.oid);
        port.oid = 0;
    }
}

StaticEntry& Host::Impl::make_entry(Adapter& on, const StaticTargetView& view, bool discovered) {
    auto made = std::make_unique<StaticEntry>();
    made->view = view;
    made->view.adapter = on.name;
    made->adapter = &on;
    made->discovered = discovered;
    made->oid = add_object(IMA_OBJECT_TYPE_STATIC_DISCOVERY_TARGET, made.get());
    const auto found = targets_by_iqn.find(view.target_iqn);
    made->port = found == targets_by_iqn.end() ? nullptr : port_of(*found->second, on);
    on.entries.push_back(std::move(made));
    return *on.entries.back();
}

// What the administrator's mode script configures: one entry for each data address of the member arrays.
void Host::Impl::make_static_entries(Port& port) {
    for (const Array* each : members(*port.target)) {
        for (const std::string& ip : each->data_ips) {
            const auto& entries = port.adapter->entries;
            const bool there = std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
                return entry->port == &port && !entry->discovered && entry->view.portal_ip == ip;
            });
            if (!there) {
                make_entry(*port.adapter, {port.target->iqn, port.adapter->name, ip}, false);
            }
        }
    }
    refresh_port(port);
}

void Host::Impl::make_discovered_entry(Port& port) {
    if (discovered_entry(port) == nullptr) {
        StaticEntry& made =
            make_entry(*port.adapter, {port.target->iqn, port.adapter->name, port.target->group->discovery_ip}, true);
        made.port = &port;
    }
}

StaticEntry* Host::Impl::discovered_entry(const Port& port) const {
    for (const auto& entry : port.adapter->entries) {
        if (entry->port == &port && entry->discovered) {
            return entry.get();
        }
    }
    return nullptr;
}

bool Host::Impl::entry_in_use(const StaticEntry& entry) const {
    if (entry.view.by_host_name || entry.view.port != ISCSI_PORT) {
        return false;
    }
    return std::any_of(entry.port->sessions.begin(), entry.port->sessions.end(), [&](const Session* each) {
        return each->made_dynamic == entry.discovered &&
               (entry.discovered || each->first_remote_ip == entry.view.portal_ip);
    });
}

void Host::Impl::refresh_mode_changed(Target& of) {
    if (!of.mode_changed) {
        return;
    }
    const bool now_dynamic = of.group->mode == GroupMode::dynamic_discovery;
    of.mode_changed = std::any_of(of.ports.begin(), of.ports.end(), [&](const auto& port) {
        return std::any_of(port->sessions.begin(), port->sessions.end(),
                           [&](const Session* each) { return each->made_dynamic != now_dynamic; });
    });
}

// An adapter falls out of the PSP's sight when it has no NIC up, no session and no path left.
bool Host::Impl::listed(const Port& port) const {
    if (port.oid == 0) {
        return !port.dead.empty();
    }
    return !port.sessions.empty() || !port.dead.empty() ||
           std::any_of(port.adapter->nics.begin(), port.adapter->nics.end(), [](const auto& nic) { return nic->up; });
}

std::vector<Array*> Host::Impl::members(const Target& of) const {
    std::vector<Array*> found;
    for (const auto& each : of.group->arrays) {
        const bool member =
            of.group_scoped || std::any_of(of.devices.begin(), of.devices.end(), [&](const Device* on) {
                return std::find(on->members.begin(), on->members.end(), each.get()) != on->members.end();
            });
        if (member) {
            found.push_back(each.get());
        }
    }
    return found;
}

// Arrays up behind it; of a group-scoped target those that serve it actively.
int Host::Impl::arrays_up(const Target& of) const {
    int up = 0;
    if (of.group_scoped && !of.all_arrays_active) {
        for (const Array* each : of.active) {
            up += each->up ? 1 : 0;
        }
        return up;
    }
    for (const Array* each : members(of)) {
        up += each->up ? 1 : 0;
    }
    return up;
}

}  // namespace simhost
