// From names to IMA object identifiers: adapters by name, targets by IQN, sessions by ISID text. Any thread;
// no lock needs to be held. Every IMA list obtained is released before return.
#pragma once

#include <cstdint>

#include "ima/ima.h"

inline constexpr std::uint32_t ISCSI_PORT = 3260;  // IANA: iscsi-target
inline constexpr int MAX_LOGICAL_ADAPTERS = 32;

// One lookup. An empty `isid` asks for the target's own OID. Only the adapter, the target and the ISID are
// read; the other fields are part of the record's agreed form.
struct IscsiOidQuery {
    char adapter_name[12];
    char buffer[1025];
    std::uint32_t port;
    char target_name[256];
    char isid[24];
    char initiator_name[256];
    char portal_name[256];
};

// A query as every caller builds it. The texts may be fields without a terminator; a name of more than 11
// (adapter) or 255 (target) characters is left empty, and an empty name is never found. A null `isid` is an empty one.
void make_oid_query(IscsiOidQuery& query, const char* adapter_name, const char* target_name, const char* isid);

// 0 and the OID, or -1. `bypass_cache` 0: the cache is asked first and keeps the answer; non-zero: IMA's
// present state, the cache neither read nor written.
int iscsi_get_oids(const IscsiOidQuery& query, IMA_OID& oid, int bypass_cache);

// 0 and the adapter's logical OID (and the physical one when asked for), or -1.
int iscsi_get_hba_oids(const char* adapter_name, IMA_OID* lhba_oid, IMA_OID* phba_oid);

// Every logical adapter, at most MAX_LOGICAL_ADAPTERS of them, which is the room of `oids`. 0 or -1.
int iscsi_get_all_hba_oids(IMA_OID* oids, std::uint32_t& count);
