// Static (manually configured) targets and their removal.
#pragma once

#include <cstdint>

#include "OstrelConnections/psp/psp_records.h"

struct StaticTargetEntry {
    char target_iqn[256];
    char target_ip[20];  // the array portal's IPv4 address
};

// For each entry, removes the static target with exactly this name, address and port on each adapter. -1 if an adapter
// or its list could not be read (ends there), or if a target could not be read or removed (continues); else 0.
// Credentials of a removed target are lost, with a warning. Stops at stop points; a stop that is held off ends the
// removal.
int remove_iscsi_static_targets(const StaticTargetEntry* entries, int num_entries, std::uint32_t port,
                                const AdapterName* adapters, int num_adapters);
