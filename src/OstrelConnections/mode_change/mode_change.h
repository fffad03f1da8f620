// Changes of a group's discovery mode without disconnecting a volume: most sessions of the old kind are removed,
// targets rediscovered and paths claimed, and only then the rest of the old kind is removed. Worker thread, inside a
// pass; stops at stop points, but never between the thinning out and the rediscovery: a stop ends the thinning out, and
// what was removed is replaced. Both procedures may be repeated while the PSP still reports a switch; the one to static
// mode then takes static sessions for surplus as well.
#pragma once

#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/psp/psp_client.h"
#include "oxd_ima_utility/nics.h"

// The entries with change +1 (now dynamic). 0; -1: failed at a point from which a repetition may help.
int handle_manual_to_automatic_mode_change(const mode_change_info* changes, int num_changes, OxrLun* luns);

// The entries with change -1 (now static). 0 or -1.
int handle_automatic_to_manual_mode_change(const mode_change_info* changes, int num_changes, OxrLun* luns);

// The distinct remote addresses of the static sessions among all 32 records; `list` has room for
// MAX_UNIQUE_IPS.
void get_unique_target_ips(const TargetDtls* sessions, UniqueIpAddress* list, int& count);

// A target address and its logged-in static sessions.
struct TargetSessionCount {
    char target_ip[16];
    int num_sessions;
};

// Counts the logged-in static sessions of each listed address. `busiest` is written only when some address has
// one: the first with the most.
void get_target_session_count_map(const UniqueIpAddress* list, int num_ips, const TargetDtls* sessions, int& busiest,
                                  TargetSessionCount* map);

// Rediscovers and waits for the outcome, at most 10 seconds. 0, also when the outcome could not be
// read at all; -1 when discovery failed, timed out or its state is unknown.
int do_rediscover_on_adapter(const char* adapter_name);

// Removes the static targets of the changed volumes that have a logged-in dynamic session. 0, or -1 when a
// volume has none, a removal failed or the sessions can't be read.
int remove_all_static_targets(const mode_change_info* changes, int num_changes, OxrLun* luns,
                              const AdapterName* adapters, int num_adapters);

// Removes the dynamic targets of the changed volumes that have a logged-in static session. 0 or -1.
int remove_all_dynamic_mode_targets(const mode_change_info* changes, int num_changes, OxrLun* luns,
                                    const AdapterName* adapters, int num_adapters);

// Removes every session of the target but the first two logged-in dynamic ones. -1, with nothing removed, when
// there are fewer than two; else 0, whatever single removals did. A stop that is held
// off ends the removal.
int remove_all_dynamic_sessions_but_two(const TargetDtls* sessions, const char* target_iqn);
