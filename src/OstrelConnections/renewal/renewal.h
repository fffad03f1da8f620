// Renewal of iSCSI connections: each logged-in session of a target is logged out and made again, one local
// address at a time, so that the volume keeps its paths over the other addresses meanwhile. The caller holds
// conn_renew_mutex and has set renew_connections_running, so the worker makes no pass; it waits for the
// renewal thread, which may take minutes.
#pragma once

#include <cstdint>

#include "OstrelConnections/inventory/session_inventory.h"
#include "OstrelConnections/psp/psp_records.h"
#include "OstrelConnections/renewal/renewal_state.h"

// OXD status: the outcome of a renewal request as clients get it.
enum : std::uint32_t {
    OXD_SUCCESS = 0,
    OXD_FAILED = 1,                   // no memory, no thread, PSP or sessions unreadable, digests not as wanted
    OXD_DEVICE_NOT_FOUND = 2,         // the PSP doesn't know the target
    OXD_SESSIONS_FAILED = 3,          // sessions that are not logged in
    OXD_SINGLE_SESSION = 4,           // nothing would carry the volume meanwhile
    OXD_SINGLE_VMKNIC = 5,            // idem: all sessions use one local address
    OXD_SESSION_REMOVAL_FAILED = 6,   // also when it was still there 60 seconds later
    OXD_SESSION_CREATION_FAILED = 7,  // also when it wasn't logged in 60 seconds later
    OXD_PATH_DISCOVERY_FAILED = 8,    // the rescan, or the paths were not back 60 seconds later
    OXD_WORKER_STOP_TIMEOUT = 9,      // worker_stop stayed set, or the configuration could not be read
    OXD_POLLING_PASS_TIMEOUT = 10,    // a pass kept the lock file
};

// A target's name as requests carry it, terminated.
using TargetIqn = char[256];

// What the renewal thread gets: one target's sessions and volume. `status` is what it gives back.
struct RenewalRequest {
    TargetDtls sessions[MAX_SESSIONS_PER_TARGET];  // to renew, none marked handled
    std::int32_t session_count;
    OxrLun lun;  // as the PSP had it before the renewal
    std::int32_t status;
};

// The status's text; "Unknown status" for one without a text of its own.
const char* ostrel_oxd_status_to_string(std::uint32_t status);

// Renews all sessions of each target in list order. The first target that fails ends the request; targets
// before it stay renewed, and sessions that the failing one has lost are left to the polling passes. OXD_*.
std::uint32_t handleGeneralConnectionRenewal(const TargetIqn* targets, int count) OXR_REQUIRES(conn_renew_mutex);

// Renews those sessions of each target whose digests are not as wanted (on with `enable`, else off) and looks
// whether they are afterwards. A target that needs nothing ends the request with success. OXD_*.
std::uint32_t handleChangeIscsiDigest(const TargetIqn* targets, int count, bool enable) OXR_REQUIRES(conn_renew_mutex);

// The renewal itself, on the renewal thread. Takes none of the shared mutexes but the log's.
void renew_iscsi_connections(RenewalRequest& request);

// 1 when IMA, asked anew, has the session; 0 when it can't be found.
int isSessionStillPresent(const char* adapter_name, const char* target_iqn, const char* isid);

// 1: header and data digest are on for the session's first connection; 0: not both; negative: lookup failed.
int isIscsiDigestEnabled(const TargetDtls& session);

// The number of distinct local addresses of the first `count` sessions when `kind` is "local", else 0.
int get_unique_ip_from_session_list(const TargetDtls* sessions, int count, const char* kind);
