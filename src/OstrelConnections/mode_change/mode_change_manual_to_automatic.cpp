#include <optional>

#include "OstrelConnections/mode_change/mode_change.h"
#include "OstrelConnections/mode_change/mode_change_parts.h"
#include "common/stop_point.h"
#include "oxd_ima_utility/oid_lookup.h"

namespace {

constexpr LogOperation to_automatic = "handle_manual_to_automatic_mode_change";

// Adds all target addresses except the busiest to the remove list: the volume keeps its static paths over that one
// until dynamic ones exist.
void collect_targets_but_busiest(const TargetDtls* sessions, const char* target_iqn, RemoveList& remove_list) {
    UniqueIpAddress ips[MAX_UNIQUE_IPS] = {};
    TargetSessionCount map[MAX_UNIQUE_IPS] = {};
    int num_ips = 0;
    int busiest = 0;
    get_unique_target_ips(sessions, ips, num_ips);
    get_target_session_count_map(ips, num_ips, sessions, busiest, map);
    if (map[busiest].num_sessions > 0) {
        OXR_DEBUG_IN(to_automatic,
                     "Target %s has maximum sessions = %d so it won't be deleted until all dynamic targets are created",
                     map[busiest].target_ip, map[busiest].num_sessions);
    }
    for (int i = 0; i < num_ips; ++i) {
        if (i != busiest && map[i].num_sessions > 0) {
            // One that does not fit is removed at the end.
            (void)remove_list.add(to_automatic, target_iqn, map[i].target_ip);
        }
    }
}

// Collects the static targets to remove before the rediscovery. -1 if the sessions of a volume cannot be read.
int collect_targets(const mode_change_info* changes, int num_changes, OxrLun* luns, ModeChangeBatch& batch,
                    RemoveList& remove_list) {
    for (int c = 0; c < num_changes; ++c) {
        if (changes[c].change != MANUAL_TO_AUTOMATIC) {
            continue;
        }
        oxr::stop_point();
        OxrLun& lun = luns[changes[c].index];
        const oxr::FieldText target_iqn(lun.target_iqn);
        OXR_DEBUG_IN(to_automatic, "Getting session connection details for target iqn - %s", target_iqn.c_str());
        TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
        if (const int result = obtain_oxr_lun_sessions(lun, sessions); result < 0) {
            OXR_ERROR_IN(to_automatic, "populate_oxr_sessions returned %d. Can't get sessions for this target", result);
            return -1;
        }
        if (batch.take(to_automatic, changes[c], lun)) {
            collect_targets_but_busiest(sessions, target_iqn.c_str(), remove_list);
        }
    }
    return 0;
}

// Removes the collected static targets and rediscovers.
void replace_targets(const RemoveList& remove_list, const UniqueAdapters& adapters) {
    oxr::stop_point();
    // Only the rediscovery replaces the paths that a volume loses here: a stop ends the removal, but not this step.
    const oxr::StopHold hold;
    if (remove_list.count() > 0) {
        OXR_INFO_IN(to_automatic,
                    "Deleting all static targets other than those which have been selected to be deleted later");
        // A target that could not be removed is removed at the end.
        (void)remove_list.remove_from(adapters.names, adapters.count);
    }
    if (delete_dead_path_ioctl(adapters.names, adapters.count, DEAD_PATH_DELAY_SECONDS) < 0) {
        OXR_ERROR_IN(to_automatic, "ioctl for deleting dead paths failed.");
    }
    for (int a = 0; a < adapters.count; ++a) {
        if (!rediscover_adapter(to_automatic, adapters.names[a])) {
            OXR_WARN_IN(to_automatic, "rediscovery failed.");
        }
    }
}

// Collects and replaces the targets; frees its list before the final removal needs one. -1 as collect_targets.
int replace_targets_but_busiest(const mode_change_info* changes, int num_changes, OxrLun* luns,
                                ModeChangeBatch& batch) {
    RemoveList remove_list;
    if (!remove_list.allocated()) {
        OXR_ERROR_IN(to_automatic, "can not allocate memory for TargetDtls.");
        return -1;
    }
    if (collect_targets(changes, num_changes, luns, batch, remove_list) != 0) {
        return -1;
    }
    if (batch.count > 0) {
        replace_targets(remove_list, batch.adapters);
    }
    return 0;
}

constexpr LogOperation static_removal = "remove_all_static_targets";

void collect_static_targets(RemoveList& list, const TargetDtls* sessions, const char* target_iqn) {
    const int listed = listed_sessions(sessions);
    for (int s = 0; s < listed; ++s) {
        const TargetDtls& session = sessions[s];
        if (is_logged_in(session, SESSION_STATIC) && list.add(static_removal, target_iqn, session.current_remote_ip)) {
            OXR_DEBUG_IN(static_removal,
                         "target - hba %s, target ip %s, target iqn %s, port %d has been added to remove list",
                         session.vmhba_name, session.current_remote_ip, target_iqn, static_cast<int>(ISCSI_PORT));
        }
    }
}

// Collects the static targets of the volumes that have a logged-in dynamic session. -1 if some volume has none and
// keeps its targets; nothing if the sessions of a volume cannot be read.
std::optional<int> collect_old_static_targets(const mode_change_info* changes, int num_changes, OxrLun* luns,
                                              RemoveList& list) {
    int result = 0;
    for (int c = 0; c < num_changes; ++c) {
        if (changes[c].change != MANUAL_TO_AUTOMATIC) {
            continue;
        }
        OxrLun& lun = luns[changes[c].index];
        const oxr::FieldText target_iqn(lun.target_iqn);
        TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
        if (!read_changed_volume(static_removal, lun, sessions)) {
            return std::nullopt;
        }
        if (has_logged_in(sessions, SESSION_DYNAMIC)) {
            collect_static_targets(list, sessions, target_iqn.c_str());
        } else {
            OXR_ERROR_IN(static_removal, "no dynamic(automatic) session present for target %s", target_iqn.c_str());
            result = -1;
        }
    }
    return result;
}

}  // namespace

int handle_manual_to_automatic_mode_change(const mode_change_info* changes, int num_changes, OxrLun* luns) {
    ModeChangeBatch batch;
    if (replace_targets_but_busiest(changes, num_changes, luns, batch) != 0) {
        return -1;
    }
    if (batch.count == 0) {
        return 0;
    }
    const UniqueAdapters& adapters = batch.adapters;
    OXR_INFO("rescanning all adapters");
    if (rescan_ioctl(adapters.names, adapters.count) < 0) {
        OXR_ERROR("ioctl for adapter rescan failed.");
        return -1;
    }
    OXR_INFO("removing all remaining static targets");
    if (remove_all_static_targets(batch.changes, batch.count, luns, adapters.names, adapters.count) != 0) {
        OXR_ERROR("all static targets were not removed");
        return -1;
    }
    OXR_INFO("deleting dead paths");
    if (delete_dead_path_ioctl(adapters.names, adapters.count, DEAD_PATH_DELAY_SECONDS) < 0) {
        OXR_WARN("failed to delete dead paths");
    }
    return 0;
}

void get_unique_target_ips(const TargetDtls* sessions, UniqueIpAddress* list, int& count) {
    for (int s = 0; s < MAX_SESSIONS_PER_TARGET; ++s) {
        if (sessions[s].session_type != SESSION_STATIC) {
            continue;
        }
        const oxr::FieldText target_ip(sessions[s].current_remote_ip);
        const bool listed = std::any_of(
            list, list + count, [&](const UniqueIpAddress& ip) { return oxr::field_view(ip) == target_ip.c_str(); });
        if (listed) {
            OXR_DEBUG("target ip %s is not unique", target_ip.c_str());
        } else {
            OXR_DEBUG("target ip %s is unique", target_ip.c_str());
            oxr::copy_text(list[count++], target_ip.c_str());
        }
    }
}

void get_target_session_count_map(const UniqueIpAddress* list, int num_ips, const TargetDtls* sessions, int& busiest,
                                  TargetSessionCount* map) {
    const int listed = listed_sessions(sessions);
    int maximum = 0;
    for (int i = 0; i < num_ips; ++i) {
        const oxr::FieldText target_ip(list[i]);
        OXR_DEBUG("Finding session count for target %s ", target_ip.c_str());
        int count = 0;
        for (int s = 0; s < listed; ++s) {
            const oxr::FieldText remote_ip(sessions[s].current_remote_ip);
            OXR_DEBUG("comparing %s to %s", remote_ip.c_str(), target_ip.c_str());
            if (is_logged_in(sessions[s], SESSION_STATIC) && std::string_view(remote_ip.c_str()) == target_ip.c_str()) {
                ++count;
            }
        }
        map[i].num_sessions = count;
        OXR_DEBUG("copied session count %d ", count);
        oxr::copy_text(map[i].target_ip, target_ip.c_str());
        OXR_DEBUG("copied target ip %s ", target_ip.c_str());
        if (count > maximum) {
            busiest = i;
            maximum = count;
            OXR_DEBUG("This target has maximum sessions yet, session count = %d ", maximum);
        }
    }
}

int remove_all_static_targets(const mode_change_info* changes, int num_changes, OxrLun* luns,
                              const AdapterName* adapters, int num_adapters) {
    if (num_changes == 0) {
        OXR_INFO("No static targets to remove");
        return 0;
    }
    RemoveList remove_list;
    if (!remove_list.allocated()) {
        OXR_ERROR("can not allocate memory for TargetDtls.");
        return -1;
    }
    const std::optional<int> collected = collect_old_static_targets(changes, num_changes, luns, remove_list);
    if (!collected.has_value()) {
        return -1;
    }
    return remove_list.remove_from(adapters, num_adapters) != 0 ? -1 : *collected;
}
