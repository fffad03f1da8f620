#include "oxd_ima_utility/discovery.h"

#include <cstdint>

#include "OstrelProvider/log.h"
#include "oxd_ima_utility/ima_text.h"
#include "oxd_ima_utility/oid_lookup.h"

namespace {

int discovery_outcome(std::uint32_t host_status) {
    switch (host_status) {
        case 1:
            return ISCSI_DISCOVERY_TIMEOUT;
        case 2:
            return ISCSI_DISCOVERY_DONE;
        case 3:
            return ISCSI_DISCOVERY_FAILURE;
        default:
            return ISCSI_DISCOVERY_UNKNOWN;
    }
}

}  // namespace

int rediscover_iscsi_hba(const char* adapter_name) {
    IMA_OID lhba{};
    if (const int rv = iscsi_get_hba_oids(adapter_name, &lhba, nullptr); rv != 0) {
        OXR_ERROR("iscsi_get_hba_oids returned rv = %d. adapter_name = %s", rv, adapter_name);
        return -1;
    }
    if (const IMA_STATUS status = IMA_VMW_Rediscover(lhba); status != IMA_STATUS_SUCCESS) {
        OXR_ERROR("Unable to rediscover on adapter = %s", adapter_name);
        OXR_IMA_ERROR(status);
        return -1;
    }
    OXR_DEBUG("Completed rediscovery on adapter %s", adapter_name);
    return 0;
}

int get_discover_iscsi_hba_status(const char* adapter_name) {
    IMA_OID lhba{};
    IMA_OID phba{};
    if (const int rv = iscsi_get_hba_oids(adapter_name, &lhba, &phba); rv != 0) {
        OXR_ERROR("iscsi_get_hba_oids returned rv = %d. adapter_name = %s", rv, adapter_name);
        return ISCSI_DISCOVERY_NO_STATUS;
    }
    std::uint32_t host_status = 0;
    if (const IMA_STATUS status = IMA_VMW_GetDiscoveryStatus(phba, &host_status); status != IMA_STATUS_SUCCESS) {
        OXR_ERROR("Unable to obtain the discovery status.");
        OXR_IMA_ERROR(status);
        return ISCSI_DISCOVERY_NO_STATUS;
    }
    return discovery_outcome(host_status);
}
