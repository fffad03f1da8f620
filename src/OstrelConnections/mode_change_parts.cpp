#include "OstrelConnections/mode_change_parts.h"

#include "oxd_ima_utility/oid_lookup.h"

void RemoveList::add(const char* operation, const char* target_iqn, std::string_view target_ip) {
    if (count_ == MAX_STATIC_TARGETS_TO_REMOVE) {
        OXR_WARN_IN(operation,
                    "%d static targets are to be removed already. Target %s, ip %.*s is left to the next pass.", count_,
                    target_iqn, static_cast<int>(target_ip.size()), target_ip.data());
        return;
    }
    StaticTargetEntry& entry = entries_[count_++];
    oxr::copy_text(entry.target_iqn, target_iqn);
    oxr::copy_text(entry.target_ip, target_ip);
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
