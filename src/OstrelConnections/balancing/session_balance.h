// Balancing: one target's dynamic sessions moved toward the number it should have, within the host's ceiling.
// Static sessions are never duplicated or removed. Worker thread.
#pragma once

#include <cstdint>

#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/psp/psp_records.h"

// The host-wide ceiling for sessions made here.
inline constexpr int MAX_SYSTEM_SESSIONS = 2040;

// What the caller must ask of the PSP after balancing; 0: nothing.
enum : std::int32_t {
    DELETE_DEAD_PATHS = 1,  // sessions were removed
    RESCAN = 2,             // sessions were added
};

// Returns the sessions created or removed; 0 when nothing was done; negative when memory was short.
// `num_system_sessions` is the host's present count, kept current; `ioctl_required` is written only when
// sessions were created or removed. `num_total` is the number of records.
int handle_num_sessions(const char* target_iqn, const TargetDtls* records, int num_required, int& num_system_sessions,
                        int num_dynamic, int num_total, int num_login_pending, std::int32_t& ioctl_required);

// Sessions created on the least-used local addresses, at most `num_to_add`; -1 when memory was short.
int add_isid_sessions(int num_to_add, const char* target_iqn, int num_records, const TargetDtls* records);

// Sessions removed from the most-used local addresses, those that aren't logged in first, at most
// `num_to_remove`; -1 when memory was short.
int remove_isid_sessions(int num_to_remove, const char* target_iqn, int num_records, const TargetDtls* records);

// Protects sessions that carry active paths of the target's devices from removal, by clearing the addresses
// of their records.
void exclude_active_array_sessions_from_remove(const OstrelPspGroupScopedTarget& target,
                                               const OstrelPspIoctlGetTransportAddrsData& transport_addrs,
                                               TargetDtls* records, int num_records);
