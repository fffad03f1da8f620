// A target's sessions grouped by local address: what balancing picks from. Functions of their inputs alone,
// but for the log.
#pragma once

#include <cstdint>

#include "OstrelConnections/inventory/session_inventory.h"

inline constexpr int MAX_SESSION_LIST_ENTRIES = 32;

// The sessions of one local address. Session k is the triple (isid[k], vmhba_name[k], session_state[k]).
struct ip_session_list {
    char local_ip[16];
    std::int32_t count;  // sessions; a working count once balancing has begun
    char isid[MAX_SESSIONS_PER_TARGET][24];
    char vmhba_name[MAX_SESSIONS_PER_TARGET][12];
    std::uint32_t session_state[MAX_SESSIONS_PER_TARGET];
};

// Groups the records that may be duplicated or removed: no static sessions, no records whose addresses were
// cleared and, with `ignore_xpt_wait` 1, none in XPT_WAIT. `list` is zeroed and has room for
// MAX_SESSION_LIST_ENTRIES; entries stand in the order in which their address first occurs. At most
// MAX_SESSIONS_PER_TARGET records are looked at.
void create_session_list(ip_session_list* list, int& num_entries, int num_records, const TargetDtls* records,
                         int ignore_xpt_wait);

// Puts the LOGGED_IN sessions of every entry first, all others last.
void sort_ip_session_list(ip_session_list* list, int num_entries);

// The entry with the smallest or the largest count; the first one on a tie. With no entries, entry 0.
ip_session_list& least_used_entry(ip_session_list* list, int num_entries);
ip_session_list& most_used_entry(ip_session_list* list, int num_entries);
