// Group-scoped targets (protocol endpoints of an array group) and the sessions that their NICs and active arrays
// require.
#pragma once

#include "OstrelConnections/psp/psp_records.h"
#include "OstrelProvider/config.h"

// Balances every group-scoped target in dynamic mode. Worker thread, inside a pass; stops at stop points.
// `num_system_sessions` is passed by value: the caller does not see what is added here. If `transport_addrs` is null,
// no target loses a session. -1 if the targets cannot be read, else 0.
int handle_group_scoped_target_connections(const ConfigValues& values, int total_vol_paths, int num_system_sessions,
                                           const OstrelPspIoctlGetTransportAddrsData* transport_addrs);
