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

void rediscover_adapters(const char* operation, const UniqueAdapters& adapters, void (*on_failure)()) {
    for (int a = 0; a < adapters.count; ++a) {
        const oxr::FieldText adapter_name(adapters.names[a]);
        OXR_INFO_IN(operation, "calling rediscover on adapter %s ", adapter_name.c_str());
        if (do_rediscover_on_adapter(adapter_name.c_str()) != 0) {
            on_failure();
        }
    }
}

std::optional<int> collect_old_kind(const FinalRemoval& removal, const mode_change_info* changes, int num_changes,
                                    OxrLun* luns, RemoveList& list) {
    int result = 0;
    for (int c = 0; c < num_changes; ++c) {
        if (changes[c].change != removal.change) {
            continue;
        }
        oxr::stop_point();
        OxrLun& lun = luns[changes[c].index];
        const oxr::FieldText target_iqn(lun.target_iqn);
        OXR_DEBUG_IN(removal.operation, "Getting session connection details for target - %s", target_iqn.c_str());
        TargetDtls sessions[MAX_SESSIONS_PER_TARGET] = {};
        if (const int obtained = obtain_oxr_lun_sessions(lun, sessions); obtained < 0) {
            OXR_ERROR_IN(removal.operation, "populate_oxr_sessions returned %d = ", obtained);
            return std::nullopt;
        }
        if (!has_logged_in(sessions, removal.new_kind)) {
            removal.on_missing(target_iqn.c_str());
            result = -1;
            continue;
        }
        std::for_each(sessions, sessions + listed_sessions(sessions), [&](const TargetDtls& session) {
            if (is_logged_in(session, removal.old_kind)) {
                removal.collect(list, session, target_iqn.c_str());
            }
        });
    }
    return result;
}
