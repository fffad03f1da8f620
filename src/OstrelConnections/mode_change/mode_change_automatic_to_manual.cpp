#include <optional>

#include "OstrelConnections/mode_change/mode_change.h"
#include "OstrelConnections/mode_change/mode_change_parts.h"
#include "common/stop_point.h"
#include "oxd_ima_utility/oid_lookup.h"
#include "oxd_ima_utility/session_operations.h"

namespace {

constexpr LogOperation to_manual = "handle_automatic_to_manual_mode_change";

// Removes all dynamic sessions of each volume except two, until a stop is requested. -1 if the sessions of a volume
// cannot be read; earlier volumes are not restored.
int remove_sessions_but_two(const mode_change_info* changes, int num_changes, OxrLun* luns, ModeChangeBatch& batch) {
    for (int c = 0; c < num_changes; ++c) {
        if (changes[c].change != AUTOMATIC_TO_MANUAL) {
            continue;
        }
        if (oxr::stop_point()) {
            break;
        }
        OxrLun& lun = luns[changes[c].index];
        const oxr::FieldText target_iqn(lun.target_iqn);
        OXR_INFO_IN(to_manual, "Getting session connection details for target iqn - %s", target_iqn.c_str());
        TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
        if (const int result = obtain_oxr_lun_sessions(lun, sessions); result < 0) {
            OXR_ERROR_IN(to_manual, "obtain_oxr_lun_sessions returned %d = ", result);
            return -1;
        }
        if (batch.take(to_manual, changes[c], lun)) {
            OXR_INFO_IN(to_manual, "removing all dynamic(automatic) sessions but keeping back two");
            // A volume with fewer than two keeps them.
            (void)remove_all_dynamic_sessions_but_two(sessions, target_iqn.c_str());
        }
    }
    return 0;
}

constexpr LogOperation dynamic_removal = "remove_all_dynamic_mode_targets";

// Adds the targets of a volume's dynamic sessions. A target entry has the address of the session's first connection.
void collect_dynamic_targets(RemoveList& list, const TargetDtls* sessions, const char* target_iqn) {
    const int listed = listed_sessions(sessions);
    for (int s = 0; s < listed; ++s) {
        const TargetDtls& session = sessions[s];
        if (is_logged_in(session, SESSION_DYNAMIC) &&
            list.add(dynamic_removal, target_iqn, session.initial_remote_ip)) {
            OXR_DEBUG_IN(dynamic_removal, "- hba %s, target ip %s, target iqn %s, port %d added to remove list",
                         session.vmhba_name, session.current_remote_ip, target_iqn, static_cast<int>(ISCSI_PORT));
        }
    }
}

// Collects the dynamic targets of the volumes that have a logged-in static session. -1 if some volume has none and
// keeps its targets; nothing if the sessions of a volume cannot be read.
std::optional<int> collect_old_dynamic_targets(const mode_change_info* changes, int num_changes, OxrLun* luns,
                                               RemoveList& list) {
    int result = 0;
    for (int c = 0; c < num_changes; ++c) {
        if (changes[c].change != AUTOMATIC_TO_MANUAL) {
            continue;
        }
        OxrLun& lun = luns[changes[c].index];
        TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
        if (!read_changed_volume(dynamic_removal, lun, sessions)) {
            return std::nullopt;
        }
        if (has_logged_in(sessions, SESSION_STATIC)) {
            collect_dynamic_targets(list, sessions, oxr::FieldText(lun.target_iqn).c_str());
        } else {
            OXR_ERROR_IN(dynamic_removal, "no static(manual) sessions exist for this lun. Will not delete the target");
            result = -1;
        }
    }
    return result;
}

}  // namespace

int handle_automatic_to_manual_mode_change(const mode_change_info* changes, int num_changes, OxrLun* luns) {
    ModeChangeBatch batch;
    const UniqueAdapters& adapters = batch.adapters;
    {
        // The two sessions that a volume keeps may be on one adapter. Until the rediscovery creates static sessions on
        // the other adapter, no pass can read the volume's sessions, so the volume would stay with the two.
        const oxr::StopHold hold;
        if (remove_sessions_but_two(changes, num_changes, luns, batch) != 0) {
            return -1;
        }
        if (batch.count == 0) {
            return 0;
        }
        OXR_INFO("deleting dead paths");
        if (delete_dead_path_ioctl(adapters.names, adapters.count, DEAD_PATH_DELAY_SECONDS) < 0) {
            OXR_ERROR("ioctl for deleting dead paths failed.");
        }
        for (int a = 0; a < adapters.count; ++a) {
            if (!rediscover_adapter(to_manual, adapters.names[a])) {
                OXR_ERROR("rediscover failed.");
            }
        }
    }
    OXR_INFO("rescanning all adapters");
    if (rescan_ioctl(adapters.names, adapters.count) < 0) {
        OXR_ERROR("ioctl for adapter rescan failed.");
        return -1;
    }
    OXR_INFO("removing all dynamic(automatic) targets");
    if (remove_all_dynamic_mode_targets(batch.changes, batch.count, luns, adapters.names, adapters.count) != 0) {
        OXR_ERROR("all dynamic(automatic) targets were not removed");
        return -1;
    }
    OXR_INFO("deleting dead paths");
    if (delete_dead_path_ioctl(adapters.names, adapters.count, DEAD_PATH_DELAY_SECONDS) < 0) {
        OXR_ERROR("ioctl for deleting dead paths failed.");
    }
    return 0;
}

int remove_all_dynamic_mode_targets(const mode_change_info* changes, int num_changes, OxrLun* luns,
                                    const AdapterName* adapters, int num_adapters) {
    if (num_changes == 0) {
        OXR_INFO("No targets to remove");
        return 0;
    }
    RemoveList remove_list;
    if (!remove_list.allocated()) {
        OXR_ERROR("can not allocate memory for TargetDtls.");
        return -1;
    }
    const std::optional<int> collected = collect_old_dynamic_targets(changes, num_changes, luns, remove_list);
    if (!collected.has_value()) {
        return -1;
    }
    if (remove_list.remove_from(adapters, num_adapters) != 0) {
        OXR_ERROR("Can't remove all targets");
        return -1;
    }
    OXR_INFO("removed all targets");
    return *collected;
}

int remove_all_dynamic_sessions_but_two(const TargetDtls* sessions, const char* target_iqn) {
    const int listed = listed_sessions(sessions);
    int kept[2] = {-1, -1};
    int num_dynamic = 0;
    for (int s = 0; s < listed; ++s) {
        if (is_logged_in(sessions[s], SESSION_DYNAMIC)) {
            if (num_dynamic < 2) {
                kept[num_dynamic] = s;
            }
            ++num_dynamic;
        }
    }
    if (num_dynamic < 2) {
        OXR_ERROR("atleast two dynamic(automatic) sessions are required per device");
        return -1;
    }
    for (int s = 0; s < listed; ++s) {
        if (oxr::stop_point()) {
            break;
        }
        const TargetDtls& session = sessions[s];
        if (s == kept[0] || s == kept[1]) {
            OXR_DEBUG("Not deleting sessions with isid %s and %s", sessions[kept[0]].isid, sessions[kept[1]].isid);
        } else if (remove_session(session.vmhba_name, target_iqn, session.isid) == 0) {
            OXR_INFO("successfully removed session with isid %s and iqn %s", session.isid, target_iqn);
        } else {
            OXR_WARN("wasn't able to remove session with isid %s and iqn %s", session.isid, target_iqn);
        }
    }
    return 0;
}
