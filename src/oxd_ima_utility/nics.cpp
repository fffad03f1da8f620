#include "oxd_ima_utility/nics.h"

#include "OstrelConnections/psp/psp_client.h"
#include "OstrelProvider/log.h"
#include "common/text.h"
#include "oxd_ima_utility/ima_list.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/oid_lookup.h"

namespace {

constexpr LogOperation counting = "get_num_nic";

int count_local_addresses(const OstrelPspTransportAddrs& device) {
    UniqueIpAddress addresses[MAX_UNIQUE_IPS];
    int count = 0;
    for (std::int32_t i = 0; i < device.num_paths; ++i) {
        const OstrelPspTransportPath& path = device.paths[i];
        const oxr::FieldText initiator_addr(path.initiator_addr);
        OXR_DEBUG_IN(counting, "path_name = %s, initiator_addr = %s", oxr::FieldText(path.path_name).c_str(),
                     initiator_addr.c_str());
        add_to_unique_ip_address_list(addresses, initiator_addr.c_str(), count);
    }
    OXR_INFO_IN(counting, "Found %d vmknics by looking at the initiator ips.", count);
    return count;
}

// The NICs bound to the adapters, or -1.
int count_bound_nics(const AdapterName* adapters, int num_adapters) {
    int count = 0;
    for (int a = 0; a < num_adapters; ++a) {
        const oxr::FieldText adapter_name(adapters[a]);
        IMA_OID lhba{};
        if (const int rv = iscsi_get_hba_oids(adapter_name.c_str(), &lhba, nullptr); rv != 0) {
            OXR_ERROR_IN(counting, "iscsi_get_hba_oids returned rv = %d. adapter_name = %s", rv, adapter_name.c_str());
            return -1;
        }
        ImaList nics(OXR_MODULE, counting);
        if (const IMA_STATUS status = IMA_VMW_GetNicOidList(lhba, nics.out()); status != IMA_STATUS_SUCCESS) {
            OXR_ERROR_IN(counting, "Unable to get nic list. Adapter name = %s", adapter_name.c_str());
            do_print_ima_error_msg(status, __LINE__, counting, OXR_MODULE);
            return -1;
        }
        count += static_cast<int>(nics.size());
    }
    OXR_INFO_IN(counting, "Found %d vmknics bound to the iSCSI adapters.", count);
    return count;
}

}  // namespace

int get_num_nic(const char (&device_eui)[OSTREL_EUI_SIZE], const AdapterName* adapters, int num_adapters,
                std::uint32_t vmknic_count, const OstrelPspIoctlGetTransportAddrsData* transport_addrs) {
    if (vmknic_count > 0) {
        return static_cast<int>(vmknic_count);
    }
    const OstrelPspTransportAddrs* device = nullptr;
    if (transport_addrs != nullptr) {
        device = find_transport_addrs(*transport_addrs, oxr::field_view(device_eui));
        if (device == nullptr) {
            OXR_INFO("Could not find device %s in the transport address list.", oxr::FieldText(device_eui).c_str());
        }
    }
    const int count = device != nullptr ? count_local_addresses(*device) : count_bound_nics(adapters, num_adapters);
    if (count == 0) {
        OXR_ERROR("No nics found for this adapter.");
    }
    return count;
}

void add_to_unique_ip_address_list(UniqueIpAddress* list, const char* ip_address, int& count) {
    const std::string_view address = oxr::field_view(ip_address, sizeof(UniqueIpAddress));
    for (int i = 0; i < count; ++i) {
        if (oxr::field_view(list[i]) == address) {
            OXR_DEBUG("ip address %s already exists", ip_address);
            return;
        }
    }
    oxr::copy_field(list[count], address);
    ++count;
    OXR_DEBUG("ip address %s added to unique ip address list", ip_address);
}
