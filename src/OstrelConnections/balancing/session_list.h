// A target's sessions grouped by local address, for balancing. Pure functions except for the log.
#pragma once

#include <cstdint>

#include "OstrelConnections/inventory/session_inventory.h"

inline constexpr int MAX_SESSION_LIST_ENTRIES = 32;

// The sessions of one local address. Session k is (isid[k], vmhba_name[k], session_state[k]).
struct ip_session_list {
    char local_ip[16];
    std::int32_t count;  // number of sessions; balancing changes it
    char isid[MAX_SESSIONS_PER_TARGET][24];
    char vmhba_name[MAX_SESSIONS_PER_TARGET][12];
    std::uint32_t session_state[MAX_SESSIONS_PER_TARGET];
};

// Groups the records that may be duplicated or removed. Skips static sessions, records with cleared addresses and, if
// `ignore_xpt_wait` is 1, sessions in XPT_WAIT. `list` must be zeroed and have room for MAX_SESSION_LIST_ENTRIES. The
// entries are in the order in which their addresses first occur. At most MAX_SESSIONS_PER_TARGET records are used.
void create_session_list(ip_session_list* list, int& num_entries, int num_records, const TargetDtls* records,
                         int ignore_xpt_wait);

// Sorts the LOGGED_IN sessions of every entry before all others.
void sort_ip_session_list(ip_session_list* list, int num_entries);

// The first entry with the smallest or the largest count; entry 0 if there are none.
ip_session_list& least_used_entry(ip_session_list* list, int num_entries);
ip_session_list& most_used_entry(ip_session_list* list, int num_entries);
