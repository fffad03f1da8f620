// The host as it stands, as views that stay valid.
#include <algorithm>

#include "simhost/model.h"

namespace simhost {

namespace {

SessionView view_of(const Session& of) {
    SessionView view;
    view.oid = of.oid;
    view.isid = isid_text(of.isid);
    view.target_iqn = of.port->target->iqn;
    view.adapter = of.port->adapter->name;
    view.local_ip = of.local_ip;
    view.first_remote_ip = of.first_remote_ip;
    view.current_remote_ip = of.current_remote_ip;
    view.state = of.state;
    view.made_dynamic = of.made_dynamic;
    view.header_digest = of.header_digest;
    view.data_digest = of.data_digest;
    view.created_at = of.created_at;
    return view;
}

TargetView view_of(const Host::Impl& impl, const Target& of) {
    TargetView view;
    view.iqn = of.iqn;
    view.group = of.group->name;
    view.mode = of.group->mode;
    view.group_scoped = of.group_scoped;
    view.mode_changed = of.mode_changed;
    view.arrays = impl.arrays_up(of);
    view.total_arrays = static_cast<int>(of.group_scoped ? of.group->arrays.size() : impl.members(of).size());
    for (const Device* each : of.devices) {
        view.devices.push_back(each->eui);
    }
    for (const auto& port : of.ports) {
        view.adapters.push_back(port->adapter->name);
        for (const auto& nic : port->adapter->nics) {
            view.nics += nic->up ? 1 : 0;
        }
    }
    const PathCounts counts = impl.count(of);
    view.active_paths = counts.active;
    view.dead_paths = counts.dead;
    return view;
}

std::vector<StaticTargetView> entries_of(const Host::Impl& impl, bool discovered) {
    std::vector<const StaticEntry*> found;
    for (const auto& on : impl.adapters) {
        for (const auto& entry : on->entries) {
            if (entry->discovered == discovered) {
                found.push_back(entry.get());
            }
        }
    }
    std::sort(found.begin(), found.end(), [](const auto* a, const auto* b) { return a->oid < b->oid; });
    std::vector<StaticTargetView> views;
    for (const StaticEntry* each : found) {
        views.push_back(each->view);
    }
    return views;
}

}  // namespace

std::vector<SessionView> Host::sessions() const {
    const Called model(*impl_);
    std::vector<SessionView> views;
    for (const auto& [oid, session] : model->sessions) {
        views.push_back(view_of(*session));
    }
    return views;
}
std::vector<SessionView> Host::sessions(const std::string& iqn) const {
    const Called model(*impl_);
    const Target& of = model->target(iqn);
    std::vector<SessionView> views;
    for (const auto& [oid, session] : model->sessions) {
        if (session->port->target == &of) {
            views.push_back(view_of(*session));
        }
    }
    return views;
}
std::vector<NicView> Host::nics() const {
    const Called model(*impl_);
    std::vector<NicView> views;
    for (const auto& on : model->adapters) {
        for (const auto& nic : on->nics) {
            views.push_back({nic->ip, on->name, nic->up});
        }
    }
    return views;
}
std::vector<GroupView> Host::groups() const {
    const Called model(*impl_);
    std::vector<GroupView> views;
    for (const auto& group : model->groups) {
        views.push_back({group->name, group->mode, {}});
        for (const auto& array : group->arrays) {
            views.back().arrays.push_back({array->name, array->up});
        }
    }
    return views;
}
VolumeView Host::volume(const std::string& eui) const {
    const Called model(*impl_);
    const Device& of = model->device(eui);
    return {of.eui, of.supported || of.protocol_endpoint,
            static_cast<int>(
                std::count_if(of.members.begin(), of.members.end(), [](const Array* each) { return each->up; })),
            static_cast<int>(of.members.size())};
}
std::vector<PathView> Host::paths(const std::string& eui) const {
    const Called model(*impl_);
    return model->paths(model->device(eui));
}
std::vector<StaticTargetView> Host::static_targets() const {
    const Called model(*impl_);
    return entries_of(*model, false);
}
std::vector<StaticTargetView> Host::discovered_targets() const {
    const Called model(*impl_);
    return entries_of(*model, true);
}
std::vector<TargetView> Host::targets() const {
    const Called model(*impl_);
    std::vector<TargetView> views;
    for (const auto& each : model->targets) {
        views.push_back(view_of(*model, *each));
    }
    return views;
}
TargetView Host::target(const std::string& iqn) const {
    const Called model(*impl_);
    return view_of(*model, model->target(iqn));
}
Totals Host::totals() const {
    const Called model(*impl_);
    Totals totals;
    totals.sessions = static_cast<int>(model->sessions.size());
    totals.volumes = static_cast<int>(model->devices.size());
    totals.targets = static_cast<int>(model->targets.size());
    totals.adapters = static_cast<int>(model->adapters.size());
    for (const auto& each : model->targets) {
        const PathCounts counts = model->count(*each);
        totals.active_paths += counts.active;
        totals.dead_paths += counts.dead;
    }
    for (const auto& each : model->adapters) {
        for (const auto& nic : each->nics) {
            totals.nics += nic->up ? 1 : 0;
        }
    }
    return totals;
}
std::string Host::iqn_of(const std::string& eui) const {
    const Called model(*impl_);
    return model->device(eui).target->iqn;
}

std::uint64_t Host::lists_held() const {
    const Called model(*impl_);
    return model->lists.size();
}
std::uint64_t Host::descriptors_held() const {
    const Called model(*impl_);
    return model->files.open.size();
}

}  // namespace simhost
