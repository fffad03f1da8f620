#include "OstrelConnections/renewal/renewal.h"

const char* ostrel_oxd_status_to_string(std::uint32_t status) {
    switch (status) {
        case OXD_SUCCESS:
            return "Success";
        case OXD_FAILED:
            return "Failed";
        case OXD_SESSIONS_FAILED:
            return "device has sessions in failed state";
        case OXD_SINGLE_SESSION:
            return "only single session present to target";
        case OXD_SINGLE_VMKNIC:
            return "only single vmknic present, ignoring request";
        case OXD_SESSION_REMOVAL_FAILED:
            return "session removal failed";
        case OXD_SESSION_CREATION_FAILED:
            return "session creation failed";
        case OXD_PATH_DISCOVERY_FAILED:
            return "path discovery failed by PSP after session creation";
        case OXD_WORKER_STOP_TIMEOUT:
            return "ostrel-mode.sh script running : wait timed out";
        case OXD_POLLING_PASS_TIMEOUT:
            return "oxd connection handler running: wait timed out";
        default:  // including OXD_DEVICE_NOT_FOUND
            return "Unknown status";
    }
}
