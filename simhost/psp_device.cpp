// The path-selection plug-in's control device: its requests over the model.
#include <errno.h>
#include <stdarg.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

#include "OstrelConnections/psp/psp_records.h"
#include "simhost/descriptors.h"
#include "simhost/inside.h"
#include "simhost/model.h"
#include "simhost/real.h"

namespace simhost {

namespace {

constexpr std::int32_t GROUP_MODE_DYNAMIC = 2;

// Copies without a terminator when the text fills the field; the rest is zero.
template <std::size_t Size>
void copy_text(char (&field)[Size], std::string_view text) {
    const std::size_t length = std::min(text.size(), Size);
    std::memcpy(field, text.data(), length);
    std::memset(field + length, 0, Size - length);
}

template <std::size_t Size>
std::string_view text_in(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

// The text of path_name(), without an allocation: a host has thousands.
template <std::size_t Size>
void copy_path_name(char (&field)[Size], const Port& port, int channel, int lun) {
    std::memset(field, 0, Size);
    const std::string& name = port.adapter->name;
    char* at = std::copy(name.begin(), name.end(), field);
    const std::pair<char, int> parts[] = {{'C', channel}, {'T', port.number}, {'L', lun}};
    for (const auto& [letter, number] : parts) {
        if (field + Size - at < 3) {
            break;
        }
        *at++ = ':';
        *at++ = letter;
        at = std::to_chars(at, field + Size - 1, number).ptr;
    }
    field[Size - 1] = '\0';
}

std::int32_t mode_of(const Target& of) {
    return of.group->mode == GroupMode::static_discovery ? OSTREL_GROUP_MODE_STATIC : GROUP_MODE_DYNAMIC;
}

std::int32_t fill_adapters(const Host::Impl& impl, const Target& of, AdapterName (&names)[OSTREL_MAX_ADAPTERS]) {
    std::int32_t count = 0;
    for (const auto& port : of.ports) {
        if (count < OSTREL_MAX_ADAPTERS && impl.listed(*port)) {
            copy_text(names[count++], port->adapter->name);
        }
    }
    return count;
}

void fill(const Host::Impl& impl, const Device& from, OxrLun& lun) {
    const Target& on = *from.target;
    std::memset(&lun, 0, sizeof lun);
    copy_text(lun.device_eui, from.eui);
    copy_text(lun.target_iqn, on.iqn);
    lun.num_adapters = fill_adapters(impl, on, lun.vmhba_name_array);
    const PathCounts counts = impl.count(from);
    lun.num_total_paths = counts.total();
    lun.num_active_paths = counts.active;
    lun.num_dead_paths = counts.dead;
    if (from.supported) {
        const auto up =
            std::count_if(from.members.begin(), from.members.end(), [](const Array* each) { return each->up; });
        lun.num_of_mem_array = std::max(1, static_cast<std::int32_t>(up));
    }
    lun.group_mode = mode_of(on);
    lun.mode_changed = on.mode_changed ? OSTREL_MODE_CHANGED : 0;
    lun.isVvolPE = from.protocol_endpoint ? 1 : 0;
    lun.isGstVolume = on.group_scoped ? 1 : 0;
}

void fill(const Host::Impl& impl, const Target& from, OstrelPspGroupScopedTarget& target) {
    copy_text(target.target_iqn, from.iqn);
    std::memset(&target.num_luns, 0, sizeof target - offsetof(OstrelPspGroupScopedTarget, num_luns));
    for (const Device* each : from.devices) {
        if (target.num_luns == OSTREL_MAX_LUNS_PER_TARGET) {
            break;
        }
        OstrelPspGroupScopedLun& lun = target.luns[target.num_luns++];
        const PathCounts counts = impl.count(*each);
        copy_text(lun.device_eui, each->eui);
        lun.isVvolPE = each->protocol_endpoint ? 1 : 0;
        lun.total_active_paths = counts.active;
        lun.total_dead_paths = counts.dead;
    }
    const PathCounts counts = impl.count(from);
    target.num_adapters = fill_adapters(impl, from, target.vmhba_name_array);
    target.total_active_paths = counts.active;
    target.total_dead_paths = counts.dead;
    target.num_active_array = impl.arrays_up(from);
    target.num_total_array_in_group = static_cast<std::int32_t>(from.group->arrays.size());
    target.group_mode = mode_of(from);
    target.mode_changed = from.mode_changed ? OSTREL_MODE_CHANGED : 0;
}

void fill(const Host::Impl& impl, const Device& from, OstrelPspTransportAddrs& entry) {
    copy_text(entry.device_eui, from.eui);
    entry.num_paths = 0;
    const auto add = [&](const Port& port, int channel, const std::string& local, const std::string& remote,
                         bool active) {
        if (entry.num_paths == OSTREL_MAX_PATHS_PER_DEVICE) {
            return;
        }
        OstrelPspTransportPath& path = entry.paths[entry.num_paths++];
        copy_path_name(path.path_name, port, channel, from.lun);
        copy_text(path.target_addr, remote);
        copy_text(path.initiator_addr, local);
        path.is_active = active ? 1 : 0;
    };
    for (const auto& port : from.target->ports) {
        for (const Session* each : port->sessions) {
            if (from.lun < each->claimed_luns) {
                add(*port, each->channel, each->local_ip, each->current_remote_ip, impl.active(*each));
            }
        }
    }
    for (const auto& port : from.target->ports) {
        for (const DeadPaths& each : port->dead) {
            if (from.lun < each.claimed_luns) {
                add(*port, each.channel, each.local_ip, each.remote_ip, false);
            }
        }
    }
}

int all_devices(const Host::Impl& impl, OstrelPspIoctlGetAllDeviceInfoData& data) {
    data.num_devices = 0;
    for (const auto& each : impl.devices) {
        if (data.num_devices == OSTREL_MAX_VOLUMES) {
            break;
        }
        fill(impl, *each, data.devices[data.num_devices++]);
    }
    return OSTREL_PSP_IOCTL_SUCCESS;
}

const Target* asked_target(const Host::Impl& impl, std::string_view iqn) {
    const auto found = impl.targets_by_iqn.find(std::string(iqn));
    return found == impl.targets_by_iqn.end() ? nullptr : found->second;
}

int one_device(const Host::Impl& impl, OxrLun& lun) {
    const std::string_view iqn = text_in(lun.target_iqn);
    if (iqn.empty()) {
        return OSTREL_PSP_IOCTL_ERROR_INVALID_INPUT;
    }
    const Target* found = asked_target(impl, iqn);
    if (found == nullptr || found->devices.empty()) {
        return OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND;
    }
    fill(impl, *found->devices.front(), lun);
    return OSTREL_PSP_IOCTL_SUCCESS;
}

int all_group_scoped(const Host::Impl& impl, OstrelPspIoctlGetAllGroupScopedTargetsData& data) {
    data.num_targets = 0;
    for (const auto& each : impl.targets) {
        if (each->group_scoped && data.num_targets < OSTREL_MAX_GROUP_SCOPED_TARGETS) {
            fill(impl, *each, data.targets[data.num_targets++]);
        }
    }
    return OSTREL_PSP_IOCTL_SUCCESS;
}

int one_group_scoped(const Host::Impl& impl, OstrelPspGroupScopedTarget& target) {
    const std::string_view iqn = text_in(target.target_iqn);
    if (iqn.empty()) {
        return OSTREL_PSP_IOCTL_ERROR_INVALID_INPUT;
    }
    const Target* found = asked_target(impl, iqn);
    if (found == nullptr || !found->group_scoped) {
        return OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND;
    }
    fill(impl, *found, target);
    return OSTREL_PSP_IOCTL_SUCCESS;
}

// What doesn't fit makes it a partial success.
int transport_addresses(const Host::Impl& impl, OstrelPspIoctlGetTransportAddrsData& data) {
    data.num_devices = 0;
    for (const auto& each : impl.devices) {
        if (data.num_devices == OSTREL_MAX_VOLUMES) {
            return OSTREL_PSP_IOCTL_PARTIAL_SUCCESS;
        }
        fill(impl, *each, data.devices[data.num_devices++]);
    }
    return OSTREL_PSP_IOCTL_SUCCESS;
}

Adapter* asked_adapter(Host::Impl& impl, const AdapterName& name) {
    for (const auto& each : impl.adapters) {
        if (each->name == text_in(name)) {
            return each.get();
        }
    }
    return nullptr;
}

int rescan(Host::Impl& impl, const OstrelPspIoctlRescanData& data) {
    if (text_in(data.adapter_name).empty()) {
        return OSTREL_PSP_IOCTL_ERROR_INVALID_INPUT;
    }
    Adapter* on = asked_adapter(impl, data.adapter_name);
    if (on == nullptr) {
        return OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_NOT_FOUND;
    }
    impl.emit({Event::Kind::adapter_rescanned, impl.now(), {}, on->name, {}});
    const std::vector<Session*> standing = on->sessions;
    for (Session* each : standing) {
        impl.claim(*each);
    }
    return OSTREL_PSP_IOCTL_SUCCESS;
}

int delete_dead(Host::Impl& impl, const OstrelPspIoctlDeleteDeadPathsData& data) {
    if (text_in(data.adapter_name).empty()) {
        return OSTREL_PSP_IOCTL_ERROR_INVALID_INPUT;
    }
    Adapter* on = asked_adapter(impl, data.adapter_name);
    if (on == nullptr) {
        return OSTREL_PSP_IOCTL_ERROR_DELETE_DEAD_PATHS;
    }
    impl.emit({Event::Kind::dead_paths_requested, impl.now(), {}, on->name, {}});
    impl.delete_dead_paths(*on);
    return OSTREL_PSP_IOCTL_SUCCESS;
}

// A PSP status, or an errno as a negative number.
int carry_out(Host::Impl& impl, unsigned long request, void* buffer) {
    if (buffer == nullptr) {
        return -EFAULT;
    }
    switch (request) {
        case OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO:
            return all_devices(impl, *static_cast<OstrelPspIoctlGetAllDeviceInfoData*>(buffer));
        case OSTREL_PSP_IOCTL_GET_DEVICE_INFO:
            return one_device(impl, *static_cast<OxrLun*>(buffer));
        case OSTREL_PSP_IOCTL_GET_ALL_GROUP_SCOPED_TARGETS:
            return all_group_scoped(impl, *static_cast<OstrelPspIoctlGetAllGroupScopedTargetsData*>(buffer));
        case OSTREL_PSP_IOCTL_GET_GROUP_SCOPED_TARGET:
            return one_group_scoped(impl, *static_cast<OstrelPspGroupScopedTarget*>(buffer));
        case OSTREL_PSP_IOCTL_RESCAN:
            return rescan(impl, *static_cast<const OstrelPspIoctlRescanData*>(buffer));
        case OSTREL_PSP_IOCTL_DELETE_DEAD_PATHS:
            return delete_dead(impl, *static_cast<const OstrelPspIoctlDeleteDeadPathsData*>(buffer));
        case OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS:
            return transport_addresses(impl, *static_cast<OstrelPspIoctlGetTransportAddrsData*>(buffer));
        default:
            return -ENOTTY;
    }
}

int answer(Host::Impl& impl, unsigned long request, void* buffer) {
    impl.started = true;
    impl.run_due();
    if (request == OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO) {
        impl.pass_begins();
    }
    const auto fault = impl.hit("psp." + std::to_string(request));
    if (fault && fault->error != 0) {
        return -fault->error;
    }
    if (fault && fault->status != OSTREL_PSP_IOCTL_PARTIAL_SUCCESS) {
        const auto status = static_cast<std::int32_t>(fault->status);
        return status > 0 ? status : OSTREL_PSP_IOCTL_ERROR_UNKNOWN;
    }
    int result = carry_out(impl, request, buffer);
    if (fault) {
        result = OSTREL_PSP_IOCTL_PARTIAL_SUCCESS;
    }
    const auto script = impl.psp_scripts.find(request);
    if (script != impl.psp_scripts.end()) {
        const auto answering = script->second;  // it may take itself away
        const Callback callback(impl);
        impl.pass_disturbed = true;
        result = answering(buffer, result);
    }
    return result;
}

}  // namespace

SIMHOST_INTERPOSE(int, ioctl, int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (!may_be_ours(fd) || !host_exists()) {
        return real::ioctl(fd, request, argument);
    }
    const Inside inside;
    const auto impl = current_impl();
    if (impl == nullptr) {
        return real::ioctl(fd, request, argument);
    }
    std::optional<int> result;
    {
        const Entered entered(*impl);
        if (is_control_device(*impl, fd)) {
            result = answer(*impl, request, argument);
        }
    }
    if (!result) {
        return real::ioctl(fd, request, argument);
    }
    if (*result < 0) {
        errno = -*result;
        return -1;
    }
    return *result;
}

}  // namespace simhost
