// Rescans, dead-path deletion and the single-record requests.
#include <cerrno>
#include <cstring>

#include "OstrelConnections/psp/control_device.h"
#include "OstrelConnections/psp/psp_checks.h"
#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log.h"
#include "common/heap.h"
#include "common/stop_point.h"
#include "common/text.h"

int rescan_ioctl(const AdapterName* adapters, int num_adapters) {
    const ControlDevice device(__func__);
    if (!device.opened()) {
        return -1;
    }
    const auto ioctl_data = oxr::make_zeroed<OstrelPspIoctlRescanData>();
    if (ioctl_data == nullptr) {
        OXR_ERROR("can not allocate memory for OstrelPspIoctlRescanData.");
        return -1;
    }
    int result = 0;
    for (int i = 0; i < num_adapters; ++i) {
        oxr::stop_point();
        oxr::copy_field(ioctl_data->adapter_name, oxr::field_view(adapters[i]));
        OXR_DEBUG("copied adapter %s to ioctl_data", oxr::FieldText(ioctl_data->adapter_name).c_str());
        const int status = device.request(OSTREL_PSP_IOCTL_RESCAN, ioctl_data.get());
        if (status < 0) {
            print_ioctl_error();
            OXR_ERROR("ioctl call - OSTREL_PSP_IOCTL_RESCAN failed. returned errno = 0x%x",
                      static_cast<unsigned>(errno));
            result = -1;
        } else if (status > 0) {
            OXR_ERROR("ioctl call - OSTREL_PSP_IOCTL_RESCAN failed. returned status = %s ",
                      ioctl_status_to_string(status));
            result = status;
        }
    }
    return result;
}

int delete_dead_path_ioctl(const AdapterName* adapters, int num_adapters, int delay_seconds) {
    oxr::wait_seconds(delay_seconds);
    const ControlDevice device(__func__, true);
    if (!device.opened()) {
        return -1;
    }
    const auto ioctl_data = oxr::make_zeroed<OstrelPspIoctlDeleteDeadPathsData>();
    if (ioctl_data == nullptr) {
        OXR_ERROR("can not allocate memory for OstrelPspIoctlDeleteDeadPathsData.");
        return -1;
    }
    int result = 0;
    for (int i = 0; i < num_adapters; ++i) {
        oxr::stop_point();
        oxr::copy_field(ioctl_data->adapter_name, oxr::field_view(adapters[i]));
        const int status = device.request(OSTREL_PSP_IOCTL_DELETE_DEAD_PATHS, ioctl_data.get());
        if (status < 0) {
            print_ioctl_error();
            OXR_ERROR("ioctl failed with errno=0x%x\n", static_cast<unsigned>(errno));
            result = -1;
        } else if (status > 0) {
            log_psp_status(__func__, status);
            result = -1;
        }
    }
    return result;
}

int get_group_scoped_target_by_iqn(OstrelPspGroupScopedTarget& target) {
    const ControlDevice device(__func__);
    if (!device.opened()) {
        return -1;
    }
    const int result = device.request(OSTREL_PSP_IOCTL_GET_GROUP_SCOPED_TARGET, &target);
    if (result < 0) {
        OXR_ERROR("ioctl failed with errno=0x%x\n", static_cast<unsigned>(errno));
    } else if (result > 0) {
        log_psp_status(__func__, result);
    } else if (!has_possible_counts(__func__, target)) {
        return -1;
    }
    return result;
}

int get_device_info_ioctl(OxrLun& lun) {
    const ControlDevice device(__func__);
    if (!device.opened()) {
        return -1;
    }
    const int result = device.request(OSTREL_PSP_IOCTL_GET_DEVICE_INFO, &lun);
    if (result < 0) {
        OXR_ERROR("ioctl OSTREL_PSP_IOCTL_GET_DEVICE_INFO failed with errno=0x%x\n", static_cast<unsigned>(errno));
    } else if (result > 0) {
        log_psp_status(__func__, result);
    } else if (!has_possible_counts(__func__, lun)) {
        return -1;
    }
    return result;
}

int getGroupScopedTargetInfoByIqn(OstrelPspGroupScopedTarget& target, const char* target_iqn) {
    std::memset(&target, 0, sizeof target);  // too large for a temporary on the stack
    oxr::copy_field(target.target_iqn, oxr::field_view(target_iqn, sizeof target.target_iqn));
    return get_group_scoped_target_by_iqn(target);
}

int getDeviceInfoByTargetIqn(OxrLun& lun, const char* target_iqn) {
    lun = {};
    oxr::copy_field(lun.target_iqn, oxr::field_view(target_iqn, sizeof lun.target_iqn));
    return get_device_info_ioctl(lun);
}

const char* ioctl_status_to_string(int status) {
    switch (status) {
        case OSTREL_PSP_IOCTL_SUCCESS:
            return "OSTREL_PSP_IOCTL_SUCCESS";
        case OSTREL_PSP_IOCTL_PARTIAL_SUCCESS:
            return "OSTREL_PSP_IOCTL_PARTIAL_SUCCESS";
        case OSTREL_PSP_IOCTL_ERROR_VMK_OUT_OF_MEMORY:
            return "OSTREL_PSP_IOCTL_ERROR_VMK_OUT_OF_MEMORY";
        case OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND:
            return "OSTREL_PSP_IOCTL_ERROR_DEVICE_NOT_FOUND";
        case OSTREL_PSP_IOCTL_ERROR_INVALID_INPUT:
            return "OSTREL_PSP_IOCTL_ERROR_INVALID_INPUT";
        case OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_NOT_FOUND:
            return "OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_NOT_FOUND";
        case OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_BUSY:
            return "OSTREL_PSP_IOCTL_ERROR_RESCAN_ADAPTER_BUSY";
        case OSTREL_PSP_IOCTL_ERROR_RESCAN_MAX_PATHS_CLAIMED:
            return "OSTREL_PSP_IOCTL_ERROR_RESCAN_MAX_PATHS_CLAIMED";
        case OSTREL_PSP_IOCTL_ERROR_RESCAN:
            return "OSTREL_PSP_IOCTL_ERROR_RESCAN";
        case OSTREL_PSP_IOCTL_ERROR_DELETE_DEAD_PATHS:
            return "OSTREL_PSP_IOCTL_ERROR_DELETE_DEAD_PATHS";
        case OSTREL_PSP_IOCTL_ERROR_UNKNOWN:
            return "OSTREL_PSP_IOCTL_ERROR_UNKNOWN";
        default:
            return "ioctl_status_unknown";
    }
}
