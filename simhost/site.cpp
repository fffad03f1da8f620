// Describing the site: adapters, groups, volumes, targets.
#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "OstrelConnections/psp/psp_records.h"
#include "simhost/model.h"

namespace simhost {

namespace {

[[noreturn]] void refuse(std::string_view what, std::string_view name) {
    throw std::invalid_argument(fmt::format("simhost: {}: '{}'", what, name));
}

template <typename Item>
Item* by_name(const std::vector<std::unique_ptr<Item>>& items, std::string_view name) {
    for (const auto& item : items) {
        if (item->name == name) {
            return item.get();
        }
    }
    return nullptr;
}

void check_address(const std::string& ip) {
    if (!is_ipv4(ip)) {
        refuse("not an IPv4 address", ip);
    }
}

}  // namespace

bool is_ipv4(const std::string& text) {
    in_addr address{};
    return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

Adapter& Host::Impl::adapter(const std::string& name) {
    Adapter* found = by_name(adapters, name);
    return found != nullptr ? *found : (refuse("no such adapter", name), *found);
}

Group& Host::Impl::group(const std::string& name) {
    Group* found = by_name(groups, name);
    return found != nullptr ? *found : (refuse("no such group", name), *found);
}

Array& Host::Impl::array(Group& in, const std::string& name) {
    Array* found = by_name(in.arrays, name);
    return found != nullptr ? *found : (refuse("no such array", name), *found);
}

Target& Host::Impl::target(const std::string& iqn) {
    const auto found = targets_by_iqn.find(iqn);
    if (found == targets_by_iqn.end()) {
        refuse("no such target", iqn);
    }
    return *found->second;
}

Device& Host::Impl::device(const std::string& eui) {
    for (const auto& item : devices) {
        if (item->eui == eui) {
            return *item;
        }
    }
    refuse("no such volume", eui);
}

Session& Host::Impl::session(std::uint64_t oid) {
    const auto found = sessions.find(oid);
    if (found == sessions.end()) {
        refuse("no such session", std::to_string(oid));
    }
    return *found->second;
}

Nic& Host::Impl::nic(const std::string& ip, Adapter** of) {
    for (const auto& on : adapters) {
        for (const auto& item : on->nics) {
            if (item->ip == ip) {
                if (of != nullptr) {
                    *of = on.get();
                }
                return *item;
            }
        }
    }
    refuse("no such NIC", ip);
}

std::uint64_t Host::Impl::add_object(std::uint32_t type, void* object) {
    const std::uint64_t number = next_number++;
    objects[number] = {type, object};
    return number;
}

void Host::add_adapter(const std::string& name, const std::vector<std::string>& nic_ips) {
    const Called model(*impl_);
    if (name.empty() || name.size() > OSTREL_ADAPTER_NAME_SIZE || by_name(model->adapters, name) != nullptr) {
        refuse("adapter name empty, longer than 12 characters or taken", name);
    }
    for (const std::string& ip : nic_ips) {
        check_address(ip);
        for (const auto& other : model->adapters) {
            for (const auto& item : other->nics) {
                if (item->ip == ip) {
                    refuse("address taken", ip);
                }
            }
        }
    }
    auto made = std::make_unique<Adapter>();
    made->name = name;
    made->physical_oid = model->add_object(IMA_OBJECT_TYPE_PHBA, made.get());
    made->logical_oid = model->add_object(IMA_OBJECT_TYPE_LHBA, made.get());
    for (const std::string& ip : nic_ips) {
        auto card = std::make_unique<Nic>();
        card->ip = ip;
        card->oid = model->add_object(IMA_OBJECT_TYPE_PNP, card.get());
        made->nics.push_back(std::move(card));
    }
    model->adapters.push_back(std::move(made));
    for (const auto& each : model->targets) {
        if (each->all_adapters) {
            model->make_port(*each, *model->adapters.back());
        }
    }
}

void Host::add_group(const GroupSpec& spec) {
    const Called model(*impl_);
    if (spec.name.empty() || by_name(model->groups, spec.name) != nullptr) {
        refuse("group name empty or taken", spec.name);
    }
    if (!spec.discovery_ip.empty() || spec.mode == GroupMode::dynamic_discovery) {
        check_address(spec.discovery_ip);
    }
    auto made = std::make_unique<Group>();
    made->name = spec.name;
    made->mode = spec.mode;
    made->discovery_ip = spec.discovery_ip;
    for (const ArraySpec& each : spec.arrays) {
        if (each.name.empty() || by_name(made->arrays, each.name) != nullptr) {
            refuse("array name empty or taken", each.name);
        }
        std::for_each(each.data_ips.begin(), each.data_ips.end(), check_address);
        made->arrays.push_back(std::make_unique<Array>(Array{each.name, each.data_ips, true}));
    }
    model->groups.push_back(std::move(made));
}

void Host::add_volume(const VolumeSpec& spec) {
    const Called model(*impl_);
    if (spec.eui.empty() || spec.eui.size() > OSTREL_EUI_SIZE ||
        std::any_of(model->devices.begin(), model->devices.end(),
                    [&](const auto& each) { return each->eui == spec.eui; })) {
        refuse("volume identifier empty, longer than 40 characters or taken", spec.eui);
    }
    Group& in = model->group(spec.group);
    auto made = std::make_unique<Device>();
    made->eui = spec.eui;
    made->protocol_endpoint = spec.protocol_endpoint;
    made->supported = spec.supported;
    for (const std::string& name : spec.arrays) {
        made->members.push_back(&model->array(in, name));
    }
    if (spec.arrays.empty()) {
        for (const auto& each : in.arrays) {
            made->members.push_back(each.get());
        }
    }
    Target* on = nullptr;
    if (!spec.group_scoped_target.empty()) {
        on = &model->target(spec.group_scoped_target);
        if (!on->group_scoped || on->group != &in) {
            refuse("not a group-scoped target of the volume's group", spec.group_scoped_target);
        }
    } else {
        const std::string iqn = spec.iqn.empty() ? "iqn.2012-07.com.ostrel:" + spec.eui : spec.iqn;
        const auto found = model->targets_by_iqn.find(iqn);
        if (found == model->targets_by_iqn.end()) {
            on = &model->make_target(iqn, in, spec.adapters);
        } else if (found->second->group != &in || found->second->group_scoped) {
            refuse("target name taken", iqn);
        } else {
            on = found->second;  // one more volume on the same target
        }
    }
    made->target = on;
    made->lun = on->next_lun++;
    on->devices.push_back(made.get());
    for (const auto& port : on->ports) {
        for (const Session* each : port->sessions) {
            if (each->state == LOGGED_IN) {
                model->claim_later(*each);
            }
        }
    }
    model->devices.push_back(std::move(made));
}

void Host::add_group_scoped_target(const GroupScopedTargetSpec& spec) {
    const Called model(*impl_);
    Group& in = model->group(spec.group);
    std::vector<Array*> active;
    for (const std::string& name : spec.active_arrays) {
        active.push_back(&model->array(in, name));
    }
    if (model->targets_by_iqn.contains(spec.iqn)) {
        refuse("target name taken", spec.iqn);
    }
    Target& made = model->make_target(spec.iqn, in, spec.adapters);
    made.group_scoped = true;
    made.all_arrays_active = spec.active_arrays.empty();
    made.active = std::move(active);
}

void Host::add_static_target(const StaticTargetView& view) {
    const Called model(*impl_);
    Adapter& on = model->adapter(view.adapter);
    if (!view.by_host_name) {
        check_address(view.portal_ip);
    }
    StaticEntry& made = model->make_entry(on, view, false);
    if (made.port != nullptr) {
        model->refresh_port(*made.port);
    }
}

void Host::claim_paths() {
    const Called model(*impl_);
    for (auto& [oid, session] : model->sessions) {
        model->claim(*session);
    }
}

void Host::remove_volume(const std::string& eui) {
    const Called model(*impl_);
    Device& gone_device = model->device(eui);
    Target& of = *gone_device.target;
    erase_item(of.devices, &gone_device);
    std::erase_if(model->devices, [&](const auto& each) { return each.get() == &gone_device; });
    if (!of.devices.empty() || of.group_scoped) {
        return;
    }
    for (const auto& port : of.ports) {
        while (!port->sessions.empty()) {
            model->end_session(*port->sessions.back(), Event::Kind::session_lost, "volume removed");
        }
        Adapter& on = *port->adapter;
        std::erase_if(on.entries, [&](const auto& entry) {
            if (entry->port != port.get()) {
                return false;
            }
            model->objects.erase(entry->oid);
            return true;
        });
        model->objects.erase(port->oid);
        model->ports_by_id.erase(port->id);
        erase_item(on.ports, port.get());
    }
    erase_item(of.group->targets, &of);
    model->targets_by_iqn.erase(of.iqn);
    std::erase_if(model->targets, [&](const auto& each) { return each.get() == &of; });
}

}  // namespace simhost
