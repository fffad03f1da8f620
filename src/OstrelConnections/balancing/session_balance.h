// Balancing: adds or removes dynamic sessions of one target until it has the required number, within the host's limit.
// Static sessions are never duplicated or removed. Worker thread.
#pragma once

#include <cstdint>

#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/psp/psp_records.h"

// No session is added beyond this number of sessions on the host.
inline constexpr int MAX_SYSTEM_SESSIONS = 2040;

// The request that the caller must send to the PSP after balancing; 0: none.
enum : std::int32_t {
    DELETE_DEAD_PATHS = 1,  // sessions were removed
    RESCAN = 2,             // sessions were added
};

// Returns the number of sessions created or removed, or a negative number if memory is short. Updates
// `num_system_sessions`, the host's count. Writes `ioctl_required` only if sessions were created or removed.
// `num_total` is the number of records.
int handle_num_sessions(const char* target_iqn, const TargetDtls* records, int num_required, int& num_system_sessions,
                        int num_dynamic, int num_total, int num_login_pending, std::int32_t& ioctl_required);

// Creates up to `num_to_add` sessions on the least-used local addresses. Returns their number, or -1 if memory is
// short.
int add_isid_sessions(int num_to_add, const char* target_iqn, int num_records, const TargetDtls* records);

// Removes up to `num_to_remove` sessions from the most-used local addresses, first those that are not logged in.
// Returns their number, or -1 if memory is short.
int remove_isid_sessions(int num_to_remove, const char* target_iqn, int num_records, const TargetDtls* records);

// Protects sessions that carry active paths of the target's devices from removal: clears the addresses in their
// records.
void exclude_active_array_sessions_from_remove(const OstrelPspGroupScopedTarget& target,
                                               const OstrelPspIoctlGetTransportAddrsData& transport_addrs,
                                               TargetDtls* records, int num_records);
