#include "OstrelConnections/mode_change/mode_change.h"
#include "OstrelProvider/log.h"
#include "common/stop_point.h"
#include "oxd_ima_utility/discovery.h"

namespace {

constexpr int max_status_retries = 5;
constexpr long status_retry_seconds = 2;

// The result; tries again while it cannot be read.
int wait_for_outcome(const char* operation, const char* adapter_name) {
    int status = get_discover_iscsi_hba_status(adapter_name);
    for (int retries = 0; status == ISCSI_DISCOVERY_NO_STATUS;) {
        OXR_DEBUG_IN(operation, "sleeping before trying to get rediscovery status of adapter %s again", adapter_name);
        oxr::wait_seconds(status_retry_seconds);
        status = get_discover_iscsi_hba_status(adapter_name);
        if (++retries == max_status_retries) {
            OXR_WARN_IN(operation, "retry attempts for getting rediscovery status of adapter %s have been exhausted",
                        adapter_name);
            break;
        }
    }
    return status;
}

}  // namespace

int do_rediscover_on_adapter(const char* adapter_name) {
    (void)rediscover_iscsi_hba(adapter_name);  // its result is read next
    switch (wait_for_outcome(__func__, adapter_name)) {
        case ISCSI_DISCOVERY_FAILURE:
            OXR_ERROR("Rediscovery failed with error code ISCSI_DISCOVERY_FAILURE");
            return -1;
        case ISCSI_DISCOVERY_TIMEOUT:
            OXR_ERROR("Rediscovery failed with error code ISCSI_DISCOVERY_TIMEOUT");
            return -1;
        case ISCSI_DISCOVERY_UNKNOWN:
            OXR_ERROR("Rediscovery failed with error code ISCSI_DISCOVERY_UNKNOWN");
            return -1;
        default:
            OXR_INFO("Rediscovery completed on adapter %s", adapter_name);
            return 0;
    }
}
