#include "OstrelConnections/group_scoped_targets.h"

#include <cstddef>

#include "OstrelConnections/balancing/required_sessions.h"
#include "OstrelConnections/balancing/session_balance.h"
#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/psp/psp_client.h"
#include "OstrelConnections/psp_request_lists.h"
#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/stop_point.h"
#include "common/text.h"
#include "oxd_ima_utility/nics.h"

namespace {

constexpr LogOperation pass = "handle_group_scoped_target_connections";
constexpr PspRequestTexts request_texts{pass, "targets", "target"};

// The state of one call, shared by its targets.
struct TargetPass {
    const ConfigValues& values;
    const int total_vol_paths;
    int num_system_sessions;
    const OstrelPspIoctlGetTransportAddrsData* transport_addrs;
    PspRequestLists requests{};
    int request_status = 0;
};

// A target's sessions in the last inventory.
struct TargetSessions {
    TargetDtls records[MAX_SESSIONS_PER_TARGET] = {};
    int num_dynamic = 0;
    int num_total = 0;
    int num_login_pending = 0;
};

void log_target(int index, const OstrelPspGroupScopedTarget& target) {
    OXR_INFO_IN(pass,
                "Group scoped target-%d: %s, group_mode=%d, mode_changed=%d, num_adapters=%d num_luns=%d, "
                "total_active_paths=%d, total_dead_paths=%d",
                index, oxr::FieldText(target.target_iqn).c_str(), target.group_mode, target.mode_changed,
                target.num_adapters, target.num_luns, target.total_active_paths, target.total_dead_paths);
    for (std::int32_t k = 0; k < target.num_luns; ++k) {
        const OstrelPspGroupScopedLun& lun = target.luns[k];
        OXR_INFO_IN(pass, "   device-%d=%s, isVvolPE=%d, total_active_paths=%d, total_dead_paths=%d", k,
                    oxr::FieldText(lun.device_eui).c_str(), lun.isVvolPE, lun.total_active_paths, lun.total_dead_paths);
    }
}

bool has_usable_array_counts(const OstrelPspGroupScopedTarget& target) {
    if (target.num_total_array_in_group < target.num_active_array) {
        OXR_ERROR_IN(pass,
                     "Invalid values of array counts. num_total_array_in_group < num_active_array.  "
                     "num_total_array_in_group = %d num_active_array = %d",
                     target.num_total_array_in_group, target.num_active_array);
        return false;
    }
    if (target.num_total_array_in_group < 1) {
        OXR_ERROR_IN(pass, "Invalid value of total array count. num_total_array_in_group = %d",
                     target.num_total_array_in_group);
        return false;
    }
    return true;
}

// Applies the configured limits to the required number; the minimum takes precedence.
int limit_required(const ConfigValues& values, int required) {
    const auto unsigned_required = static_cast<std::uint32_t>(required);
    if (values.min_pe_sessions > unsigned_required) {
        OXR_INFO_IN(pass,
                    " total_required_paths calculated %d is less than user configured min_pe_sessions %d. Resetting..",
                    required, static_cast<int>(values.min_pe_sessions));
        return static_cast<int>(values.min_pe_sessions);
    }
    if (unsigned_required > values.max_pe_sessions) {
        OXR_INFO_IN(pass, " total_required_paths calculated %d is greater than max_pe_sessions %d. Resetting..",
                    required, static_cast<int>(values.max_pe_sessions));
        return static_cast<int>(values.max_pe_sessions);
    }
    return required;
}

void take_inventory(const IscsiProps& props, const char* target_iqn, TargetSessions& sessions) {
    const int result = populate_oxr_sessions(props, sessions.records, sessions.num_dynamic, sessions.num_total,
                                             sessions.num_login_pending);
    if (result < 0) {
        OXR_ERROR_IN(pass, "populate_oxr_sessions returned %d for group scoped target target_iqn = %s", result,
                     target_iqn);
    }
    for (int k = 0; k < sessions.num_total; ++k) {
        const TargetDtls& session = sessions.records[k];
        OXR_DEBUG_IN(pass,
                     "session-%d : isid=%s, current_local_ip=%s, initial_remote_ip=%s, current_remote_ip=%s, "
                     "vmhba_name=%s, session_state=%s, session_type=%d",
                     k, session.isid, session.current_local_ip, session.initial_remote_ip, session.current_remote_ip,
                     session.vmhba_name, OxrSessionStateStr(session.session_state),
                     static_cast<int>(session.session_type));
    }
}

void balance_target(TargetPass& state, const OstrelPspGroupScopedTarget& target, const IscsiProps& props,
                    const char* target_iqn, TargetSessions& sessions, int required) {
    if (required < sessions.num_dynamic) {
        if (state.transport_addrs == nullptr) {
            OXR_WARN_IN(pass,
                        "No transport addresses, so sessions with active paths can't be told from others. Not removing "
                        "any session of %s in this pass.",
                        target_iqn);
            return;
        }
        exclude_active_array_sessions_from_remove(target, *state.transport_addrs, sessions.records, sessions.num_total);
    }
    std::int32_t ioctl_required = 0;
    (void)handle_num_sessions(target_iqn, sessions.records, required, state.num_system_sessions, sessions.num_dynamic,
                              sessions.num_total, sessions.num_login_pending, ioctl_required);
    note_psp_request(state.requests, request_texts, ioctl_required, props.vmhba_name_array, props.num_adapters,
                     state.request_status);
}

void handle_target(TargetPass& state, int index, const OstrelPspGroupScopedTarget& target) {
    const oxr::FieldText target_iqn(target.target_iqn);
    if (target.group_mode == OSTREL_GROUP_MODE_STATIC) {
        OXR_INFO_IN(pass, "Group scoped target - %d: %s group_mode = %d mode_changed = %d STATIC(MANUAL) MODE", index,
                    target_iqn.c_str(), target.group_mode, target.mode_changed);
        return;
    }
    log_target(index, target);
    if (!has_usable_array_counts(target)) {
        return;
    }
    const int num_nic = get_num_nic(target.luns[0].device_eui, target.vmhba_name_array, target.num_adapters,
                                    state.values.vmknic_count, state.transport_addrs);
    if (num_nic <= 0) {
        OXR_ERROR_IN(pass, "get_num_nic returned number of NICs = %d", num_nic);
        return;
    }
    const int required = limit_required(
        state.values, required_target_sessions(num_nic, target.num_active_array, target.num_total_array_in_group));
    OXR_INFO_IN(pass, "num_nic=%d, num_active_array=%d, num_total_array_in_group=%d, total_required_paths = %d",
                num_nic, target.num_active_array, target.num_total_array_in_group, required);

    IscsiProps props;
    create_iscsi_props(target.target_iqn, target.num_adapters, target.vmhba_name_array, props);
    TargetSessions sessions;
    take_inventory(props, target_iqn.c_str(), sessions);
    if (state.total_vol_paths < MAX_PATHS_LIMIT && required != sessions.num_dynamic) {
        balance_target(state, target, props, target_iqn.c_str(), sessions, required);
    }
    OXR_DEBUG_IN(pass, "group_scoped_target -- total ostrel sessions = %d", state.num_system_sessions);
}

}  // namespace

int handle_group_scoped_target_connections(const ConfigValues& values, int total_vol_paths, int num_system_sessions,
                                           const OstrelPspIoctlGetTransportAddrsData* transport_addrs) {
    const auto targets = oxr::make_unset_array<OstrelPspGroupScopedTarget>(OSTREL_MAX_GROUP_SCOPED_TARGETS);
    constexpr std::size_t size = OSTREL_MAX_GROUP_SCOPED_TARGETS * sizeof(OstrelPspGroupScopedTarget);
    if (targets == nullptr) {
        OXR_ERROR("can not allocate memory for %d group scoped targets, %zu bytes.", OSTREL_MAX_GROUP_SCOPED_TARGETS,
                  size);
        return -1;
    }
    OXR_DEBUG("oxr_groupscoped_target_buffer_size = %d", static_cast<int>(size));
    int num_targets = 0;
    if (get_all_group_scoped_targets_ioctl(targets.get(), num_targets) < 0) {
        OXR_ERROR("Error getting group_scoped_targets data from psp via ioctl");
        return -1;
    }
    TargetPass state{values, total_vol_paths, num_system_sessions, transport_addrs};
    for (int i = 0; i < num_targets; ++i) {
        oxr::stop_point();
        handle_target(state, i, targets[static_cast<std::size_t>(i)]);
    }
    send_psp_requests(state.requests, request_texts, state.request_status);
    return 0;
}
