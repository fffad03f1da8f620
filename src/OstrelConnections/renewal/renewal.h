// Renewal of iSCSI connections: logs each logged-in session of a target out and creates it again, one local address at
// a time, so that the volume keeps its paths over the other addresses. The caller holds conn_renew_mutex and has set
// renew_connections_running, so the worker skips its passes. It waits for the renewal thread, which can take minutes.
#pragma once

#include <cstdint>

#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/psp/psp_records.h"
#include "OstrelConnections/renewal/renewal_state.h"

// OXD status: the result of a renewal request that clients get.
enum : std::uint32_t {
    OXD_SUCCESS = 0,
    OXD_FAILED = 1,                   // no memory, no thread, PSP or sessions not readable, wrong digests afterwards
    OXD_DEVICE_NOT_FOUND = 2,         // the PSP does not know the target
    OXD_SESSIONS_FAILED = 3,          // some sessions are not logged in
    OXD_SINGLE_SESSION = 4,           // the volume would have no session meanwhile
    OXD_SINGLE_VMKNIC = 5,            // the same: all sessions use one local address
    OXD_SESSION_REMOVAL_FAILED = 6,   // also if it still exists after 60 seconds
    OXD_SESSION_CREATION_FAILED = 7,  // also if it is not logged in after 60 seconds
    OXD_PATH_DISCOVERY_FAILED = 8,    // the rescan failed, or the paths were not restored after 60 seconds
    OXD_WORKER_STOP_TIMEOUT = 9,      // worker_stop stayed set, or the configuration could not be read
    OXD_POLLING_PASS_TIMEOUT = 10,    // a pass held the lock file
};

// A target's name in a request, terminated.
using TargetIqn = char[256];

// The renewal thread's input, one target's sessions and volume, and its result, `status`.
struct RenewalRequest {
    TargetDtls sessions[MAX_SESSIONS_PER_TARGET];  // the sessions to renew, none marked as handled
    std::int32_t session_count;
    OxrLun lun;  // the PSP's record before the renewal
    std::int32_t status;
};

// The status's text, or "Unknown status" if it has none.
const char* ostrel_oxd_status_to_string(std::uint32_t status);

// Renews all sessions of each target in list order. The first target that fails ends the request: earlier targets stay
// renewed, and the polling passes replace the sessions that the failing one has lost. OXD_*.
std::uint32_t handleGeneralConnectionRenewal(const TargetIqn* targets, int count) OXR_REQUIRES(conn_renew_mutex);

// Renews the sessions of each target whose digests are not as requested (on if `enable`, else off) and checks them
// afterwards. A target that needs no change ends the request with success. OXD_*.
std::uint32_t handleChangeIscsiDigest(const TargetIqn* targets, int count, bool enable) OXR_REQUIRES(conn_renew_mutex);

// The renewal itself, on the renewal thread. Takes no shared mutex except the log's.
void renew_iscsi_connections(RenewalRequest& request);

// 1 if IMA has the session (without the cache); 0 if it cannot be found.
int isSessionStillPresent(const char* adapter_name, const char* target_iqn, const char* isid);

// 1: header and data digest are on for the session's first connection; 0: not both; negative: the lookup failed.
int isIscsiDigestEnabled(const TargetDtls& session);

// The number of distinct local addresses of the first `count` sessions if `kind` is "local", else 0.
int get_unique_ip_from_session_list(const TargetDtls* sessions, int count, const char* kind);
