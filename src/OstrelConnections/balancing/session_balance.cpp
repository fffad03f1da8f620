#include "OstrelConnections/balancing/session_balance.h"

#include <algorithm>

#include "OstrelConnections/balancing/session_list.h"
#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/stop_point.h"
#include "common/text.h"
#include "oxd_ima_utility/session_operations.h"

namespace {

constexpr LogOperation balancing = "handle_num_sessions";
constexpr LogOperation protection = "exclude_active_array_sessions_from_remove";

int add_missing_sessions(const char* target_iqn, const TargetDtls* records, int num_records, int num_missing, int room,
                         int& num_system_sessions, std::int32_t& ioctl_required) {
    int num_to_add = num_missing;
    if (num_to_add > room) {
        OXR_INFO_IN(balancing,
                    "total system sessions = %d. Max sessions which can be created are %d but required are %d",
                    num_system_sessions, room, num_to_add);
        num_to_add = room;
    }
    if (num_to_add <= 0) {
        return 0;
    }
    OXR_INFO_IN(balancing, "Creating %d sessions for this volume - %s", num_to_add, target_iqn);
    const int added = add_isid_sessions(num_to_add, target_iqn, num_records, records);
    if (added < 0) {
        OXR_ERROR_IN(balancing, "failed while adding sessions");
    } else if (added != num_to_add) {
        OXR_ERROR_IN(balancing, "add_isid_sessions was able to create %d out of requested %d sessions", added,
                     num_to_add);
    }
    if (added > 0) {
        num_system_sessions += added;
        ioctl_required = RESCAN;
    }
    return added;
}

int remove_surplus_sessions(const char* target_iqn, const TargetDtls* records, int num_records, int num_surplus,
                            int& num_system_sessions, std::int32_t& ioctl_required) {
    OXR_INFO_IN(balancing, "Removing %d sessions for this volume - %s.", num_surplus, target_iqn);
    const int removed = remove_isid_sessions(num_surplus, target_iqn, num_records, records);
    if (removed < 0) {
        OXR_ERROR_IN(balancing, "failed while removing sessions");
    } else if (removed != num_surplus) {
        OXR_ERROR_IN(balancing, "remove_isid_sessions was able to delete %d out of requested %d sessions", removed,
                     num_surplus);
    }
    if (removed > 0) {
        num_system_sessions = std::max(num_system_sessions - removed, 0);
        OXR_INFO_IN(balancing,
                    "remove_isid_sessions removed some sessions. Set ioctl call required to DELETE_DEAD_PATHS");
        ioctl_required = DELETE_DEAD_PATHS;
    }
    return removed;
}

bool carries(const TargetDtls& record, const OstrelPspTransportPath& path) {
    constexpr std::size_t compared = sizeof record.current_remote_ip;
    return path.is_active != 0 &&
           oxr::field_view(path.target_addr, compared) == oxr::field_view(record.current_remote_ip);
}

void protect_sessions_on_path(const OstrelPspTransportPath& path, const char* device_eui, TargetDtls* records,
                              int num_records) {
    for (int r = 0; r < num_records; ++r) {
        TargetDtls& record = records[r];
        if (carries(record, path)) {
            OXR_DEBUG_IN(protection, "Marking active sessions for device %s with local_ip %s and remote ip %s as NULL",
                         device_eui, record.current_local_ip, record.current_remote_ip);
            oxr::copy_field(record.current_local_ip, "");
            oxr::copy_field(record.current_remote_ip, "");
        }
    }
}

}  // namespace

int handle_num_sessions(const char* target_iqn, const TargetDtls* records, int num_required, int& num_system_sessions,
                        int num_dynamic, int num_total, int num_login_pending, std::int32_t& ioctl_required) {
    OXR_INFO(
        "number of sessions required = %d, number of dynamic(automatic) sessions = %d, total current sessions = "
        "%dnumber of login pending sessions = %d",
        num_required, num_dynamic, num_total, num_login_pending);
    if (num_total == 0) {
        OXR_WARN("No sessions present for %s", target_iqn);
    }
    int room = MAX_SYSTEM_SESSIONS - num_system_sessions;
    if (room < 0) {
        OXR_INFO("system has already reached the max number of sessions supported by oxr");
        room = 0;
    }
    if (num_dynamic == 0) {
        OXR_WARN("No dynamic(automatic) sessions present for %s", target_iqn);
        return 0;
    }
    // Counts from a PSP reply can have any value.
    const std::int64_t num_missing = std::int64_t{num_required} - num_dynamic - num_login_pending;
    if (num_missing > 0) {
        return add_missing_sessions(target_iqn, records, num_total,
                                    static_cast<int>(std::min<std::int64_t>(num_missing, INT32_MAX)), room,
                                    num_system_sessions, ioctl_required);
    }
    // While sessions log in, none is removed.
    if (num_login_pending == 0 && num_dynamic > num_required) {
        return remove_surplus_sessions(target_iqn, records, num_total, num_dynamic - num_required, num_system_sessions,
                                       ioctl_required);
    }
    return 0;
}

int add_isid_sessions(int num_to_add, const char* target_iqn, int num_records, const TargetDtls* records) {
    const auto list = oxr::make_zeroed_array<ip_session_list>(MAX_SESSION_LIST_ENTRIES);
    if (list == nullptr) {
        OXR_ERROR("calloc failed");
        return -1;
    }
    int num_entries = 0;
    create_session_list(list.get(), num_entries, num_records, records, 1);
    int added = 0;
    while (added < num_to_add) {
        oxr::stop_point();  // before the change is logged
        ip_session_list& entry = least_used_entry(list.get(), num_entries);
        OXR_INFO("add_isid_sessions : Duplicating session %s with IP : %s, adapter_name : %s", entry.isid[0],
                 entry.local_ip, entry.vmhba_name[0]);
        if (const int retval = create_sessions(entry.vmhba_name[0], target_iqn, entry.isid[0]); retval != 0) {
            OXR_ERROR("create_sessions failed with retval = %d", retval);
            break;
        }
        ++entry.count;
        ++added;
    }
    OXR_INFO("Cloned %d number of sessions successfully.", added);
    return added;
}

int remove_isid_sessions(int num_to_remove, const char* target_iqn, int num_records, const TargetDtls* records) {
    const auto list = oxr::make_zeroed_array<ip_session_list>(MAX_SESSION_LIST_ENTRIES);
    if (list == nullptr) {
        OXR_ERROR("calloc failed");
        return -1;
    }
    int num_entries = 0;
    create_session_list(list.get(), num_entries, num_records, records, 0);
    if (num_entries == 0) {
        return 0;
    }
    sort_ip_session_list(list.get(), num_entries);
    int removed = 0;
    for (int attempt = 0; attempt < num_to_remove; ++attempt) {
        oxr::stop_point();
        ip_session_list& entry = most_used_entry(list.get(), num_entries);
        const int k = entry.count - 1;
        if (k < 0) {
            OXR_ERROR("Cannot remove session.");
            return removed;
        }
        OXR_INFO("Removing session %s with IP : %s , adapter_name : %s for %s", entry.isid[k], entry.local_ip,
                 entry.vmhba_name[k], target_iqn);
        --entry.count;
        if (remove_session(entry.vmhba_name[k], target_iqn, entry.isid[k]) == 0) {
            ++removed;
        } else {
            OXR_ERROR("removing session failed.");
        }
    }
    OXR_INFO("total number of sessions removed  = %d", removed);
    return removed;
}

void exclude_active_array_sessions_from_remove(const OstrelPspGroupScopedTarget& target,
                                               const OstrelPspIoctlGetTransportAddrsData& transport_addrs,
                                               TargetDtls* records, int num_records) {
    for (std::int32_t d = 0; d < target.num_luns; ++d) {
        const oxr::FieldText device_eui(target.luns[d].device_eui);
        const OstrelPspTransportAddrs* const device = find_transport_addrs(transport_addrs, device_eui.c_str());
        if (device == nullptr) {
            continue;
        }
        OXR_DEBUG("Got matching device from transport address list %s", device_eui.c_str());
        for (std::int32_t p = 0; p < device->num_paths; ++p) {
            protect_sessions_on_path(device->paths[p], device_eui.c_str(), records, num_records);
        }
    }
}
