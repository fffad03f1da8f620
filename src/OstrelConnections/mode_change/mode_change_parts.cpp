#include "OstrelConnections/mode_change/mode_change_parts.h"

#include "common/stop_point.h"
#include "oxd_ima_utility/oid_lookup.h"

bool RemoveList::add(const char* operation, const char* target_iqn, std::string_view target_ip) {
    if (count_ == MAX_STATIC_TARGETS_TO_REMOVE) {
        OXR_WARN_IN(operation,
                    "%d static targets are to be removed already. Target %s, ip %.*s is left to the next pass.", count_,
                    target_iqn, static_cast<int>(target_ip.size()), target_ip.data());
        return false;
    }
    StaticTargetEntry& entry = entries_[static_cast<std::size_t>(count_++)];
    oxr::copy_text(entry.target_iqn, target_iqn);
    oxr::copy_text(entry.target_ip, target_ip);
    return true;
}

int RemoveList::remove_from(const AdapterName* adapters, int num_adapters) const {
    return remove_iscsi_static_targets(entries_.get(), count_, ISCSI_PORT, adapters, num_adapters);
}

bool ModeChangeBatch::take(const char* operation, const mode_change_info& change, const OxrLun& lun) {
    if (!add_all_adapters(adapters, lun.vmhba_name_array, lun.num_adapters)) {
        OXR_WARN_IN(operation, "More than %d adapters. The mode change of target %s is left to the next pass.",
                    OSTREL_MAX_ADAPTERS, oxr::FieldText(lun.target_iqn).c_str());
        return false;
    }
    changes[count++] = change;
    return true;
}

bool rediscover_adapter(LogOperation operation, const AdapterName& adapter) {
    const oxr::FieldText adapter_name(adapter);
    OXR_INFO_IN(operation, "calling rediscover on adapter %s ", adapter_name.c_str());
    return do_rediscover_on_adapter(adapter_name.c_str()) == 0;
}

bool read_changed_volume(LogOperation operation, OxrLun& lun, TargetDtls* sessions) {
    oxr::stop_point();
    OXR_DEBUG_IN(operation, "Getting session connection details for target - %s",
                 oxr::FieldText(lun.target_iqn).c_str());
    if (const int obtained = obtain_oxr_lun_sessions(lun, sessions); obtained < 0) {
        OXR_ERROR_IN(operation, "populate_oxr_sessions returned %d = ", obtained);
        return false;
    }
    return true;
}
