// Finds IMA object identifiers: adapters by name, targets by IQN, sessions by ISID text. Any thread; needs no lock.
// Every IMA list is released before return.
#pragma once

#include <cstdint>

#include "ima/ima.h"

inline constexpr std::uint32_t ISCSI_PORT = 3260;  // IANA: iscsi-target
inline constexpr int MAX_LOGICAL_ADAPTERS = 32;

// One lookup. With an empty `isid` it finds the target itself. Only the adapter, the target and the ISID are read; the
// other fields belong to the agreed record layout.
struct IscsiOidQuery {
    char adapter_name[12];
    char buffer[1025];
    std::uint32_t port;
    char target_name[256];
    char isid[24];
    char initiator_name[256];
    char portal_name[256];
};

// Fills a query. The texts may be fields without a terminator. A name of more than 11 (adapter) or 255 (target)
// characters is left empty, and an empty name is never found. A null `isid` counts as empty.
void make_oid_query(IscsiOidQuery& query, const char* adapter_name, const char* target_name, const char* isid);

// 0 and the OID, or -1. If `bypass_cache` is 0, the cache is searched first and stores the result; otherwise IMA is
// queried and the cache is neither read nor written.
int iscsi_get_oids(const IscsiOidQuery& query, IMA_OID& oid, int bypass_cache);

// 0 and the adapter's logical OID (and its physical OID if requested), or -1.
int iscsi_get_hba_oids(const char* adapter_name, IMA_OID* lhba_oid, IMA_OID* phba_oid);

// All logical adapters, at most MAX_LOGICAL_ADAPTERS, for which `oids` has room. 0 or -1.
int iscsi_get_all_hba_oids(IMA_OID* oids, std::uint32_t& count);
