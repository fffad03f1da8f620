// Static (manually configured) targets and their removal.
#pragma once

#include <cstdint>

#include "OstrelConnections/psp/psp_records.h"

struct StaticTargetEntry {
    char target_iqn[256];
    char target_ip[20];  // the array portal's IPv4 address
};

// Removes, on each adapter, the static target of each entry with exactly this name, address and port. 0 when
// nothing failed; -1 when an adapter or its list could not be had (the work ends there) or a target could not
// be read or removed (the work goes on). Credentials of a removed target are lost, with a warning.
// Stops at stop points; where stops are held off, one that is asked for ends the work.
int remove_iscsi_static_targets(const StaticTargetEntry* entries, int num_entries, std::uint32_t port,
                                const AdapterName* adapters, int num_adapters);
