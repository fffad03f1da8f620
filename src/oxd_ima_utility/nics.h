// The number of host NICs that carry iSCSI for a volume.
#pragma once

#include <cstdint>

#include "OstrelConnections/psp/psp_records.h"

inline constexpr int MAX_UNIQUE_IPS = 32;
using UniqueIpAddress = char[26];  // as wide as OstrelPspTransportPath::initiator_addr

// `vmknic_count` if it is set; else the number of distinct local addresses of the device's paths if `transport_addrs`
// (may be null) has the device; else the number of NICs bound to the adapters. -1 on failure.
int get_num_nic(const char (&device_eui)[OSTREL_EUI_SIZE], const AdapterName* adapters, int num_adapters,
                std::uint32_t vmknic_count, const OstrelPspIoctlGetTransportAddrsData* transport_addrs);

// Appends the address unless the list contains it. The caller provides room for every address.
void add_to_unique_ip_address_list(UniqueIpAddress* list, const char* ip_address, int& count);
