// The target OID cache: answers of one worker interval, by adapter, target and ISID. One mutex inside every
// operation, so that the worker, the renewal and the CIM server's threads may use it at once.
#pragma once

#include <cstdint>

#include "ima/ima.h"
#include "oxd_ima_utility/oid_lookup.h"

inline constexpr int MAX_TARGET_OIDS = 1024;

struct TargetOidEntry {
    char target[256];
    char adapter[12];
    char isid[24];  // empty: `oid` is the target's own
    IMA_OID oid;
    std::uint8_t isValid;
};

// 1 and the OID on a hit, else 0.
int fetch_target_oid(const char* adapter, const char* target, const char* isid, IMA_OID& oid);

// Keeps an answer: appended, or in the place of the first invalidated entry when the table is full. With
// 1024 valid entries it is not kept.
void add_target_oid(const IscsiOidQuery& query, const IMA_OID& oid);

// Forgets the first entry that holds this OID.
void invalidate_oid_record(const IMA_OID& oid);

// Empties the cache.
void refresh_target_oids_table();

// Logs every appended entry at ERROR: a diagnostic for a debugger to call.
void dump_target_oids();
