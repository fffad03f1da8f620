// How many host NICs carry iSCSI for a volume.
#pragma once

#include <cstdint>

#include "OstrelConnections/psp/psp_records.h"

inline constexpr int MAX_UNIQUE_IPS = 32;
using UniqueIpAddress = char[26];  // as wide as OstrelPspTransportPath::initiator_addr

// `vmknic_count` when it is set; else the distinct local addresses of the device's paths when
// `transport_addrs` (may be null) has the device; else the NICs bound to the adapters. 0 or more, or -1.
int get_num_nic(const char (&device_eui)[OSTREL_EUI_SIZE], const AdapterName* adapters, int num_adapters,
                std::uint32_t vmknic_count, const OstrelPspIoctlGetTransportAddrsData* transport_addrs);

// Appends the address unless an equal one is there. The caller has room for every address it may add.
void add_to_unique_ip_address_list(UniqueIpAddress* list, const char* ip_address, int& count);
