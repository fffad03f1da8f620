// Changes of a group's discovery mode without disconnecting a volume: most sessions of the old kind are removed,
// targets rediscovered and paths claimed, and only then the rest of the old kind is removed. Worker thread, inside a
// pass; stops at stop points, but never between the first removal and the rediscovery: a stop ends the removal, and the
// rediscovery replaces what was removed. Both procedures may be repeated while the PSP still reports a change; the one
// to static mode then also treats static sessions as surplus.
#pragma once

#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/psp/psp_client.h"
#include "oxd_ima_utility/nics.h"

// Applies the entries with change +1 (now dynamic). 0, or -1 if it failed and may succeed when it is repeated.
int handle_manual_to_automatic_mode_change(const mode_change_info* changes, int num_changes, OxrLun* luns);

// Applies the entries with change -1 (now static). 0 or -1.
int handle_automatic_to_manual_mode_change(const mode_change_info* changes, int num_changes, OxrLun* luns);

// The distinct remote addresses of the static sessions among all 32 records; `list` has room for
// MAX_UNIQUE_IPS.
void get_unique_target_ips(const TargetDtls* sessions, UniqueIpAddress* list, int& count);

// A target address and its logged-in static sessions.
struct TargetSessionCount {
    char target_ip[16];
    int num_sessions;
};

// Counts the logged-in static sessions of each listed address. Writes `busiest`, the first address with the most, only
// if some address has one.
void get_target_session_count_map(const UniqueIpAddress* list, int num_ips, const TargetDtls* sessions, int& busiest,
                                  TargetSessionCount* map);

// Rediscovers and waits at most 10 seconds for the result. 0, also if the result could not be read; -1 if discovery
// failed, timed out or has an unknown state.
int do_rediscover_on_adapter(const char* adapter_name);

// Removes the static targets of the changed volumes that have a logged-in dynamic session. 0, or -1 if a volume has
// none, a removal failed or the sessions cannot be read.
int remove_all_static_targets(const mode_change_info* changes, int num_changes, OxrLun* luns,
                              const AdapterName* adapters, int num_adapters);

// Removes the dynamic targets of the changed volumes that have a logged-in static session. 0 or -1.
int remove_all_dynamic_mode_targets(const mode_change_info* changes, int num_changes, OxrLun* luns,
                                    const AdapterName* adapters, int num_adapters);

// Removes every session of the target except the first two logged-in dynamic ones. -1, with nothing removed, if there
// are fewer than two; else 0, even if a removal failed. A stop that is held off ends the removal.
int remove_all_dynamic_sessions_but_two(const TargetDtls* sessions, const char* target_iqn);
