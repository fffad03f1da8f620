#include "OstrelConnections/polling_pass.h"

#include <memory>

#include "OstrelConnections/balancing/required_sessions.h"
#include "OstrelConnections/balancing/session_balance.h"
#include "OstrelConnections/group_scoped_targets.h"
#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/mode_change/mode_change.h"
#include "OstrelConnections/psp/psp_client.h"
#include "OstrelConnections/psp_request_lists.h"
#include "common/heap.h"
#include "common/stop_point.h"
#include "common/text.h"
#include "oxd_ima_utility/nics.h"

namespace {

constexpr LogOperation pass = "handle_ostrel_connections";
constexpr PspRequestTexts request_texts{pass, "volumes", "volumes"};
constexpr int session_count_delay_seconds = 2;

using TransportAddrs = std::unique_ptr<OstrelPspIoctlGetTransportAddrsData>;

// The state of one pass, shared by its volumes.
struct VolumePass {
    const ConfigValues& values;
    int num_volumes = 0;
    int total_vol_paths = 0;
    int num_system_sessions = 0;
    TransportAddrs transport_addrs{};
    PspRequestLists requests{};
    int status = 0;
};

using ModeChange = int (*)(const mode_change_info* changes, int num_changes, OxrLun* luns);

// Repeats a failed procedure once. `direction` names it in the messages.
void carry_out_mode_change(const char* direction, ModeChange procedure, const mode_change_info* changes,
                           int num_changes, OxrLun* luns) {
    if (procedure(changes, num_changes, luns) >= 0) {
        return;
    }
    OXR_WARN_IN(pass, "%s mode change failed. Retrying once more.", direction);
    if (procedure(changes, num_changes, luns) < 0) {
        OXR_ERROR_IN(pass, "%s mode change failed twice.", direction);
    }
}

void carry_out_mode_changes(mode_change_info* changes, OxrLun* luns, int num_volumes) {
    int num_changes = 0;
    int manual_to_automatic = 0;
    int automatic_to_manual = 0;
    get_mode_change_info(luns, changes, num_changes, num_volumes, manual_to_automatic, automatic_to_manual);
    if (num_changes <= 0) {
        return;
    }
    OXR_INFO_IN(pass, "total mode changes = %d", num_changes);
    if (manual_to_automatic != 0) {
        carry_out_mode_change("manual to automatic", handle_manual_to_automatic_mode_change, changes, num_changes,
                              luns);
    }
    if (automatic_to_manual != 0) {
        carry_out_mode_change("automatic to manual", handle_automatic_to_manual_mode_change, changes, num_changes,
                              luns);
    }
}

void count_host_sessions(VolumePass& state) {
    if (get_all_system_sessions(state.num_system_sessions, session_count_delay_seconds) < 0) {
        OXR_ERROR_IN(pass, "error getting total session count");
        state.num_system_sessions = 0;
    }
}

// False if memory is short: the pass ends. If the PSP fails, the pass continues without addresses.
bool fetch_transport_addrs(VolumePass& state) {
    TransportAddrs addrs = oxr::make_zeroed<OstrelPspIoctlGetTransportAddrsData>();
    if (addrs == nullptr) {
        OXR_ERROR_IN(pass, "can not allocate memory for transport addresses.");
        return false;
    }
    state.status = get_transport_addrs_ioctl(*addrs);
    if (state.status < 0) {
        OXR_ERROR_IN(pass, "get_transport_addrs_ioctl failed.");
        return true;
    }
    state.transport_addrs = std::move(addrs);
    return true;
}

void balance_volume(VolumePass& state, OxrLun& lun, std::uint32_t required) {
    // If the inventory fails, no record of another target may be used instead.
    TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
    state.status = obtain_oxr_lun_sessions(lun, sessions);
    if (state.status < 0) {
        OXR_ERROR_IN(pass, "populate_oxr_sessions returned %d", state.status);
    }
    std::int32_t ioctl_required = 0;
    (void)handle_num_sessions(oxr::FieldText(lun.target_iqn).c_str(), sessions, static_cast<int>(required),
                              state.num_system_sessions, lun.num_dynamic_sessions, lun.num_sessions,
                              lun.num_login_pending_sessions, ioctl_required);
    note_psp_request(state.requests, request_texts, ioctl_required, lun.vmhba_name_array, lun.num_adapters,
                     state.status);
}

// Whether the volume is balanced here; logs the reason if not.
bool is_balanced_here(int i, const OxrLun& lun) {
    if (lun.isGstVolume != 0) {
        OXR_INFO_IN(pass, "vol-%d: device_eui=%s target_iqn=%s isVvolPE=%d total_current_paths=%d", i,
                    oxr::FieldText(lun.device_eui).c_str(), oxr::FieldText(lun.target_iqn).c_str(), lun.isVvolPE,
                    lun.num_active_paths);
        return false;
    }
    if (lun.group_mode == OSTREL_GROUP_MODE_STATIC) {
        OXR_INFO_IN(pass,
                    "vol-%d: device_eui = %s target_iqn = %s group_mode = %d mode_changed = %d STATIC(MANUAL) MODE", i,
                    oxr::FieldText(lun.device_eui).c_str(), oxr::FieldText(lun.target_iqn).c_str(), lun.group_mode,
                    lun.mode_changed);
        return false;
    }
    return true;
}

void handle_volume(VolumePass& state, int i, OxrLun& lun) {
    if (!is_balanced_here(i, lun)) {
        return;
    }
    const int num_nic = get_num_nic(lun.device_eui, lun.vmhba_name_array, lun.num_adapters, state.values.vmknic_count,
                                    state.transport_addrs.get());
    if (num_nic <= 0) {
        OXR_ERROR_IN(pass, "get_num_nic returned number of NICs = %d", num_nic);
        return;
    }
    const std::uint32_t required = required_volume_sessions(state.values, num_nic, lun.num_of_mem_array);
    OXR_INFO_IN(pass,
                "vol-%d: device_eui=%s target_iqn=%s num_nic=%d num_memberArray=%d group_mode=%d mode_changed=%d "
                "isVvolPE=%d total_current_paths=%d total_required_paths=%d",
                i, oxr::FieldText(lun.device_eui).c_str(), oxr::FieldText(lun.target_iqn).c_str(), num_nic,
                lun.num_of_mem_array, lun.group_mode, lun.mode_changed, lun.isVvolPE, lun.num_active_paths,
                static_cast<int>(required));
    if (state.total_vol_paths < MAX_PATHS_LIMIT && static_cast<int>(required) != lun.num_active_paths) {
        balance_volume(state, lun, required);
    }
    OXR_DEBUG_IN(pass, "!isGstVolume -- total ostrel sessions = %d", state.num_system_sessions);
}

}  // namespace

int handle_ostrel_connections(const ConfigValues& values) {
    VolumePass state{values};
    const auto vol_node_array = oxr::make_zeroed_array<OxrLun>(OSTREL_MAX_VOLUMES);
    if (vol_node_array == nullptr) {
        OXR_ERROR("can not allocate memory for vol_node_array");
        return -1;
    }
    const int rc = populate_Oxr_Luns(vol_node_array.get(), state.num_volumes, state.total_vol_paths);
    if (rc < 0) {
        OXR_ERROR("populate_Oxr_Luns returned rc = %d", rc);
        return -1;
    }
    OXR_INFO("found %d Ostrel volumes, total_vol_paths = %d", state.num_volumes, state.total_vol_paths);
    const auto mode_changes = oxr::make_zeroed_array<mode_change_info>(OSTREL_MAX_VOLUMES);
    if (mode_changes == nullptr) {
        OXR_ERROR("can not allocate memory for mode_change_info");
        return -1;
    }
    if (state.num_volumes > 0) {
        carry_out_mode_changes(mode_changes.get(), vol_node_array.get(), state.num_volumes);
    }
    if (state.total_vol_paths >= MAX_PATHS_LIMIT) {
        OXR_WARN("Total number of paths = %d. MAX_PATHS_LIMIT = %d. Will not be creating any additional sessions.",
                 state.total_vol_paths, MAX_PATHS_LIMIT);
    }
    if (state.num_volumes > 0) {
        count_host_sessions(state);
        if (!fetch_transport_addrs(state)) {
            return -1;
        }
    }
    // The result is ignored: it is logged, and the volumes are balanced in any case.
    (void)handle_group_scoped_target_connections(values, state.total_vol_paths, state.num_system_sessions,
                                                 state.transport_addrs.get());
    for (int i = 0; i < state.num_volumes; ++i) {
        oxr::stop_point();
        handle_volume(state, i, vol_node_array[static_cast<std::size_t>(i)]);
    }
    send_psp_requests(state.requests, request_texts, state.status);
    return state.status;
}
