// The list requests and the evaluation of their replies.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "OstrelConnections/psp/control_device.h"
#include "OstrelConnections/psp/psp_checks.h"
#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/text.h"

namespace {

// Checks a list's count. More than 256 devices have their own message.
bool is_possible_length(const char* operation, const char* list, std::int32_t count, std::int32_t capacity) {
    if (count < 0 || count > capacity) {
        OXR_ERROR_IN(operation, "Impossible number of %s = %d returned by psp. Not using this list.", list, count);
        return false;
    }
    return true;
}

bool is_supported(const OxrLun& lun) {
    return lun.isVvolPE != 0 || lun.num_of_mem_array >= 1;
}

// Packs the usable records of a device list.
int keep_supported_devices(const char* operation, const OstrelPspIoctlGetAllDeviceInfoData& reply, OxrLun* luns) {
    int kept = 0;
    for (std::int32_t i = 0; i < reply.num_devices; ++i) {
        const OxrLun& lun = reply.devices[i];
        if (!is_supported(lun)) {
            OXR_INFO_IN(operation,
                        "device %s belongs to an unsupported array cause num_of_mem_array = 0. Not being  added to "
                        "array of OxrLuns ",
                        oxr::FieldText(lun.device_eui).c_str());
        } else if (has_possible_counts(operation, lun)) {
            luns[kept++] = lun;
        }
    }
    return kept;
}

void log_device(const char* operation, const OxrLun& lun) {
    OXR_DEBUG_IN(operation,
                 "lun->device_eui=%s, lun->num_adapters=%d, lun->num_total_paths=%d, lun->num_of_mem_array=%d, "
                 "lun->group_mode=%d, lun->mode_changed=%d, lun->num_dead_paths=%d, lun->num_active_paths=%d, ",
                 oxr::FieldText(lun.device_eui).c_str(), lun.num_adapters, lun.num_total_paths, lun.num_of_mem_array,
                 lun.group_mode, lun.mode_changed, lun.num_dead_paths, lun.num_active_paths);
    for (std::int32_t a = 0; a < lun.num_adapters; ++a) {
        OXR_DEBUG_IN(operation, "lun->vmhba_name_array[%d]= %s", a, oxr::FieldText(lun.vmhba_name_array[a]).c_str());
    }
}

// These entries decide which sessions may be removed, so a list with an impossible entry is refused as a whole.
bool all_entries_possible(const char* operation, const OstrelPspIoctlGetTransportAddrsData& data) {
    return std::all_of(data.devices, data.devices + data.num_devices,
                       [&](const OstrelPspTransportAddrs& device) { return has_possible_counts(operation, device); });
}

}  // namespace

int get_all_device_info_ioctl(OxrLun* luns, int& num_luns) {
    const ControlDevice device(__func__);
    if (!device.opened()) {
        return -1;
    }
    const auto reply = oxr::make_zeroed<OstrelPspIoctlGetAllDeviceInfoData>();
    if (reply == nullptr) {
        OXR_ERROR("can not allocate memory for OstrelPspIoctlGetAllDeviceInfoData.");
        return -1;
    }
    const int status = device.request(OSTREL_PSP_IOCTL_GET_ALL_DEVICE_INFO, reply.get());
    if (status < 0) {
        print_ioctl_error();
        OXR_ERROR("ioctl failed with errno=0x%x\n", static_cast<unsigned>(errno));
        return -1;
    }
    if (status > 0) {
        log_psp_status(__func__, status);
        return -1;
    }
    if (reply->num_devices > OSTREL_MAX_VOLUMES) {
        OXR_ERROR("More than max devices returned by psp");
        return -1;
    }
    if (!is_possible_length(__func__, "devices", reply->num_devices, OSTREL_MAX_VOLUMES)) {
        return -1;
    }
    num_luns = keep_supported_devices(__func__, *reply, luns);
    OXR_DEBUG("number of devices = %d", num_luns);
    return 0;
}

int populate_Oxr_Luns(OxrLun* luns, int& num_luns, int& total_paths) {
    total_paths = 0;
    int kept = 0;
    if (get_all_device_info_ioctl(luns, kept) < 0) {
        OXR_ERROR("Error getting data from psp via ioctl");
        return -1;
    }
    get_host_total_scsiPaths(luns, kept, total_paths);
    num_luns = kept;
    return 0;
}

void get_host_total_scsiPaths(const OxrLun* luns, int num_luns, int& total_paths) {
    if (luns == nullptr) {
        return;
    }
    OXR_DEBUG("num_vol_nodes = %d", num_luns);
    if (num_luns < 1) {
        return;
    }
    std::int64_t total = 0;
    for (int i = 0; i < num_luns; ++i) {
        const OxrLun& lun = luns[i];
        if (lun.device_eui[0] != '\0') {
            log_device(__func__, lun);
            total += lun.num_total_paths;
        }
    }
    // The limit is exceeded anyway, so the exact number does not matter.
    total_paths = static_cast<int>(total < INT32_MAX ? total : INT32_MAX);
}

void get_mode_change_info(const OxrLun* luns, mode_change_info* changes, int& num_changes, int num_luns,
                          int& manual_to_automatic, int& automatic_to_manual) {
    int count = 0;
    for (int i = 0; i < num_luns; ++i) {
        const OxrLun& lun = luns[i];
        if (lun.mode_changed != OSTREL_MODE_CHANGED) {
            continue;
        }
        OXR_INFO("mode change detected for %s", oxr::FieldText(lun.device_eui).c_str());
        mode_change_info& entry = changes[count++];
        entry.index = i;
        if (lun.group_mode == OSTREL_GROUP_MODE_STATIC) {
            entry.change = AUTOMATIC_TO_MANUAL;
            automatic_to_manual = 1;
        } else {
            entry.change = MANUAL_TO_AUTOMATIC;
            manual_to_automatic = 1;
        }
    }
    num_changes = count;
    OXR_DEBUG("Returning from this function. *mode_change_info_cnt = %d", count);
}

int get_all_group_scoped_targets_ioctl(OstrelPspGroupScopedTarget* targets, int& num_targets) {
    const ControlDevice device(__func__);
    if (!device.opened()) {
        return -1;
    }
    const auto reply = oxr::make_zeroed<OstrelPspIoctlGetAllGroupScopedTargetsData>();
    if (reply == nullptr) {
        OXR_ERROR("ERROR: buffer allocation failed\n");
        return -1;
    }
    const int status = device.request(OSTREL_PSP_IOCTL_GET_ALL_GROUP_SCOPED_TARGETS, reply.get());
    if (status < 0) {
        OXR_ERROR("ioctl failed with errno=0x%x\n", static_cast<unsigned>(errno));
        return -1;
    }
    if (status > 0) {
        log_psp_status(__func__, status);
        return -1;
    }
    if (!is_possible_length(__func__, "group scoped targets", reply->num_targets, OSTREL_MAX_GROUP_SCOPED_TARGETS)) {
        return -1;
    }
    int copied = 0;
    for (std::int32_t i = 0; i < reply->num_targets; ++i) {
        const OstrelPspGroupScopedTarget& target = reply->targets[i];
        const oxr::FieldText target_iqn(target.target_iqn);
        if (target.num_luns <= 0) {
            OXR_ERROR("target %s has %d luns", target_iqn.c_str(), target.num_luns);
        } else if (has_possible_counts(__func__, target)) {
            OXR_DEBUG("Group scoped Target %d : %s , num_active_paths = %d \n", i, target_iqn.c_str(),
                      target.total_active_paths);
            targets[copied++] = target;
        }
    }
    num_targets = copied;
    return 0;
}

int get_transport_addrs_ioctl(OstrelPspIoctlGetTransportAddrsData& data) {
    const ControlDevice device(__func__);
    if (!device.opened()) {
        return -1;
    }
    const int status = device.request(OSTREL_PSP_IOCTL_GET_TRANSPORT_ADDRS, &data);
    if (status < 0) {
        print_ioctl_error();
        OXR_ERROR("ioctl failed with errno=0x%x\n", static_cast<unsigned>(errno));
        return -1;
    }
    if (status == OSTREL_PSP_IOCTL_SUCCESS) {
        OXR_INFO("ioctl command executed successfully, returned status = %s.", ioctl_status_to_string(status));
    } else if (status == OSTREL_PSP_IOCTL_PARTIAL_SUCCESS) {
        OXR_INFO(
            "ioctl command executed successfully, but returned status = %s. Some devices may not be supporting D6 "
            "inquiry.",
            ioctl_status_to_string(status));
    } else {
        log_psp_status(__func__, status);
        return -1;
    }
    if (!is_possible_length(__func__, "devices", data.num_devices, OSTREL_MAX_VOLUMES) ||
        !all_entries_possible(__func__, data)) {
        return -1;
    }
    return 0;
}

const OstrelPspTransportAddrs* find_transport_addrs(const OstrelPspIoctlGetTransportAddrsData& data,
                                                    std::string_view device_eui) {
    const std::size_t length = device_eui.size();
    if (length > OSTREL_EUI_SIZE) {
        return nullptr;
    }
    for (std::int32_t i = 0; i < data.num_devices; ++i) {
        const char* const field = data.devices[i].device_eui;
        if (std::memcmp(field, device_eui.data(), length) == 0 &&
            (length == OSTREL_EUI_SIZE || field[length] == '\0')) {
            return &data.devices[i];
        }
    }
    return nullptr;
}
