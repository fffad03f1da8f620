#include "oxd_ima_utility/oid_cache.h"

#include <cinttypes>
#include <cstring>

#include "OstrelProvider/log.h"
#include "common/mutex.h"
#include "common/text.h"
#include "oxd_ima_utility/ima_text.h"

namespace {

oxr::Mutex cache_mutex;
TargetOidEntry target_oids[MAX_TARGET_OIDS] OXR_GUARDED_BY(cache_mutex);
std::int32_t target_oid_table_next_index OXR_GUARDED_BY(cache_mutex) = 0;

// "oid[%d, %lu, %llu]" of an entry.
#define OID_FORMAT "oid[%d, %lu, %" PRIu64 "]"
#define OID_ARGUMENTS(oid) \
    static_cast<int>((oid).objectType), static_cast<unsigned long>((oid).ownerId), (oid).objectSequenceNumber

void write_entry(TargetOidEntry& entry, const IscsiOidQuery& query, const IMA_OID& oid) {
    oxr::copy_text(entry.target, oxr::field_view(query.target_name));
    oxr::copy_text(entry.adapter, oxr::field_view(query.adapter_name));
    oxr::copy_text(entry.isid, oxr::field_view(query.isid));
    entry.oid = oid;
    entry.isValid = 1;
}

bool same_key(const TargetOidEntry& entry, const char* adapter, const char* target, const char* isid) {
    return std::strcmp(entry.target, target) == 0 && std::strcmp(entry.isid, isid) == 0 &&
           std::strcmp(entry.adapter, adapter) == 0;
}

}  // namespace

int fetch_target_oid(const char* adapter, const char* target, const char* isid, IMA_OID& oid) {
    const oxr::MutexLock lock(cache_mutex);
    for (int i = 0; i < target_oid_table_next_index; ++i) {
        if (target_oids[i].isValid != 0 && same_key(target_oids[i], adapter, target, isid)) {
            oid = target_oids[i].oid;
            return 1;
        }
    }
    return 0;
}

void add_target_oid(const IscsiOidQuery& query, const IMA_OID& oid) {
    const oxr::MutexLock lock(cache_mutex);
    if (target_oid_table_next_index < MAX_TARGET_OIDS) {
        const int index = target_oid_table_next_index++;
        TargetOidEntry& entry = target_oids[index];
        write_entry(entry, query, oid);
        OXR_DEBUG_IN("iscsi_get_oids",
                     "Added new entry to target_oids[%d] table, adapter=%s, target=%s, isid=%s, " OID_FORMAT, index,
                     entry.adapter, entry.target, entry.isid, OID_ARGUMENTS(oid));
        return;
    }
    for (TargetOidEntry& entry : target_oids) {
        if (entry.isValid == 0) {
            write_entry(entry, query, oid);
            return;
        }
    }
}

void invalidate_oid_record(const IMA_OID& oid) {
    const oxr::MutexLock lock(cache_mutex);
    for (int i = 0; i < MAX_TARGET_OIDS; ++i) {
        TargetOidEntry& entry = target_oids[i];
        if (isEqual(entry.oid, oid) != 0) {
            entry.isValid = 0;
            OXR_DEBUG("Invalidated record, target_oids[%d], isValid=%d, adapter=%s, target=%s, isid=%s, " OID_FORMAT, i,
                      entry.isValid, entry.adapter, entry.target, entry.isid, OID_ARGUMENTS(entry.oid));
            return;
        }
    }
}

void refresh_target_oids_table() {
    const oxr::MutexLock lock(cache_mutex);
    target_oid_table_next_index = 0;
    std::memset(target_oids, 0, sizeof target_oids);
}

void dump_target_oids() {
    const oxr::MutexLock lock(cache_mutex);
    for (int i = 0; i < target_oid_table_next_index; ++i) {
        const TargetOidEntry& entry = target_oids[i];
        OXR_ERROR("target_oids[%d], isValid=%d, adapter=%s, target=%s, isid=%s, " OID_FORMAT, i, entry.isValid,
                  entry.adapter, entry.target, entry.isid, OID_ARGUMENTS(entry.oid));
    }
}
