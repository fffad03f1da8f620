// The target OID cache: the lookups of one worker interval, by adapter, target and ISID. Every operation takes its
// mutex, so the worker, the renewal and the CIM server's threads can use it concurrently.
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

// Stores a lookup: appends it or, if the table is full, replaces the first invalidated entry. With 1024 valid entries
// it is not stored.
void add_target_oid(const IscsiOidQuery& query, const IMA_OID& oid);

// Invalidates the first entry with this OID.
void invalidate_oid_record(const IMA_OID& oid);

// Empties the cache.
void refresh_target_oids_table();

// Logs every entry at ERROR; meant to be called from a debugger.
void dump_target_oids();
