// The inventory: which iSCSI sessions a target has at this moment, of what kind and state, asked of IMA anew
// each time. Worker and renewal thread; no lock needs to be held.
#pragma once

#include <cstdint>

#include "OstrelConnections/psp/psp_records.h"

inline constexpr int MAX_SESSIONS_PER_TARGET = 32;

// Connection states as IMA reports them (unsigned; anything else is INVALID_STATE).
enum : std::uint32_t {
    SESSION_STATE_FREE = 0,
    SESSION_STATE_XPT_WAIT = 1,  // login pending
    SESSION_STATE_XPT_UP = 2,
    SESSION_STATE_IN_LOGIN = 3,   // login pending
    SESSION_STATE_LOGGED_IN = 4,  // the only state of a working session
    SESSION_STATE_IN_LOGOUT = 5,
    SESSION_STATE_LOGOUT_REQUESTED = 6,
    SESSION_STATE_CLEANUP_WAIT = 7,
};

enum : std::uint32_t {
    SESSION_DYNAMIC = 0,        // made by dynamic (automatic) discovery
    SESSION_STATIC = 1,         // made for a static (manual) target
    SESSION_LOGIN_PENDING = 2,  // dynamic, still logging in
};

// One session of a target. Addresses are IPv4 texts.
struct TargetDtls {
    char target_iqn[256];
    char isid[24];
    char initial_remote_ip[16];  // what the first connection was made to
    char current_remote_ip[16];
    char current_local_ip[16];
    std::uint32_t session_state;
    std::uint32_t session_type;
    char vmhba_name[12];
    std::uint32_t handled;  // the renewal's mark; the inventory never writes it
};

// One target and the adapters to look on. Callers pass its first field on as the target's name.
struct IscsiProps {
    char target_iqn[256];
    std::int32_t num_adapters;
    AdapterName vmhba_name_array[OSTREL_MAX_ADAPTERS];
};

const char* OxrSessionStateStr(std::uint32_t state);

// Zeroes the query and fills it; at most OSTREL_MAX_ADAPTERS names are taken.
void create_iscsi_props(const char (&target_iqn)[OSTREL_IQN_SIZE], int num_adapters, const AdapterName* adapters,
                        IscsiProps& props);

// The target's sessions, adapter by adapter, in IMA's order, without gaps; at most 32, the rest is left out
// with a WARN and result 0. The caller zeroes the login-pending count. 0, or -1; what was recorded before a
// failure stays in the outputs.
int populate_oxr_sessions(const IscsiProps& props, TargetDtls* sessions, int& num_dynamic, int& num_total,
                          int& num_login_pending);

// The same for a volume, whose three session counts are updated when the result is 0.
int obtain_oxr_lun_sessions(OxrLun& lun, TargetDtls* sessions);

// Counts all sessions of the host after `delay_seconds`. 0, or -1 with the output untouched.
int get_all_system_sessions(int& num_sessions, int delay_seconds);
