// Group-scoped targets (protocol endpoints of an array group), kept at the sessions their NICs and active
// arrays call for.
#pragma once

#include "OstrelConnections/psp/psp_records.h"
#include "OstrelProvider/config.h"

// Balances every group-scoped target in dynamic mode. Worker thread, inside a pass; stops at stop points.
// `num_system_sessions` is a count of its own: what is added here isn't handed back. `transport_addrs` may be
// null; no target loses a session then. -1 when the targets can't be had, else 0.
int handle_group_scoped_target_connections(const ConfigValues& values, int total_vol_paths, int num_system_sessions,
                                           const OstrelPspIoctlGetTransportAddrsData* transport_addrs);
